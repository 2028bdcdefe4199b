#include "apps/fleet/path/Fabric.h"

#include <algorithm>

#include "platform/pim/EmbeddedRp.h"

namespace Fleet {

namespace {

// Keeps those that pass, where any does.
template <class Test>
void prefer( std::vector<Place>& pool, const Test& test ) {
   if ( pool.size() < 2 || std::none_of( pool.begin(), pool.end(), test ) ) return;
   std::erase_if( pool, [&]( const Place& each ) { return !test( each ); } );
}

// The network of one host, as of an RP's address, is no link even where two have it.
bool isLink( const IpGenPrefix& network ) {
   return network.length() < Vantu::addressBits( network.family() );
}

void sortOnce( std::vector<Place>& places ) {
   std::sort( places.begin(), places.end() );
   places.erase( std::unique( places.begin(), places.end() ), places.end() );
}

}

std::optional<uint32_t> RouterFacts::interface( const std::string& wanted ) const {
   for ( uint32_t i = 0; i < links.interfaces.size(); ++i )
      if ( links.interfaces[i].name == wanted ) return i;
   return std::nullopt;
}

const RpRange* RouterFacts::range( const IpGenAddr& group ) const {
   const RpRange* found = nullptr;
   for ( const RpRange& each : rps ) {
      if ( !each.groups.contains( group ) ) continue;
      if ( found == nullptr || each.groups.length() > found->groups.length() )
         found = &each;
   }
   return found;
}

IpGenAddr RouterFacts::rp( const IpGenAddr& group ) const {
   const RpRange* found = range( group );
   if ( found == nullptr || found->rule == RpRange::sourceSpecific )
      return IpGenAddr::unspecified( group.family() );
   if ( found->rule == RpRange::embedded )
      return Routing::Pim::embeddedRp( group ).value_or( found->rp );
   return found->rp;
}

bool RouterFacts::ownsRp( const IpGenAddr& rp ) const {
   if ( rp.isUnspecified() ) return false;
   const auto here = [&]( const Interface& each ) { return each.has( rp ); };
   const auto said = [&]( const RpRange& each ) {
      return each.own && each.rp == rp;
   };
   return std::any_of( links.interfaces.begin(), links.interfaces.end(), here ) ||
          std::any_of( rps.begin(), rps.end(), said );
}

Fabric::Fabric( std::vector<RouterFacts> routers )
   : routers_( std::move( routers ) ), neighbors_( routers_.size() ) {
   for ( uint32_t router = 0; router < routers_.size(); ++router ) {
      const Links& links = routers_[router].links;
      for ( uint32_t i = 0; i < links.interfaces.size(); ++i )
         add( { router, i }, links.interfaces[i] );
      for ( const Neighbor& each : links.neighbors ) {
         neighbors_[router].emplace( each.address, &each );
         for ( const IpGenAddr& other : each.secondary )
            neighbors_[router].emplace( other, &each );
      }
   }
}

void Fabric::add( const Place& place, const Interface& interface ) {
   const auto known = [&]( const IpGenAddr& address ) {
      if ( !address.isUnspecified() ) byAddress_[address].push_back( place );
   };
   known( interface.address );
   for ( const IpGenAddr& each : interface.secondary ) known( each );
   if ( interface.genId ) byGenId_[*interface.genId].push_back( place );
   for ( const IpGenPrefix& each : interface.networks ) {
      byNetwork_[each].push_back( place );
      lengths_.insert( each.length() );
   }
}

std::optional<uint32_t> Fabric::find( const std::string& router ) const {
   for ( uint32_t i = 0; i < routers_.size(); ++i )
      if ( routers_[i].name == router ) return i;
   return std::nullopt;
}

std::optional<Place> Fabric::place( uint32_t router,
                                    const std::string& interface ) const {
   const auto found = routers_[router].interface( interface );
   if ( !found ) return std::nullopt;
   return Place{ router, *found };
}

const Neighbor* Fabric::neighbor( const Place& at,
                                  const IpGenAddr& address ) const {
   const std::string& here = interface( at ).name;
   const auto [from, to] = neighbors_[at.router].equal_range( address );
   for ( auto each = from; each != to; ++each )
      if ( each->second->interface == here ) return each->second;
   return nullptr;
}

bool Fabric::names( const Place& at, const Place& other ) const {
   const Interface& is = interface( other );
   if ( neighbor( at, is.address ) != nullptr ) return true;
   return std::any_of(
      is.secondary.begin(), is.secondary.end(),
      [&]( const IpGenAddr& each ) { return neighbor( at, each ) != nullptr; } );
}

bool Fabric::shareNetwork( const Place& a, const Place& b ) const {
   const auto& ours = interface( a ).networks;
   const auto& theirs = interface( b ).networks;
   return std::any_of( ours.begin(), ours.end(), [&]( const IpGenPrefix& each ) {
      return isLink( each ) &&
             std::find( theirs.begin(), theirs.end(), each ) != theirs.end();
   } );
}

bool Fabric::believable( const Place& at, const Place& other,
                         const Neighbor* told ) const {
   const auto& own = interface( other ).genId;
   const bool known = told != nullptr && told->genId && own;
   if ( known && *told->genId == *own ) return true;
   if ( shareNetwork( at, other ) ) return true;
   // A recorder that died may have an older one.
   if ( known && router( other ).lives ) return false;
   return names( other, at );
}

// By the best sign that anybody shows.
std::vector<Place> Fabric::candidates( const Place& at,
                                       const IpGenAddr& address ) const {
   std::vector<Place> pool;
   const Neighbor* told = neighbor( at, address );
   // In IPv6 an interface that is down has lost its link-local address.
   const auto is = [&]( const Interface& other ) {
      return other.has( address ) ||
             ( told != nullptr && other.isDown() &&
               std::any_of(
                  told->secondary.begin(), told->secondary.end(),
                  [&]( const auto& each ) { return other.has( each ); } ) );
   };
   const auto take = [&]( const auto& index, const auto& key ) {
      const auto found = index.find( key );
      if ( found == index.end() ) return;
      for ( const Place& each : found->second )
         if ( each.router != at.router && is( interface( each ) ) )
            pool.push_back( each );
   };
   if ( told != nullptr && told->genId ) take( byGenId_, *told->genId );
   if ( pool.empty() )
      for ( const IpGenPrefix& each : interface( at ).networks )
         if ( isLink( each ) ) take( byNetwork_, each );
   if ( !pool.empty() ) return pool;
   take( byAddress_, address );
   // So many cannot be told apart, nor looked at one by one.
   constexpr size_t kMany = 1000;
   if ( address.isLinkLocal() && pool.size() < kMany )
      std::erase_if(
         pool, [&]( const Place& each ) { return !believable( at, each, told ); } );
   return pool;
}

Owner Fabric::owner( const Place& at, const IpGenAddr& address ) const {
   std::vector<Place> pool = candidates( at, address );
   sortOnce( pool );
   prefer( pool, [&]( const Place& each ) { return shareNetwork( at, each ); } );
   prefer( pool, [&]( const Place& each ) { return names( each, at ); } );
   if ( pool.size() == 1 ) return { pool.front(), {} };
   constexpr size_t kTold = 8;
   if ( pool.size() > kTold ) pool.resize( kTold );
   return { std::nullopt, std::move( pool ) };
}

std::vector<Place> Fabric::link( const Place& place ) const {
   std::vector<Place> all{ place };
   const Interface& is = interface( place );
   for ( const Neighbor& each : router( place ).links.neighbors ) {
      if ( each.interface != is.name ) continue;
      if ( const auto found = owner( place, each.address ).place )
         all.push_back( *found );
   }
   // Also those that nobody there hears, but not those of another site.
   for ( const IpGenPrefix& each : is.networks ) {
      const auto& same = byNetwork_.at( each );
      if ( isLink( each ) && !clash( same ) )
         all.insert( all.end(), same.begin(), same.end() );
   }
   sortOnce( all );
   return all;
}

std::vector<Place> Fabric::attached( const IpGenAddr& host ) const {
   for ( const unsigned length : lengths_ ) {
      if ( length > Vantu::addressBits( host.family() ) ) continue;
      const auto found = byNetwork_.find( IpGenPrefix( host, length ) );
      if ( found == byNetwork_.end() ) continue;
      std::vector<Place> places = found->second;
      sortOnce( places );
      return places;
   }
   return {};
}

bool Fabric::clash( const std::vector<Place>& places ) const {
   std::set<IpGenAddr> seen;
   return std::any_of( places.begin(), places.end(), [&]( const Place& each ) {
      const Interface& is = interface( each );
      // In IPv6 what differs on one link is the link-local address.
      return !is.address.isUnspecified() && !seen.insert( is.address ).second;
   } );
}

std::vector<uint32_t> Fabric::ownersOfRp( const IpGenAddr& rp ) const {
   std::vector<uint32_t> owners;
   for ( uint32_t i = 0; i < routers_.size(); ++i )
      if ( routers_[i].ownsRp( rp ) ) owners.push_back( i );
   return owners;
}

}
