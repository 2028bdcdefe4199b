#include "engine/Neighbors.h"

#include <algorithm>

namespace Router {
namespace {

constexpr uint16_t kForever = 0xffff;

double holdtimeOf( const PimHello& hello ) {
   if ( !hello.holdtime ) return Neighbors::defaultHoldtime;
   return *hello.holdtime == kForever ? Timer::never : *hello.holdtime;
}

}

Neighbors::Neighbors( Mox::Clock& clock, const Vantu::IpGenAddr& own,
                      uint32_t drPriority, NeighborsObserver observer )
   : clock_( clock ),
     own_( own ),
     drPriority_( drPriority ),
     observer_( std::move( observer ) ) {}

void Neighbors::ownIs( const Vantu::IpGenAddr& own, uint32_t drPriority ) {
   own_ = own;
   drPriority_ = drPriority;
   observer_.changed();
}

bool Neighbors::receiveHello( const Vantu::IpGenAddr& from,
                              const PimHello& hello ) {
   double holdtime = holdtimeOf( hello );
   if ( holdtime == 0.0 ) {
      forget( from );
      return true;
   }
   if ( size() >= maxNeighbors && !has( from ) ) return false;
   Neighbor& neighbor = neighbors_[from];
   bool restarted = neighbor.expiry != nullptr &&
                    neighbor.hello.generationId != hello.generationId;
   neighbor.hello = hello;
   if ( neighbor.expiry == nullptr ) {
      neighbor.expiry =
         std::make_unique<Timer>( clock_, [this, from] { forget( from ); } );
   }
   neighbor.expiry->start( holdtime );
   if ( restarted ) observer_.lost( from );
   observer_.changed();
   return true;
}

void Neighbors::adopt( const Vantu::IpGenAddr& from, const PimHello& hello,
                       std::optional<double> until ) {
   if ( !receiveHello( from, hello ) || !until || !has( from ) ) return;
   const double now = clock_.now();
   const double nextHello = now + holdtimeOf( hello ) / hellosInHoldtime;
   neighbors_[from].expiry->resume( *until > now ? std::max( *until, nextHello )
                                                 : *until );
}

void Neighbors::forget( const Vantu::IpGenAddr& address ) {
   if ( neighbors_.erase( address ) == 0 ) return;
   observer_.lost( address );
   observer_.changed();
}

bool Neighbors::has( const Vantu::IpGenAddr& address ) const {
   return neighbors_.count( address ) != 0;
}

bool Neighbors::iAmDr() const {
   bool byPriority =
      std::all_of( neighbors_.begin(), neighbors_.end(), []( const auto& entry ) {
         return entry.second.hello.drPriority.has_value();
      } );
   return std::all_of(
      neighbors_.begin(), neighbors_.end(), [&]( const auto& entry ) {
         if ( byPriority && *entry.second.hello.drPriority != drPriority_ ) {
            return *entry.second.hello.drPriority < drPriority_;
         }
         return entry.first < own_;
      } );
}

bool Neighbors::everyNeighborDelays() const {
   return std::all_of( neighbors_.begin(), neighbors_.end(),
                       []( const auto& entry ) {
                          return entry.second.hello.lanPruneDelay.has_value();
                       } );
}

double Neighbors::overrideInterval() const {
   double propagation = propagationDelay;
   double override = overrideIntervalOwn;
   if ( everyNeighborDelays() ) {
      for ( const auto& [address, neighbor] : neighbors_ ) {
         const LanPruneDelay& delay = *neighbor.hello.lanPruneDelay;
         propagation = std::max( propagation, delay.propagationDelay / 1000.0 );
         override = std::max( override, delay.overrideInterval / 1000.0 );
      }
   }
   return propagation + override;
}

}
