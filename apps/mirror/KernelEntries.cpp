#include "apps/mirror/KernelEntries.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>

#include "apps/mirror/AgentTables.h"

namespace Show {

using Vantu::IntfId;

namespace {

// The name that the library's macros know.
IntfId registerIntf() {
   return IntfId( "Register0" );
}

uint32_t indexOf( const Mirror& mirror, IntfId intfId ) {
   Published::MfibVif vif;
   if ( intfId.empty() ||
        mirror.mfib->vif().find( intfId, vif ) != Brane::lookupFound )
      return 0;
   return vif.ifIndex;
}

// Of one that the forwarding process does not know, the number.
IntfId nameOf( const Mirror& mirror, uint32_t index ) {
   IntfId name;
   mirror.mfib->vif().visit( nullptr, [&]( const Published::MfibVif& vif ) {
      if ( vif.ifIndex == index ) name = vif.key;
      return name.empty();
   } );
   return name.empty() ? IntfId( fmt::format( "#{}", index ) ) : name;
}

bool isKnown( const Mirror& mirror, uint32_t index ) {
   return index != 0 && nameOf( mirror, index ).name().front() != '#';
}

// The register interface is in every VRF.
bool isOf( const Mirror& mirror, const Host::Entry& entry ) {
   if ( const auto table = kernelTable( mirror ) ) return entry.table == *table;
   return isKnown( mirror, entry.incoming ) ||
          std::any_of( entry.outgoing.begin(), entry.outgoing.end(),
                       [&]( uint32_t index ) { return isKnown( mirror, index ); } );
}

// Where the kernel sends to people: it finds a (*,G) entry only by an outgoing interface,
// so that the incoming one is among them; new sources are told of by the register one.
std::set<uint32_t> outgoing( const Mirror& mirror, const Route& route,
                             const Host::Entry& entry ) {
   std::set<uint32_t> out = entry.outgoing;
   if ( !route.wildCard() ) return out;
   out.erase( entry.incoming );
   out.erase( indexOf( mirror, registerIntf() ) );
   return out;
}

// The same as the table has it.
std::set<uint32_t> wanted( const Mirror& mirror, const Route& route,
                           bool byBackup ) {
   std::set<uint32_t> out;
   for ( const Intf& intf : route.routeIntf() )
      if ( byBackup ? intf.fastForward() : intf.forward() )
         out.insert( indexOf( mirror, intf.intfId() ) );
   if ( !route.wildCard() && route.oifRegister() )
      out.insert( indexOf( mirror, registerIntf() ) );
   out.erase( 0 );
   return out;
}

// Names between blanks; cut off, it is no answer for any.
bool isBounded( const Mirror& mirror, IntfId intfId ) {
   Published::Setting found;
   if ( !isReady( mirror.agent->setting() ) ||
        mirror.agent->setting().find( Published::Text<32>( "boundaries" ),
                                      found ) != Brane::lookupFound )
      return false;
   const std::string all = ' ' + found.value.text() + ' ';
   constexpr size_t kFull = 223;
   return found.value.text().size() == kFull ||
          all.find( ' ' + std::string( intfId.name() ) + ' ' ) != std::string::npos;
}

}

std::optional<uint32_t> kernelTable( const Mirror& mirror ) {
   Published::Setting found;
   const Published::Text<32> name( Published::MfibStatus::tableSetting );
   if ( mirror.mfib->setting().find( name, found ) != Brane::lookupFound )
      return std::nullopt;
   return static_cast<uint32_t>(
      std::strtoul( found.value.text().c_str(), nullptr, 10 ) );
}

const Host::Entry* entryOf( const Mirror& mirror, const Host& host,
                            const Routing::Pim::RouteKey& key ) {
   const auto [first, last] = host.entries->equal_range( key );
   const auto found = std::find_if( first, last, [&]( const auto& each ) {
      return isOf( mirror, each.second );
   } );
   return found == last ? nullptr : &found->second;
}

std::vector<EntryDifference> entryDifferences( const Mirror& mirror,
                                               const Route& route,
                                               const Host::Entry& entry ) {
   const uint32_t backup = indexOf( mirror, route.iifFrr() );
   const bool byBackup = backup != 0 && backup == entry.incoming;
   const uint32_t incoming =
      byBackup ? backup : indexOf( mirror, route.incomingIntf() );
   if ( incoming == 0 ) return {};
   std::vector<EntryDifference> out;
   const auto add = [&]( EntryDifference::Kind kind, uint32_t index ) {
      const IntfId name = nameOf( mirror, index );
      const bool bounded =
         kind == EntryDifference::lacks &&
         ( isBounded( mirror, name ) ||
           isBounded( mirror, nameOf( mirror, entry.incoming ) ) );
      out.push_back( { kind, name, bounded } );
   };
   if ( entry.incoming != incoming ) add( EntryDifference::takes, entry.incoming );
   const auto is = outgoing( mirror, route, entry );
   const auto should = wanted( mirror, route, byBackup );
   for ( const uint32_t index : is )
      if ( should.count( index ) == 0 ) add( EntryDifference::sends, index );
   // Registers that the configuration bars go nowhere.
   const bool barred = is.empty() && nameOf( mirror, incoming ) == registerIntf();
   for ( const uint32_t index : should )
      if ( is.count( index ) == 0 && index != incoming && !barred )
         add( EntryDifference::lacks, index );
   std::sort( out.begin(), out.end(),
              []( const auto& a, const auto& b ) { return a.intfId < b.intfId; } );
   return out;
}

std::string entryText( const Mirror& mirror, const Route& route,
                       const Host::Entry& entry ) {
   std::set<IntfId> names;
   for ( const uint32_t index : outgoing( mirror, route, entry ) )
      names.insert( nameOf( mirror, index ) );
   std::string out;
   for ( const IntfId& name : names )
      out += ( out.empty() ? "" : ", " ) + std::string( name.name() );
   return fmt::format( "in {}, out {}",
                       entry.incoming == 0
                          ? "an interface that has gone"
                          : std::string( nameOf( mirror, entry.incoming ).name() ),
                       out.empty() ? "to nobody" : out );
}

}
