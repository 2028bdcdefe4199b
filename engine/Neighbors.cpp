#include "engine/Neighbors.h"

#include <algorithm>

namespace Router {

using Vantu::IpGenAddr;

namespace {

constexpr uint16_t kForever = 0xffff;

double holdtimeOf( const PimHello& hello ) {
   if ( !hello.holdtime ) return Neighbors::defaultHoldtime;
   return *hello.holdtime == kForever ? Timer::never : *hello.holdtime;
}

}

Neighbors::Neighbors( Mox::Clock& clock, const OwnHello& own,
                      NeighborsObserver observer )
   : clock_( clock ), own_( own ), observer_( std::move( observer ) ) {}

void Neighbors::ownIs( const OwnHello& own ) {
   own_ = own;
   observer_.changed();
}

bool Neighbors::receiveHello( const Vantu::IpGenAddr& from,
                              const PimHello& hello ) {
   const double holdtime = holdtimeOf( hello );
   if ( holdtime == 0.0 ) {
      forget( from );
      return true;
   }
   if ( size() >= maxNeighbors && !has( from ) ) return false;
   Neighbor& neighbor = neighbors_[from];
   const bool isNew = neighbor.expiry == nullptr;
   const PimHello before = std::exchange( neighbor.hello, hello );
   if ( isNew ) {
      neighbor.expiry =
         std::make_unique<Timer>( clock_, [this, from] { forget( from ); } );
      neighbor.since = clock_.now();
   }
   neighbor.expiry->start( holdtime );
   if ( isNew ) {
      observer_.event( from, NeighborEvent::came );
   } else if ( before.generationId != hello.generationId ) {
      observer_.event( from, NeighborEvent::restarted );
   } else if ( before.addresses != hello.addresses ) {
      observer_.event( from, NeighborEvent::moved );
   }
   takeAddresses( from, hello.addresses );
   observer_.changed();
   return true;
}

// Of neighbours that tell the same address the last one has it (RFC 7761, 4.3.4): the
// same router may have come with another primary address, without a goodbye.
void Neighbors::takeAddresses( const IpGenAddr& by,
                               const std::vector<IpGenAddr>& addresses ) {
   std::vector<IpGenAddr> losers;
   for ( auto& [primary, neighbor] : neighbors_ ) {
      if ( primary == by ) continue;
      const size_t lost =
         std::erase_if( neighbor.hello.addresses, [&]( const IpGenAddr& each ) {
            return std::find( addresses.begin(), addresses.end(), each ) !=
                   addresses.end();
         } );
      if ( lost != 0 ) losers.push_back( primary );
   }
   for ( const IpGenAddr& loser : losers )
      observer_.event( loser, NeighborEvent::moved );
}

void Neighbors::adopt( const Vantu::IpGenAddr& from, const Kept& kept ) {
   const double holdtime = holdtimeOf( kept.hello );
   if ( holdtime == 0.0 || size() >= maxNeighbors ) return;
   Neighbor& neighbor = neighbors_[from];
   neighbor.hello = kept.hello;
   neighbor.since = kept.since;
   neighbor.expiry =
      std::make_unique<Timer>( clock_, [this, from] { forget( from ); } );
   neighbor.expiry->start( holdtime );
   if ( kept.until ) {
      const double now = clock_.now();
      const double nextHello = now + holdtime / hellosInHoldtime;
      neighbor.expiry->resume(
         *kept.until > now ? std::max( *kept.until, nextHello ) : *kept.until );
   }
   observer_.changed();
}

void Neighbors::forget( const Vantu::IpGenAddr& address ) {
   auto found = neighbors_.find( address );
   if ( found == neighbors_.end() ) return;
   const Vantu::IpGenAddr gone = found->first;
   neighbors_.erase( found );
   observer_.event( gone, NeighborEvent::gone );
   observer_.changed();
}

bool Neighbors::has( const Vantu::IpGenAddr& address ) const {
   return neighbors_.count( address ) != 0;
}

Vantu::IpGenAddr Neighbors::primaryOf( const Vantu::IpGenAddr& address ) const {
   if ( has( address ) ) return address;
   for ( const auto& [primary, neighbor] : neighbors_ ) {
      const auto& list = neighbor.hello.addresses;
      if ( std::find( list.begin(), list.end(), address ) != list.end() )
         return primary;
   }
   return Vantu::IpGenAddr::unspecified( address.family() );
}

Vantu::IpGenAddr Neighbors::dr() const {
   const bool byPriority =
      std::all_of( neighbors_.begin(), neighbors_.end(), []( const auto& entry ) {
         return entry.second.hello.drPriority.has_value();
      } );
   using Rank = std::pair<uint32_t, Vantu::IpGenAddr>;
   Rank best{ byPriority ? own_.drPriority : 0, own_.address };
   for ( const auto& [address, neighbor] : neighbors_ ) {
      best = std::max(
         best, Rank{ byPriority ? *neighbor.hello.drPriority : 0, address } );
   }
   return best.second;
}

uint16_t Neighbors::slowest( uint16_t LanPruneDelay::*time, uint16_t own,
                             uint16_t otherwise ) const {
   for ( const auto& [address, neighbor] : neighbors_ ) {
      if ( !neighbor.hello.lanPruneDelay ) return otherwise;
      own = std::max( own, ( *neighbor.hello.lanPruneDelay ).*time );
   }
   return own;
}

double Neighbors::overrideInterval() const {
   return slowest( &LanPruneDelay::overrideInterval, own_.overrideInterval,
                   OwnHello().overrideInterval ) /
          1000.0;
}

double Neighbors::joinPruneOverrideInterval() const {
   const double propagation =
      slowest( &LanPruneDelay::propagationDelay, own_.propagationDelay,
               OwnHello().propagationDelay ) /
      1000.0;
   return propagation + overrideInterval();
}

// It ends only where all routers of the link can track each other's joins.
bool Neighbors::joinSuppression() const {
   if ( own_.joinSuppression ) return true;
   return !std::all_of( neighbors_.begin(), neighbors_.end(),
                        []( const auto& entry ) {
                           const auto& delay = entry.second.hello.lanPruneDelay;
                           return delay && delay->trackingSupport;
                        } );
}

}
