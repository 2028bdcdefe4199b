#include "apps/agent/wire/LinkCounters.h"

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

void LinkCounters::received( const L3::VrfName& vrf, Vantu::IntfId interface,
                             const Router::Message& message ) {
   count( { in, vrf, interface, typeOf( message ) } );
}

void LinkCounters::refused( const L3::VrfName& vrf, Vantu::IntfId interface,
                            Router::Refusal reason ) {
   const Mox::StringView name = enumNames( Router::Refusal() ).values[reason];
   count( { none, vrf, interface, name } );
}

void LinkCounters::sent( const L3::VrfName& vrf, const Router::Outgoing& message ) {
   if ( message.intfId.empty() ) return;
   count( { out, vrf, message.intfId, typeOf( message.message ) } );
   const Router::PimJoinPrune* joinPrune = joinPruneIn( message.message );
   if ( joinPrune == nullptr ) return;
   uint64_t joins = 0, prunes = 0;
   for ( const Router::JoinPruneGroup& group : joinPrune->groups ) {
      joins += group.joins.size();
      prunes += group.prunes.size();
   }
   const std::string owner = fmt::format(
      "agent/asked/{}/{}/{}", vrf.name(),
      Vantu::valueToStrep( joinPrune->upstreamNeighbor ), message.intfId.name() );
   asked( owner, "joins", joins );
   asked( owner, "prunes", prunes );
}

void LinkCounters::count( const Key& key ) {
   auto found = links_.find( key );
   if ( found == links_.end() ) {
      if ( links_.size() >= maxLinkCounters ) return;
      constexpr const char* kWords[] = { "received", "sent", "refused" };
      const std::string owner = fmt::format( "agent/{}/{}/{}", kWords[key.what],
                                             key.vrf.name(), key.interface.name() );
      found =
         links_
            .emplace( key, std::make_unique<Mox::EventCounter>( owner, key.name ) )
            .first;
   }
   found->second->inc();
}

void LinkCounters::asked( const std::string& owner, Mox::StringView name,
                          uint64_t count ) {
   const std::pair key( owner, std::string( name ) );
   auto found = asked_.find( key );
   if ( found == asked_.end() ) {
      if ( asked_.size() >= maxNeighborCounters ) return;
      found =
         asked_.emplace( key, std::make_unique<Mox::EventCounter>( owner, name ) )
            .first;
   }
   found->second->inc( count );
}

}
