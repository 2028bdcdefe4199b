#include "engine/SpecificQueries.h"

namespace Router {

using Vantu::IpGenAddr;

SpecificQueries::SpecificQueries( Mox::Clock& clock, Querier& querier,
                                  const GroupMembership& group,
                                  const IpGenAddr& address )
   : querier_( querier ),
     group_( group ),
     address_( address ),
     next_( clock, [this] { repeat(); } ) {}

void SpecificQueries::ask( const std::vector<IpGenAddr>& sources ) {
   const MembershipTimes& times = querier_.times();
   if ( times.immediateLeave ) return;
   const auto more = static_cast<uint32_t>( times.queries() ) - 1;
   if ( sources.empty() ) groupLeft_ = more;
   for ( const IpGenAddr& source : sources ) sourcesLeft_[source] = more;
   if ( more > 0 && !next_.running() ) next_.start( times.lastMemberQuery );
   send( sources );
}

void SpecificQueries::repeat() {
   if ( !querier_.asks() ) {
      groupLeft_ = 0;
      return sourcesLeft_.clear();
   }
   std::vector<IpGenAddr> sources;
   for ( auto each = sourcesLeft_.begin(); each != sourcesLeft_.end(); ) {
      sources.push_back( each->first );
      each = --each->second == 0 ? sourcesLeft_.erase( each ) : std::next( each );
   }
   if ( groupLeft_ > 0 ) {
      --groupLeft_;
      send( {} );
   }
   if ( !sources.empty() ) send( sources );
   if ( groupLeft_ > 0 || !sourcesLeft_.empty() )
      next_.start( querier_.times().lastMemberQuery );
}

// Routers keep the timers of those that were reported meanwhile.
void SpecificQueries::send( const std::vector<IpGenAddr>& sources ) {
   const double lowered = querier_.times().lastMember();
   if ( sources.empty() )
      return querier_.ask( address_, {}, group_.left() > lowered );
   std::vector<IpGenAddr> lower, kept;
   for ( const IpGenAddr& source : sources )
      ( group_.left( source ) > lowered ? kept : lower ).push_back( source );
   if ( !lower.empty() ) querier_.ask( address_, lower, false );
   if ( !kept.empty() ) querier_.ask( address_, kept, true );
}

}
