#include "engine/MembershipEngine.h"

#include <algorithm>

namespace Router {

using Vantu::IntfId;
using Vantu::IpGenAddr;

MembershipEngine::MembershipEngine( Routes& routes, Mox::Clock& clock,
                                    const GroupPolicy* policy,
                                    RouterCounters& counters )
   : routes_( routes ), clock_( clock ), policy_( policy ), counters_( counters ) {}

bool MembershipEngine::sourceSpecific( const IpGenAddr& group ) const {
   return policy_ != nullptr && policy_->sourceSpecific( group );
}

void MembershipEngine::receive( IntfId intfId, const MembershipMessage& message ) {
   if ( const auto* report = std::get_if<MembershipReport>( &message ) )
      return receiveReport( intfId, *report );
   receiveQuery( intfId, std::get<MembershipQuery>( message ) );
}

void MembershipEngine::receiveReport( IntfId intfId,
                                      const MembershipReport& report ) {
   for ( MembershipRecord record : report.records ) {
      if ( !accept( record ) ) continue;
      std::erase_if( record.sources, [this]( const IpGenAddr& source ) {
         return !counters_.accepted( refusalOfSource( source ) );
      } );
      GroupMembership& machine = membership( intfId, record.group );
      limitSources( machine, record );
      machine.receive( record, report.version );
      update( intfId, record.group );
   }
}

// Only a limited number of the sources that hosts ask for get a route.
void MembershipEngine::limitSources( const GroupMembership& machine,
                                     MembershipRecord& record ) {
   size_t room = maxSources - std::min( machine.size(), maxSources );
   std::erase_if( record.sources, [&]( const IpGenAddr& source ) {
      if ( machine.has( source ) ) return false;
      if ( room == 0 ) counters_.refused( tooManySources );
      return room == 0 || room-- == 0;
   } );
}

bool MembershipEngine::accept( const MembershipRecord& record ) {
   bool allSources = record.type == isExclude || record.type == toExclude;
   if ( !counters_.accepted( refusalOfGroup( record.group ) ) ) return false;
   if ( !allSources || !sourceSpecific( record.group ) ) return true;
   counters_.refused( ssmGroup );
   return false;
}

// Another router is the querier. Its times apply, or the defaults where it gives
// none (RFC 3376, 4.1.6 and 4.1.7; RFC 3810, 5.1.8 and 5.1.9). Older versions have
// no such fields.
void MembershipEngine::receiveQuery( IntfId intfId, const MembershipQuery& query ) {
   Link& link = links_[intfId];
   if ( query.version >= 3 ) {
      const MembershipTimes defaults;
      link.times.robustness =
         query.robustness != 0 ? query.robustness : defaults.robustness;
      link.times.queryInterval =
         query.interval != 0.0 ? query.interval : defaults.queryInterval;
   }
   if ( query.group.isUnspecified() ) {
      if ( query.maxResponse != 0.0 ) link.times.queryResponse = query.maxResponse;
      return;
   }
   auto found = link.groups.find( query.group );
   if ( query.suppress || found == link.groups.end() ) return;
   double answer =
      query.maxResponse != 0.0 ? query.maxResponse : link.times.lastMemberQuery;
   found->second.membership->handleQuery( query.sources,
                                          link.times.robustness * answer );
}

GroupMembership& MembershipEngine::membership( IntfId intfId,
                                               const IpGenAddr& group ) {
   Link& link = links_[intfId];
   std::unique_ptr<GroupMembership>& machine = link.groups[group].membership;
   if ( machine == nullptr ) {
      machine = std::make_unique<GroupMembership>(
         clock_, link.times, [this, intfId, group] { update( intfId, group ); } );
   }
   return *machine;
}

// Makes the records follow the machine. A machine without members, or without room
// for any record, is removed.
void MembershipEngine::update( IntfId intfId, const IpGenAddr& group ) {
   Group& state = links_[intfId].groups[group];
   const GroupMembership& machine = *state.membership;
   std::map<IpGenAddr, bool> sources = machine.sources();
   // Requested sources come along the shared tree.
   if ( machine.excludeMode() )
      std::erase_if( sources, []( const auto& entry ) { return entry.second; } );
   write( intfId, group, state, machine.excludeMode(), sources );
   if ( !state.shared && state.sources.empty() )
      links_[intfId].groups.erase( IpGenAddr( group ) );
}

void MembershipEngine::end( IntfId intfId, const IpGenAddr& group ) {
   auto& groups = links_[intfId].groups;
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
      counters_.refused( tableFull );
      return false;
   }
   Mox::Ptr<Routes::Intf> intf =
      wanted ? routes_.record( key, intfId ) : routes_.find( key, intfId );
   if ( intf == nullptr ) return true;
   const bool states = intf->localReceiverInclude() != included ||
                       intf->localReceiverExclude() != excluded;
   intf->localMembershipIs( included );
   intf->localReceiverIncludeIs( included );
   intf->localReceiverExcludeIs( excluded );
   routes_.changed( { key, intfId }, { states, false } );
   routes_.update( key, intfId );
   return true;
}

void MembershipEngine::adopt() {
   for ( const auto& route : routes_.model().route() ) {
      const RouteKey& key = route.key();
      for ( const Routes::Intf& intf : route.routeIntf() ) {
         if ( !intf.localReceiverInclude() && !intf.localReceiverExclude() )
            continue;
         // The tables do not hold localMembership.
         routes_.find( key, intf.intfId() )
            ->localMembershipIs( intf.localReceiverInclude() );
         GroupMembership& machine = membership( intf.intfId(), key.group );
         Group& state = links_[intf.intfId()].groups[key.group];
         if ( key.source.isUnspecified() ) {
            machine.adoptExclude();
            state.shared = true;
         } else {
            machine.adoptSource( key.source, intf.localReceiverInclude() );
            state.sources[key.source] = intf.localReceiverInclude();
         }
      }
   }
   endSourceSpecific();
   for ( auto& [intfId, link] : links_ ) {
      std::vector<IpGenAddr> groups;
      for ( const auto& [group, state] : link.groups ) groups.push_back( group );
      for ( const IpGenAddr& group : groups ) update( intfId, group );
   }
}

void MembershipEngine::endSourceSpecific() {
   for ( auto& [intfId, link] : links_ ) {
      std::vector<IpGenAddr> gone;
      for ( const auto& [group, state] : link.groups ) {
         if ( state.membership->excludeMode() && sourceSpecific( group ) )
            gone.push_back( group );
      }
      for ( const IpGenAddr& group : gone ) end( intfId, group );
   }
}

void MembershipEngine::handleIntfGone( IntfId intfId ) {
   auto link = links_.find( intfId );
   if ( link == links_.end() ) return;
   while ( !link->second.groups.empty() )
      end( intfId, IpGenAddr( link->second.groups.begin()->first ) );
   links_.erase( link );
}

}
