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

}

KernelEntries::KernelEntries( const Mirror& mirror, const Host::Entries& entries )
   : entries_( entries ) {
   mirror.mfib->vif().visit( [this]( const Published::MfibVif& vif ) {
      if ( vif.ifIndex == 0 ) return true;
      indexes_.emplace( vif.key, vif.ifIndex );
      names_.emplace( vif.ifIndex, vif.key );
      return true;
   } );
   if ( const auto table =
           mirror.mfibSetting( Published::MfibStatus::tableSetting ) )
      table_ = static_cast<uint32_t>( std::strtoul( table->c_str(), nullptr, 10 ) );
   Published::Setting found;
   if ( isReady( mirror.agent->setting() ) &&
        mirror.agent->setting().find( Published::Text<32>( "boundaries" ),
                                      found ) == Brane::lookupFound )
      boundaries_ = ' ' + found.value.text() + ' ';
}

uint32_t KernelEntries::indexOf( IntfId intfId ) const {
   const auto found = indexes_.find( intfId );
   return found == indexes_.end() ? 0 : found->second;
}

// Of one that the forwarding process does not know, the number.
IntfId KernelEntries::nameOf( uint32_t index ) const {
   if ( index == 0 ) return {};
   const auto found = names_.find( index );
   return found == names_.end() ? IntfId( fmt::format( "#{}", index ) )
                                : found->second;
}

// The register interface is in every VRF.
bool KernelEntries::isOurs( const Host::Entry& entry ) const {
   if ( table_ ) return entry.table == *table_;
   return names_.count( entry.incoming ) != 0 ||
          std::any_of(
             entry.outgoing.begin(), entry.outgoing.end(),
             [&]( uint32_t index ) { return names_.count( index ) != 0; } );
}

const Host::Entry* KernelEntries::find( const Routing::Pim::RouteKey& key ) const {
   const auto [first, last] = entries_.equal_range( key );
   const auto found = std::find_if(
      first, last, [&]( const auto& each ) { return isOurs( each.second ); } );
   return found == last ? nullptr : &found->second;
}

bool KernelEntries::mayHave( const Routing::Pim::RouteKey& key ) const {
   return find( key ) != nullptr || ( !table_ && entries_.count( key ) != 0 );
}

// Where the kernel sends to people: it finds a (*,G) entry only by an outgoing interface,
// so that the incoming one is among them; new sources are told of by the register one.
KernelEntries::Indexes KernelEntries::outgoing( const Route& route,
                                                const Host::Entry& entry ) const {
   Indexes out = entry.outgoing;
   if ( !route.wildCard() ) return out;
   out.erase( entry.incoming );
   out.erase( indexOf( registerIntf() ) );
   return out;
}

// The same as the table has it.
KernelEntries::Indexes KernelEntries::wanted( const Route& route,
                                              bool byBackup ) const {
   Indexes out;
   for ( const Intf& intf : route.routeIntf() )
      if ( byBackup ? intf.fastForward() : intf.forward() )
         out.insert( indexOf( intf.intfId() ) );
   if ( !route.wildCard() && route.oifRegister() )
      out.insert( indexOf( registerIntf() ) );
   out.erase( 0 );
   return out;
}

// Names that are cut off are no answer for any.
bool KernelEntries::isBounded( IntfId intfId ) const {
   constexpr size_t kFull = 225;
   if ( intfId.empty() ) return false;
   return boundaries_.size() == kFull ||
          boundaries_.find( ' ' + std::string( intfId.name() ) + ' ' ) !=
             std::string::npos;
}

std::vector<EntryDifference> KernelEntries::differences(
   const Route& route, const Host::Entry& entry ) const {
   const uint32_t backup = indexOf( route.iifFrr() );
   const bool byBackup = backup != 0 && backup == entry.incoming;
   const uint32_t incoming = byBackup ? backup : indexOf( route.incomingIntf() );
   if ( incoming == 0 ) return {};
   std::vector<EntryDifference> out;
   const auto add = [&]( EntryDifference::Kind kind, uint32_t index ) {
      const IntfId name = nameOf( index );
      const bool bounded =
         kind == EntryDifference::lacks &&
         ( isBounded( name ) || isBounded( nameOf( entry.incoming ) ) );
      out.push_back( { kind, name, bounded } );
   };
   if ( entry.incoming != incoming ) add( EntryDifference::takes, entry.incoming );
   const Indexes is = outgoing( route, entry );
   const Indexes should = wanted( route, byBackup );
   for ( const uint32_t index : is )
      if ( should.count( index ) == 0 ) add( EntryDifference::sends, index );
   // Registers that the configuration bars go nowhere.
   const bool barred = is.empty() && nameOf( incoming ) == registerIntf();
   for ( const uint32_t index : should )
      if ( is.count( index ) == 0 && index != incoming && !barred )
         add( EntryDifference::lacks, index );
   std::sort( out.begin(), out.end(),
              []( const auto& a, const auto& b ) { return a.intfId < b.intfId; } );
   return out;
}

std::string KernelEntries::text( const Route& route,
                                 const Host::Entry& entry ) const {
   std::set<IntfId> names;
   for ( const uint32_t index : outgoing( route, entry ) )
      names.insert( nameOf( index ) );
   std::string out;
   for ( const IntfId& name : names )
      out += ( out.empty() ? "" : ", " ) + std::string( name.name() );
   return fmt::format( "in {}, out {}",
                       entry.incoming == 0
                          ? "an interface that has gone"
                          : std::string( nameOf( entry.incoming ).name() ),
                       out.empty() ? "to nobody" : out );
}

}
