#include "apps/agent/wire/SentCounters.h"

#include <fmt/format.h>

namespace Agent {
namespace {

Mox::StringView typeOf( const Router::Message& message ) {
   if ( const auto* pim = std::get_if<Router::PimMessage>( &message ) )
      return Router::pimTypeName( pim->type );
   const auto& membership = std::get<Router::MembershipMessage>( message );
   return std::holds_alternative<Router::MembershipQuery>( membership )
             ? "membership-query"
             : "membership-report";
}

const Router::PimJoinPrune* joinPruneIn( const Router::Message& message ) {
   const auto* pim = std::get_if<Router::PimMessage>( &message );
   return pim == nullptr ? nullptr
                         : std::get_if<Router::PimJoinPrune>( &pim->body );
}

}

void SentCounters::count( const L3::VrfName& vrf,
                          const Router::Outgoing& message ) {
   if ( message.intfId.empty() ) return;
   const auto& interface = message.intfId.name();
   add( fmt::format( "agent/sent/{}/{}", vrf.name(), interface ),
        typeOf( message.message ), 1 );
   const Router::PimJoinPrune* joinPrune = joinPruneIn( message.message );
   if ( joinPrune == nullptr ) return;
   uint64_t joins = 0, prunes = 0;
   for ( const Router::JoinPruneGroup& group : joinPrune->groups ) {
      joins += group.joins.size();
      prunes += group.prunes.size();
   }
   const std::string owner =
      fmt::format( "agent/asked/{}/{}/{}", vrf.name(),
                   Vantu::valueToStrep( joinPrune->upstreamNeighbor ), interface );
   add( owner, "joins", joins );
   add( owner, "prunes", prunes );
}

void SentCounters::add( const std::string& owner, Mox::StringView name,
                        uint64_t count ) {
   const std::pair key( owner, std::string( name ) );
   auto found = counters_.find( key );
   if ( found == counters_.end() ) {
      if ( counters_.size() >= maxCounters ) return;
      found = counters_
                 .emplace( key, std::make_unique<Mox::EventCounter>( owner, name ) )
                 .first;
   }
   found->second->inc( count );
}

}
