#include "engine/MembershipEngine.h"

#include <algorithm>

namespace Router {

using Vantu::IntfId;
using Vantu::IpGenAddr;

MembershipEngine::MembershipEngine( Routes& routes, Links& links, Sender& sender,
                                    Mox::Clock& clock, const GroupPolicy* policy,
                                    const AccessFilters& filters, Journal& journal )
   : routes_( routes ),
     links_( links ),
     sender_( sender ),
     clock_( clock ),
     policy_( policy ),
     filters_( filters ),
     journal_( journal ) {}

void MembershipEngine::updateLinks( const Kept& kept ) {
   for ( const auto& [intfId, link] : links_.all() ) {
      const bool isNew = hosts_.count( intfId ) == 0;
      Hosts& at = hosts( intfId );
      if ( isNew && kept ) {
         if ( const auto former = kept( intfId ) ) at.querier.adopt( *former );
      }
      const bool ipv4 = link.address().family() == Vantu::AddressFamily::ipv4;
      const MembershipConfig& config =
         ipv4 ? link.config().igmp : link.config().mld;
      at.groupLimit = config.groupLimit;
      at.querier.configIs( config, link.address(), link.config().mtu );
      if ( adopted_ ) fix( intfId, config.staticGroups );
   }
}

void MembershipEngine::fix( IntfId intfId,
                            const std::vector<StaticGroupConfig>& groups ) {
   std::map<IpGenAddr, Fixed> fixed;
   for ( const StaticGroupConfig& each : groups ) {
      if ( !each.source.isUnspecified() ) {
         fixed[each.group].sources.insert( each.source );
      } else if ( journal_.accepted( refusalOfShared( each.group ),
                                     { anySource( each.group ), each.group } ) ) {
         fixed[each.group].all = true;
      }
   }
   std::set<IpGenAddr> touched;
   Hosts& at = hosts( intfId );
   for ( const auto& [group, members] : at.fixed ) touched.insert( group );
   for ( const auto& [group, members] : fixed ) touched.insert( group );
   at.fixed = std::move( fixed );
   for ( const IpGenAddr& group : touched ) {
      membership( intfId, group );
      update( intfId, group );
   }
}

MembershipEngine::Hosts& MembershipEngine::hosts( IntfId intfId ) {
   return hosts_.try_emplace( intfId, clock_, sender_, journal_, intfId )
      .first->second;
}

const Querier* MembershipEngine::querier( IntfId intfId ) const {
   auto found = hosts_.find( intfId );
   return found == hosts_.end() ? nullptr : &found->second.querier;
}

std::optional<Refusal> MembershipEngine::refusalOfShared(
   const IpGenAddr& group ) const {
   if ( policy_ == nullptr ) return std::nullopt;
   return policy_->refusalOfShared( group );
}

void MembershipEngine::receive( const Link& link, const IpGenAddr& from,
                                const MembershipMessage& message ) {
   if ( const auto* report = std::get_if<MembershipReport>( &message ) )
      return receiveReport( link.intfId(), *report );
   receiveQuery( link.intfId(), from, std::get<MembershipQuery>( message ) );
}

void MembershipEngine::receiveReport( IntfId intfId,
                                      const MembershipReport& report ) {
   for ( MembershipRecord record : report.records ) {
      const bool leaves = record.type == block ||
                          ( record.type == toInclude && record.sources.empty() );
      const Journal::Ending ending( journal_, leaves );
      if ( !accept( intfId, record, report.version ) || !permit( intfId, record ) )
         continue;
      std::erase_if( record.sources, [&]( const IpGenAddr& source ) {
         return !journal_.accepted( refusalOfSource( source ),
                                    { source, record.group } );
      } );
      GroupMembership& machine = membership( intfId, record.group );
      limitSources( machine, record );
      machine.receive( record, report.version );
      const bool mayLeave = record.type == toInclude || record.type == toExclude ||
                            record.type == block;
      Group& state = hosts( intfId ).groups.at( record.group );
      state.leaving = record.type == toInclude || record.type == block;
      if ( mayLeave ) state.told = true;
      update( intfId, record.group );
      if ( hosts( intfId ).groups.count( record.group ) != 0 )
         tellTimes( intfId, record.group );
   }
}

// Only a limited number of the sources that hosts ask for get a route.
void MembershipEngine::limitSources( const GroupMembership& machine,
                                     MembershipRecord& record ) {
   size_t room = maxSources - std::min( machine.size(), maxSources );
   std::erase_if( record.sources, [&]( const IpGenAddr& source ) {
      if ( machine.has( source ) ) return false;
      if ( room == 0 ) journal_.refused( tooManySources, { source, record.group } );
      return room == 0 || room-- == 0;
   } );
}

// Older versions know no sources, not even to leave (RFC 4604).
bool MembershipEngine::accept( IntfId intfId, const MembershipRecord& record,
                               uint8_t version ) {
   bool allSources =
      version < 3 || record.type == isExclude || record.type == toExclude;
   const RouteKey shared{ anySource( record.group ), record.group };
   if ( !journal_.accepted( refusalOfGroup( record.group ), shared ) ) return false;
   const Hosts& at = hosts( intfId );
   if ( at.groups.size() >= at.groupLimit &&
        at.groups.count( record.group ) == 0 ) {
      journal_.refused( tooManyGroups, shared );
      return false;
   }
   return !allSources ||
          journal_.accepted( refusalOfShared( record.group ), shared );
}

bool MembershipEngine::permits( IntfId intfId, const RouteKey& key ) {
   const AccessFilters::OfLink& filters = filters_.of( intfId );
   std::optional<Refusal> refusal;
   if ( !filters.members.permits( key.source, key.group ) ) refusal = barredMember;
   if ( !filters.boundary.permits( key.source, key.group ) )
      refusal = beyondBoundary;
   return journal_.accepted( refusal, key );
}

// Leaves are taken of all groups. Of a record for some sources the others stay.
bool MembershipEngine::permit( IntfId intfId, MembershipRecord& record ) {
   const AccessFilters::OfLink& filters = filters_.of( intfId );
   const bool all = filters.members.all() && filters.boundary.all();
   if ( all || record.type == block ) return true;
   if ( record.type == isExclude || record.type == toExclude )
      return permits( intfId, { anySource( record.group ), record.group } );
   std::erase_if( record.sources, [&]( const IpGenAddr& source ) {
      return !permits( intfId, { source, record.group } );
   } );
   return record.type == toInclude || !record.sources.empty();
}

void MembershipEngine::receiveQuery( IntfId intfId, const IpGenAddr& from,
                                     const MembershipQuery& query ) {
   Hosts& at = hosts( intfId );
   if ( !at.querier.receive( from, query ) )
      return journal_.refused( notTheQuerier );
   auto found = at.groups.find( query.group );
   if ( query.suppress || found == at.groups.end() ) return;
   const MembershipTimes& times = at.querier.times();
   const double answer =
      query.maxResponse != 0.0 ? query.maxResponse : times.lastMemberQuery;
   found->second.membership->handleQuery( query.sources, times.queries() * answer );
   found->second.told = true;
   tellTimes( intfId, query.group );
}

void MembershipEngine::ask( IntfId intfId, const IpGenAddr& group,
                            const std::vector<IpGenAddr>& sources ) {
   Hosts& at = hosts( intfId );
   if ( !sender_.speaks() ) return;
   Group& state = at.groups.at( group );
   if ( state.queries == nullptr ) {
      state.queries = std::make_unique<SpecificQueries>( clock_, at.querier,
                                                         *state.membership, group );
   }
   state.queries->ask( sources );
}

GroupMembership& MembershipEngine::membership( IntfId intfId,
                                               const IpGenAddr& group ) {
   Hosts& at = hosts( intfId );
   std::unique_ptr<GroupMembership>& machine = at.groups[group].membership;
   if ( machine == nullptr ) {
      GroupMembership::Hooks hooks{
         [this, intfId, group] {
            const bool left = hosts( intfId ).groups.at( group ).leaving;
            const Journal::Handling handling(
               journal_, left ? Published::byLeave : Published::byExpiry, intfId );
            update( intfId, group );
         },
         [&at] { return at.querier.asks(); },
         [this, intfId, group]( const auto& sources ) {
            ask( intfId, group, sources );
         } };
      machine = std::make_unique<GroupMembership>( clock_, at.querier.times(),
                                                   std::move( hooks ) );
   }
   return *machine;
}

// Makes the records follow the machine. A machine without members, or without room
// for any record, is removed.
void MembershipEngine::update( IntfId intfId, const IpGenAddr& group ) {
   Group& state = hosts( intfId ).groups[group];
   const GroupMembership& machine = *state.membership;
   std::map<IpGenAddr, bool> sources = machine.sources();
   bool shared = machine.excludeMode();
   const auto& allFixed = hosts( intfId ).fixed;
   if ( auto fixed = allFixed.find( group ); fixed != allFixed.end() ) {
      if ( fixed->second.all ) sources.clear();
      shared |= fixed->second.all;
      for ( const IpGenAddr& source : fixed->second.sources )
         sources[source] = true;
   }
   // Requested sources come along the shared tree.
   if ( shared )
      std::erase_if( sources, []( const auto& entry ) { return entry.second; } );
   write( intfId, group, state, shared, sources );
   if ( !state.shared && state.sources.empty() )
      hosts( intfId ).groups.erase( IpGenAddr( group ) );
}

// A time that differs from the usual one is told to the next process, and told again
// when it is the usual one.
void MembershipEngine::tellTimes( IntfId intfId, const IpGenAddr& group ) {
   Group& state = hosts( intfId ).groups.at( group );
   const bool old = state.membership->oldestVersion() < 3;
   if ( !state.told && !old ) return;
   bool differs = old;
   auto changed = [&]( const RouteKey& key ) {
      Published::Downstream record{ { key, intfId } };
      tell( record );
      differs |= record.memberUntil != 0.0;
      routes_.changed( { key, intfId }, { false, true } );
   };
   if ( state.shared ) changed( { anySource( group ), group } );
   for ( const auto& [source, included] : state.sources )
      changed( { source, group } );
   state.told = differs;
}

void MembershipEngine::tell( Published::Downstream& record ) const {
   const auto& [route, intfId] = record.key;
   auto at = hosts_.find( intfId );
   if ( at == hosts_.end() ) return;
   auto group = at->second.groups.find( route.group );
   if ( group == at->second.groups.end() ) return;
   const GroupMembership& machine = *group->second.membership;
   const bool shared = route.source.isUnspecified();
   const double left = shared ? machine.left() : machine.left( route.source );
   if ( left > 0.0 && left <= at->second.querier.times().lastMember() )
      record.memberUntil = clock_.now() + left;
   if ( machine.oldestVersion() < 3 && shared )
      record.memberVersion = machine.oldestVersion();
}

void MembershipEngine::end( IntfId intfId, const IpGenAddr& group ) {
   auto& groups = hosts( intfId ).groups;
   write( intfId, group, groups[group], false, {} );
   groups.erase( group );
}

// The shared tree comes first: it decides which records of the source trees stay.
void MembershipEngine::write( IntfId intfId, const IpGenAddr& group, Group& state,
                              bool shared,
                              const std::map<IpGenAddr, bool>& sources ) {
   const RouteKey sharedKey{ anySource( group ), group };
   if ( shared != state.shared && writeRecord( sharedKey, intfId, shared, false ) )
      state.shared = shared;
   std::vector<IpGenAddr> gone;
   for ( const auto& [source, included] : state.sources ) {
      if ( sources.count( source ) == 0 ) gone.push_back( source );
   }
   for ( const IpGenAddr& source : gone ) {
      writeRecord( { source, group }, intfId, false, false );
      state.sources.erase( source );
   }
   for ( const auto& [source, included] : sources ) {
      auto before = state.sources.find( source );
      if ( before != state.sources.end() && before->second == included ) continue;
      if ( writeRecord( { source, group }, intfId, included, !included ) )
         state.sources[source] = included;
   }
}

// Returns false without room for the route.
bool MembershipEngine::writeRecord( const RouteKey& key, IntfId intfId,
                                    bool included, bool excluded ) {
   bool wanted = included || excluded;
   if ( wanted && !routes_.hasRoom( key ) ) {
      journal_.refused( tableFull, key );
      return false;
   }
   Mox::Ptr<Routes::Intf> intf =
      wanted ? routes_.record( key, intfId ) : routes_.find( key, intfId );
   if ( intf == nullptr ) return true;
   const bool states = intf->localReceiverInclude() != included ||
                       intf->localReceiverExclude() != excluded;
   if ( states )
      journal_.tell( included   ? Published::memberCame
                     : excluded ? Published::memberExcludes
                                : Published::memberGone,
                     key, intfId );
   intf->localMembershipIs( included );
   intf->localReceiverIncludeIs( included );
   intf->localReceiverExcludeIs( excluded );
   routes_.changed( { key, intfId }, { states, !wanted } );
   routes_.update( key, intfId );
   return true;
}

void MembershipEngine::adopt( const KeptTimers& kept ) {
   adopted_ = true;
   for ( const auto& route : routes_.model().route() ) {
      const RouteKey& key = route.key();
      for ( const Routes::Intf& intf : route.routeIntf() ) {
         if ( !intf.localReceiverInclude() && !intf.localReceiverExclude() )
            continue;
         // The tables do not hold localMembership.
         routes_.find( key, intf.intfId() )
            ->localMembershipIs( intf.localReceiverInclude() );
         GroupMembership& machine = membership( intf.intfId(), key.group );
         Group& state = hosts( intf.intfId() ).groups[key.group];
         const Published::Downstream timers = kept( { key, intf.intfId() } );
         state.told = true;  // compared once with what stands
         if ( timers.memberVersion != 0 )
            machine.adoptVersion( static_cast<uint8_t>( timers.memberVersion ) );
         if ( key.source.isUnspecified() ) {
            machine.adoptExclude( timers.memberUntil );
            state.shared = true;
         } else {
            machine.adoptSource( key.source, intf.localReceiverInclude(),
                                 timers.memberUntil );
            state.sources[key.source] = intf.localReceiverInclude();
         }
      }
   }
   endUnshared();
   updateLinks();
   for ( auto& [intfId, at] : hosts_ ) {
      std::vector<IpGenAddr> groups;
      for ( const auto& [group, state] : at.groups ) groups.push_back( group );
      for ( const IpGenAddr& group : groups ) update( intfId, group );
   }
}

void MembershipEngine::endUnshared() {
   for ( auto& [intfId, at] : hosts_ ) {
      std::vector<IpGenAddr> gone;
      for ( const auto& [group, state] : at.groups ) {
         if ( state.membership->excludeMode() && refusalOfShared( group ) )
            gone.push_back( group );
      }
      for ( const IpGenAddr& group : gone ) end( intfId, group );
   }
}

void MembershipEngine::handleIntfGone( IntfId intfId ) {
   auto found = hosts_.find( intfId );
   if ( found == hosts_.end() ) return;
   while ( !found->second.groups.empty() )
      end( intfId, IpGenAddr( found->second.groups.begin()->first ) );
   hosts_.erase( found );
}

}
