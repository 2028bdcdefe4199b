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
                                  std::function<void()> changed )
   : clock_( clock ),
     times_( times ),
     changed_( std::move( changed ) ),
     group_( clock, [this] { handleGroupExpired(); } ),
     version1_( clock, [] {} ),
     version2_( clock, [] {} ) {}

// While an older host is present, newer hosts' messages are read as that version
// would (RFC 3376, 7.3.2).
void GroupMembership::receive( const MembershipRecord& record, uint8_t version ) {
   if ( version < 3 && record.type == isExclude )
      ( version == 1 ? version1_ : version2_ ).start( times_.membership() );
   const bool old = version1_.running() || version2_.running();
   switch ( record.type ) {
      case isInclude:
      case allow:
         return include( record.sources );
      case isExclude:
         return exclude( record.sources, false );
      case toExclude:
         return exclude( old ? Sources() : record.sources, true );
      case toInclude:
         if ( version1_.running() ) return;
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

void GroupMembership::adoptExclude() {
   exclude_ = true;
   group_.start( times_.membership() );
}

void GroupMembership::adoptSource( const IpGenAddr& source, bool requested ) {
   if ( requested ) return request( source, times_.membership() );
   adoptExclude();
   sources_[source] = nullptr;
}

std::map<IpGenAddr, bool> GroupMembership::sources() const {
   std::map<IpGenAddr, bool> out;
   for ( const auto& [source, timer] : sources_ ) out[source] = timer != nullptr;
   return out;
}

bool GroupMembership::running( const IpGenAddr& source ) const {
   auto found = sources_.find( source );
   return found != sources_.end() && found->second != nullptr;
}

bool GroupMembership::excluded( const IpGenAddr& source ) const {
   auto found = sources_.find( source );
   return found != sources_.end() && found->second == nullptr;
}

void GroupMembership::request( const IpGenAddr& source, double time ) {
   std::unique_ptr<Timer>& timer = sources_[source];
   if ( timer == nullptr ) {
      timer = std::make_unique<Timer>( clock_, [this] { handleSourceExpired(); } );
   }
   timer->start( time );
}

void GroupMembership::lower( const IpGenAddr& source, double time ) {
   if ( running( source ) ) sources_[source]->lower( time );
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
         sources_[source] = nullptr;
      } else {
         request( source, query ? group_.left() : times_.membership() );
      }
   }
   exclude_ = true;
   group_.start( times_.membership() );
   if ( !query ) return;
   for ( const IpGenAddr& source : sources ) lower( source, times_.lastMember() );
}

void GroupMembership::blockSources( const Sources& sources ) {
   for ( const IpGenAddr& source : sources ) {
      if ( exclude_ && sources_.count( source ) == 0 )
         request( source, group_.left() );
      lower( source, times_.lastMember() );
   }
}

void GroupMembership::queryAllBut( const Sources& sources ) {
   for ( const auto& [source, timer] : sources_ ) {
      if ( timer != nullptr && !contains( sources, source ) )
         timer->lower( times_.lastMember() );
   }
   if ( exclude_ ) group_.lower( times_.lastMember() );
}

void GroupMembership::keepOnly( const Sources& sources ) {
   for ( auto each = sources_.begin(); each != sources_.end(); ) {
      each = contains( sources, each->first ) ? std::next( each )
                                              : sources_.erase( each );
   }
}

// All that expire now go at once: each change is looked at as a whole.
void GroupMembership::handleSourceExpired() {
   const double now = clock_.now();
   for ( auto each = sources_.begin(); each != sources_.end(); ) {
      const Timer* timer = each->second.get();
      if ( timer == nullptr || ( timer->running() && timer->until() > now ) ) {
         ++each;
      } else if ( exclude_ ) {
         ( each++ )->second = nullptr;
      } else {
         each = sources_.erase( each );
      }
   }
   auto changed = changed_;
   changed();
}

// RFC 3376, 6.5: requested sources stay; excluded ones go with the mode.
void GroupMembership::handleGroupExpired() {
   exclude_ = false;
   for ( auto each = sources_.begin(); each != sources_.end(); )
      each = each->second == nullptr ? sources_.erase( each ) : std::next( each );
   auto changed = changed_;
   changed();
}

}
