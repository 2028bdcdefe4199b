#include "engine/RegisterReceiver.h"

#include <algorithm>
#include <limits>

namespace Router {

RegisterReceiver::RegisterReceiver( Routes& routes, SourceEngine& sources,
                                    const AccessFilters& filters,
                                    const VrfConfig& config, Sender& sender,
                                    Mox::Clock& clock )
   : routes_( routes ),
     sources_( sources ),
     filters_( filters ),
     config_( config ),
     sender_( sender ),
     clock_( clock ) {}

// A source without listeners is not asked for, but known: with the first listener this
// router joins it.
void RegisterReceiver::receive( const IpPacket& packet,
                                const PimRegister& message ) {
   const RouteKey key{ message.source, message.group };
   if ( message.nullRegister ) passOn( packet, message );
   const bool switches =
      comesByNothingElse( packet, message ) ||
      filters_.sptThreshold( key.group ) < std::numeric_limits<double>::infinity();
   // The shorter one first: a timer is never brought forward.
   const double period = config_.keepalivePeriod;
   const double stopped = config_.rpKeepalivePeriod();
   if ( switches && !sources_.keepAlive( key, std::min( period, stopped ) ) )
      return;
   const Mox::Ptr<Routes::Route> route = routes_.find( key );
   const bool native = isNative( key );
   const bool unwanted =
      switches && route != nullptr && route->nullInheritedOlistSg();
   if ( native || unwanted ) refuse( packet, message );
   if ( switches ) sources_.keepAlive( key, native || unwanted ? stopped : period );
}

// A peer tells so of the sources on its own links, whose packets it never registers.
bool RegisterReceiver::comesByNothingElse( const IpPacket& packet,
                                           const PimRegister& message ) const {
   const auto& sets = config_.anycastRps;
   return message.nullRegister &&
          std::any_of( sets.begin(), sets.end(), [&]( const auto& set ) {
             return set.has( packet.source ) &&
                    ( packet.destination == set.local ||
                      packet.destination == set.address );
          } );
}

// What a peer has passed on goes no further.
void RegisterReceiver::passOn( const IpPacket& packet,
                               const PimRegister& message ) {
   const AnycastRpConfig* set = anycastRp( config_, packet.destination );
   if ( set == nullptr || set->has( packet.source ) ) return;
   PimRegister copy = message;
   copy.border = false;
   for ( const Vantu::IpGenAddr& peer : set->peers )
      sender_.send( { {}, set->local, peer, pimMessage( copy ) } );
}

// The kernel takes one of both streams: the registers must not end before it takes the
// other.
bool RegisterReceiver::isNative( const RouteKey& key ) {
   const Mox::Ptr<Routes::Route> route = routes_.find( key );
   if ( route == nullptr || !route->spTree() ) {
      native_.erase( key );
      return false;
   }
   const double now = clock_.now();
   if ( native_.size() > routes_.model().maxRoutes() ) native_.clear();
   return now >= native_.try_emplace( key, now ).first->second + overlap;
}

void RegisterReceiver::refuse( const IpPacket& packet,
                               const PimRegister& message ) {
   const double now = clock_.now();
   if ( now >= since_ + stopInterval ) {
      stopped_.clear();
      since_ = now;
   }
   const RouteKey key{ message.source, message.group };
   if ( stopped_.size() >= maxStops ||
        !stopped_.insert( { key, packet.source } ).second )
      return;
   PimRegisterStop stop{ .group = message.group, .source = message.source };
   sender_.send(
      { {}, packet.destination, packet.source, pimMessage( std::move( stop ) ) } );
}

}
