#include "engine/GroupMembership.h"

#include <algorithm>

namespace Router {

using Vantu::IpGenAddr;

namespace {

bool contains( const std::vector<IpGenAddr>& sources, const IpGenAddr& source ) {
   return std::find( sources.begin(), sources.end(), source ) != sources.end();
}

}

GroupMembership::GroupMembership( Mox::Clock& clock, const MembershipTimes& times,
                                  Hooks hooks )
   : clock_( clock ),
     times_( times ),
     hooks_( std::move( hooks ) ),
     group_( clock, [this] { handleGroupExpired(); } ),
     sourcesDue_( clock, [this] { handleSourcesDue(); } ) {}

// While an older host is present, newer hosts' messages are read as that version
// would (RFC 3376, 7.3.2).
void GroupMembership::receive( const MembershipRecord& record, uint8_t version ) {
   const double now = clock_.now();
   if ( version < 3 && record.type == isExclude )
      ( version == 1 ? version1Until_ : version2Until_ ) =
         now + times_.membership();
   const bool oldest = oldestVersion() == 1;
   const bool old = oldestVersion() < 3;
   switch ( record.type ) {
      case isInclude:
      case allow:
         return include( record.sources );
      case isExclude:
         return exclude( record.sources, false );
      case toExclude:
         return exclude( old ? Sources() : record.sources, true );
      case toInclude:
         if ( oldest ) return;
         include( record.sources );
         return queryAllBut( record.sources );
      case block:
         if ( !old ) blockSources( record.sources );
         return;
   }
}

void GroupMembership::handleQuery( const Sources& sources, double time ) {
   for ( const IpGenAddr& source : sources ) lower( source, time );
   if ( sources.empty() && exclude_ ) group_.lower( time );
}

void GroupMembership::adoptExclude( double until ) {
   exclude_ = true;
   if ( until == 0.0 ) return group_.start( times_.membership() );
   group_.resume( until );
}

void GroupMembership::adoptSource( const IpGenAddr& source, bool requested,
                                   double until ) {
   if ( requested ) {
      const double now = clock_.now();
      return request( source, until == 0.0 ? times_.membership()
                                           : Timer::resumed( now, until ) - now );
   }
   if ( !exclude_ ) adoptExclude( 0.0 );
   sources_[source] = std::nullopt;
}

void GroupMembership::adoptVersion( uint8_t version ) {
   const double until = clock_.now() + times_.membership();
   if ( version == 1 ) version1Until_ = until;
   if ( version == 2 ) version2Until_ = until;
}

uint8_t GroupMembership::oldestVersion() const {
   const double now = clock_.now();
   if ( version1Until_ > now ) return 1;
   return version2Until_ > now ? 2 : 3;
}

std::map<IpGenAddr, bool> GroupMembership::sources() const {
   std::map<IpGenAddr, bool> out;
   for ( const auto& [source, until] : sources_ ) out[source] = until.has_value();
   return out;
}

void GroupMembership::request( const IpGenAddr& source, double time ) {
   const double until = clock_.now() + time;
   sources_[source] = until;
   wakeBy( until );
}

void GroupMembership::lower( const IpGenAddr& source, double time ) {
   auto found = sources_.find( source );
   const double until = clock_.now() + time;
   if ( found == sources_.end() || !found->second || *found->second <= until )
      return;
   found->second = until;
   wakeBy( until );
}

// A refresh does not move the wake-up, which then finds nothing due.
void GroupMembership::wakeBy( double time ) {
   if ( !sourcesDue_.running() || sourcesDue_.until() > time )
      sourcesDue_.startUntil( time );
}

void GroupMembership::include( const Sources& sources ) {
   for ( const IpGenAddr& source : sources ) request( source, times_.membership() );
}

// In INCLUDE mode the requested sources that the record names stay requested, and
// new ones are excluded at once. In EXCLUDE mode the excluded sources that it names
// stay excluded, and new ones stay requested for a while: other hosts may want
// them.
void GroupMembership::exclude( const Sources& sources, bool query ) {
   keepOnly( sources );
   for ( const IpGenAddr& source : sources ) {
      if ( sources_.count( source ) != 0 ) continue;
      if ( !exclude_ ) {
         sources_[source] = std::nullopt;
      } else {
         request( source, query ? group_.left() : times_.membership() );
      }
   }
   exclude_ = true;
   group_.start( times_.membership() );
   if ( query ) this->query( sources );
}

void GroupMembership::blockSources( const Sources& sources ) {
   for ( const IpGenAddr& source : sources ) {
      if ( exclude_ && sources_.count( source ) == 0 )
         request( source, group_.left() );
   }
   query( sources );
}

void GroupMembership::queryAllBut( const Sources& sources ) {
   Sources others;
   for ( const auto& [source, until] : sources_ )
      if ( !contains( sources, source ) ) others.push_back( source );
   query( others );
   if ( !exclude_ || ( hooks_.lowers && !hooks_.lowers() ) ) return;
   group_.lower( times_.lastMember() );
   hooks_.ask( {} );
}

// Does anybody still want these?
void GroupMembership::query( const Sources& sources ) {
   if ( hooks_.lowers && !hooks_.lowers() ) return;
   Sources requested;
   for ( const IpGenAddr& source : sources ) {
      auto found = sources_.find( source );
      if ( found == sources_.end() || !found->second ) continue;
      requested.push_back( source );
      lower( source, times_.lastMember() );
   }
   if ( !requested.empty() ) hooks_.ask( requested );
}

double GroupMembership::left( const IpGenAddr& source ) const {
   auto found = sources_.find( source );
   if ( found == sources_.end() || !found->second ) return 0.0;
   return *found->second - clock_.now();
}

void GroupMembership::keepOnly( const Sources& sources ) {
   for ( auto each = sources_.begin(); each != sources_.end(); ) {
      each = contains( sources, each->first ) ? std::next( each )
                                              : sources_.erase( each );
   }
}

// All that expire now go at once: each change is looked at as a whole.
void GroupMembership::handleSourcesDue() {
   const double now = clock_.now();
   bool any = false;
   for ( auto each = sources_.begin(); each != sources_.end(); ) {
      std::optional<double>& until = each->second;
      const bool due = until && *until <= now;
      any |= due;
      if ( until && !due ) wakeBy( *until );
      if ( due && exclude_ ) until.reset();
      each = due && !exclude_ ? sources_.erase( each ) : std::next( each );
   }
   if ( !any ) return;
   auto changed = hooks_.changed;
   changed();
}

// RFC 3376, 6.5: requested sources stay; excluded ones go with the mode.
void GroupMembership::handleGroupExpired() {
   exclude_ = false;
   for ( auto each = sources_.begin(); each != sources_.end(); )
      each = each->second ? std::next( each ) : sources_.erase( each );
   auto changed = hooks_.changed;
   changed();
}

}
