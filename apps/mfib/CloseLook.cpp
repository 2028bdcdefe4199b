#include "apps/mfib/CloseLook.h"

#include <algorithm>

namespace Forwarding {

CloseLook::CloseLook( const KernelTable& kernel, Mox::Clock& clock,
                      std::function<void( const RouteKey& )> renew,
                      std::function<void( const StandingEntry& )> flows )
   : Notifiee( &clock ),
     kernel_( kernel ),
     renew_( std::move( renew ) ),
     flows_( std::move( flows ) ) {}

void CloseLook::made( const RouteKey& key ) {
   if ( young_.size() >= maxEntries ) return;
   const auto counters = kernel_.counters( key );
   if ( !counters ) return;
   const double now = clock()->now();
   young_[key] = { now + readTime, counters->expected() };
   wakeupTimeIs( std::min( wakeupTime(), now + readInterval ) );
}

void CloseLook::doubled( const RouteKey& key ) {
   if ( doubled_.size() >= maxEntries && doubled_.count( key ) == 0 ) return;
   const Doubled first{ Mox::Clock::never, firstWait };
   Doubled& what = doubled_.try_emplace( key, first ).first->second;
   if ( what.due != Mox::Clock::never || what.wait > lastWait ) return;
   what.due = clock()->now() + what.wait;
   what.wait *= 2;
   wakeupTimeIs( std::min( wakeupTime(), what.due ) );
}

void CloseLook::forget( const RouteKey& key ) {
   young_.erase( key );
   doubled_.erase( key );
}

void CloseLook::onTime() {
   const double now = clock()->now();
   const double next = readYoung( now );
   wakeupTimeIs( std::min( next, renewDoubled( now ) ) );
}

double CloseLook::readYoung( double now ) {
   std::erase_if( young_, [&]( const auto& entry ) {
      const auto counters = kernel_.counters( entry.first );
      if ( !counters || now >= entry.second.until ) return true;
      if ( counters->expected() == entry.second.packets ) return false;
      flows_( *counters );
      return true;
   } );
   return young_.empty() ? Mox::Clock::never : now + readInterval;
}

double CloseLook::renewDoubled( double now ) {
   double next = Mox::Clock::never;
   for ( auto& [key, what] : doubled_ ) {
      if ( what.due <= now ) {
         what.due = Mox::Clock::never;
         renew_( key );
      }
      next = std::min( next, what.due );
   }
   return next;
}

}
