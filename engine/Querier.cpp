#include "engine/Querier.h"

#include <algorithm>

namespace Router {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

namespace {

const IpGenAddr& allSystems( AddressFamily family ) {
   static const IpGenAddr v4( "224.0.0.1" );
   static const IpGenAddr v6( "ff02::1" );
   return family == AddressFamily::ipv4 ? v4 : v6;
}

// The sources that have room in one query of that many bytes: behind the IP header
// with its router alert, and the query's own fields.
size_t sourcesOf( AddressFamily family, uint32_t mtu ) {
   const bool ipv4 = family == AddressFamily::ipv4;
   const size_t fixed = ipv4 ? 24 + 12 : 40 + 8 + 28;
   return ( std::max<size_t>( mtu, ipv4 ? 576 : 1280 ) - fixed ) /
          ( ipv4 ? 4 : 16 );
}

constexpr double kStartupsInInterval = 4;

}

Querier::Querier( Mox::Clock& clock, Sender& sender, Journal& journal,
                  Vantu::IntfId intfId )
   : clock_( clock ),
     sender_( sender ),
     journal_( journal ),
     intfId_( intfId ),
     next_( clock, [this] { handleQueryDue(); } ),
     other_( clock, [this] { handleOtherGone(); } ) {}

Querier::Kept Querier::kept() const {
   if ( !begun_ ) return {};
   return { asks() ? own_ : querier_, other_.until(), next_.until(), startupLeft_ };
}

void Querier::configIs( const MembershipConfig& config, const IpGenAddr& own,
                        uint32_t mtu ) {
   const bool same = begun_ && config == config_;
   config_ = config;
   own_ = own;
   mtu_ = mtu;
   if ( same ) return;
   if ( asks() ) useOwnTimes();
   if ( !speaks() || std::exchange( begun_, true ) ) return;
   if ( !adopted_ ) {
      startupLeft_ = config_.robustness;
      return handleQueryDue();
   }
   startupLeft_ = adopted_->startupLeft;
   if ( adopted_->otherUntil != 0.0 ) {
      querier_ = adopted_->querier;
      other_.resume( adopted_->otherUntil );
   } else {
      next_.startUntil( std::max( adopted_->nextQuery, clock_.now() ) );
   }
}

void Querier::useOwnTimes() {
   times_.robustness = config_.robustness;
   times_.queryInterval = config_.queryInterval;
   times_.queryResponse = config_.queryResponse;
   times_.lastMemberQuery = config_.lastMemberQuery;
   times_.lastMemberCount = config_.lastMemberCount;
   times_.immediateLeave = config_.immediateLeave;
}

// A query that could not leave is tried again: so hosts hear one when the link comes up.
void Querier::handleQueryDue() {
   MembershipQuery query;
   query.group = IpGenAddr::unspecified( own_.family() );
   query.maxResponse = times_.queryResponse;
   const uint32_t left = startupLeft_;
   if ( startupLeft_ > 0 ) --startupLeft_;
   next_.start( startupLeft_ > 0 ? times_.queryInterval / kStartupsInInterval
                                 : times_.queryInterval );
   if ( send( std::move( query ) ) ) return;
   startupLeft_ = left;
   next_.start( Sender::retry );
}

// Called while the former one is still known.
void Querier::tellQuerier( const IpGenAddr& querier ) {
   journal_.counters().elected( querierChanges );
   Published::Event event;
   event.kind = Published::querierChanged;
   event.intf = intfId_;
   event.address = querier;
   event.otherAddress = asks() && querier != own_ ? own_ : querier_;
   journal_.tell( event );
}

void Querier::handleOtherGone() {
   tellQuerier( own_ );
   useOwnTimes();
   handleQueryDue();
}

// The querier's times apply, or the defaults where it gives none (RFC 3376, 4.1.6 and
// 4.1.7; RFC 3810, 5.1.8 and 5.1.9). Older versions have no such fields.
bool Querier::receive( const IpGenAddr& from, const MembershipQuery& query ) {
   if ( speaks() && ( from.isUnspecified() || own_ < from ) ) return false;
   if ( query.version >= 3 ) {
      times_.robustness =
         query.robustness != 0 ? query.robustness : config_.robustness;
      times_.queryInterval =
         query.interval != 0.0 ? query.interval : config_.queryInterval;
   }
   const bool general = query.group.isUnspecified();
   if ( general && query.maxResponse != 0.0 )
      times_.queryResponse = query.maxResponse;
   if ( !speaks() ) return true;
   if ( asks() || querier_ != from ) tellQuerier( from );
   querier_ = from;
   startupLeft_ = 0;
   next_.cancel();
   other_.start( times_.otherQuerier() );
   return true;
}

void Querier::ask( const IpGenAddr& group, const std::vector<IpGenAddr>& sources,
                   bool suppress ) {
   if ( !speaks() ) return;
   MembershipQuery query;
   query.group = group;
   query.suppress = suppress;
   query.maxResponse = times_.lastMemberQuery;
   if ( sources.empty() ) {
      send( std::move( query ) );
      return;
   }
   const size_t most = sourcesOf( own_.family(), mtu_ );
   for ( size_t from = 0; from < sources.size(); from += most ) {
      const size_t to = std::min( from + most, sources.size() );
      query.sources.assign( sources.begin() + static_cast<ptrdiff_t>( from ),
                            sources.begin() + static_cast<ptrdiff_t>( to ) );
      send( query );
   }
}

bool Querier::send( MembershipQuery query ) {
   query.version = config_.version;
   query.robustness = config_.robustness;
   query.interval = times_.queryInterval;
   const IpGenAddr destination =
      query.group.isUnspecified() ? allSystems( own_.family() ) : query.group;
   return sender_.send(
      { intfId_, own_, destination, MembershipMessage( std::move( query ) ) } );
}

}
