#include "apps/show/reports/Why.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/show/reports/Inquiry.h"
#include "apps/show/text/Words.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Published::Event;
using Routing::Pim::RouteKey;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

std::string text( const IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

bool standsIn( const Mirror& mirror, IntfId intfId, const IpGenAddr& host ) {
   for ( const auto& key : mirror.agent->ownAddress().keys() ) {
      Published::OwnAddress own;
      if ( key.intfId == intfId &&
           mirror.agent->ownAddress().find( key, own ) == Brane::lookupFound &&
           own.subnet.contains( host ) )
         return true;
   }
   return false;
}

// The interface of the mirror that is meant; empty: it has none.
IntfId place( const Mirror& mirror, const Receiver& receiver ) {
   for ( const IntfId& each : mirror.agent->interface().keys() ) {
      if ( receiver.intfId.empty() ? standsIn( mirror, each, receiver.host )
                                   : each == receiver.intfId )
         return each;
   }
   return {};
}

// Another VRF in which the group's packets flow; null: none.
const Mirror* otherVrf( const Mirrors& mirrors, const Mirror& mirror,
                        const Receiver& receiver ) {
   for ( const auto& each : mirrors.all() ) {
      if ( each.get() == &mirror || each->family != mirror.family ) continue;
      for ( const Route& route : std::as_const( *each->model ).route() ) {
         const RouteKey& key = route.key();
         const bool flows =
            key.group == receiver.group && !route.wildCard() && !route.katExpired();
         if ( flows &&
              ( receiver.source.isUnspecified() || key.source == receiver.source ) )
            return each.get();
      }
   }
   return nullptr;
}

bool lacksSource( const std::string& cause ) {
   return cause == "no-rp" || cause == "no-path" || cause == "nothing-arrives" ||
          cause == "not-registered" || cause == "not-joined";
}

const char* markText( Why::Mark mark ) {
   return mark == Why::fine ? "ok" : mark == Why::bad ? "NO" : "?";
}

}

Answer whyOf( const Mirrors& mirrors, const Receiver& receiver,
              const Evidence& evidence ) {
   Answer answer;
   answer.intfId = receiver.intfId;
   for ( const auto& each : mirrors.all() ) {
      if ( each->family != receiver.group.family() ) continue;
      const IntfId found = place( *each, receiver );
      if ( answer.mirror == nullptr || !found.empty() ) answer.mirror = each.get();
      if ( found.empty() ) continue;
      answer.intfId = found;
      break;
   }
   if ( answer.mirror == nullptr ) return answer;
   std::vector<const Route*> ofGroup;
   for ( const Route& each : std::as_const( *answer.mirror->model ).route() )
      if ( each.key().group == receiver.group ) ofGroup.push_back( &each );
   const Rps rps( *answer.mirror );
   answer.why = Inquiry( *answer.mirror, rps, receiver, answer.intfId,
                         std::move( ofGroup ), evidence )
                   .answer();
   const Mirror* other = otherVrf( mirrors, *answer.mirror, receiver );
   if ( other != nullptr && lacksSource( answer.why.cause ) ) {
      answer.why.cause = "wrong-vrf";
      answer.why.verdict = fmt::format(
         "{} is in vrf {}, but the group's source is in vrf {}: move one of them.",
         nameText( answer.intfId ), vrfText( *answer.mirror ), vrfText( *other ) );
      answer.why.chain.push_back(
         { Why::bad, "VRF", "the group's source is in vrf " + vrfText( *other ) } );
   }
   return answer;
}

std::string whyText( const Answer& answer, const Receiver& receiver ) {
   const Why& why = answer.why;
   const std::string asked = receiver.source.isUnspecified()
                                ? "group " + text( receiver.group )
                                : keyText( { receiver.source, receiver.group } );
   std::string out =
      fmt::format( "{} to {}, {}\n{}\n", asked,
                   receiver.host.isUnspecified() ? nameText( answer.intfId )
                                                 : text( receiver.host ),
                   mirrorText( *answer.mirror ), why.verdict );
   for ( const Why::Step& step : why.chain )
      out += fmt::format( "  {:<2}  {:<10}  {}\n", markText( step.mark ), step.what,
                          step.evidence );
   return out;
}

nlohmann::ordered_json whyJson( const Answer& answer, const Receiver& receiver ) {
   nlohmann::ordered_json json;
   json["group"] = text( receiver.group );
   if ( !receiver.source.isUnspecified() )
      json["source-address"] = text( receiver.source );
   json["interface"] = std::string( answer.intfId.name() );
   if ( !receiver.host.isUnspecified() ) json["receiver"] = text( receiver.host );
   if ( !answer.why.cause.empty() ) json["cause"] = answer.why.cause;
   json["verdict"] = answer.why.verdict;
   json["step"] = nlohmann::ordered_json::array();
   for ( const Why::Step& step : answer.why.chain )
      json["step"].push_back( { { "name", step.what },
                                { "state", step.mark == Why::fine  ? "fine"
                                           : step.mark == Why::bad ? "bad"
                                                                   : "unknown" },
                                { "evidence", step.evidence } } );
   return json;
}

}
