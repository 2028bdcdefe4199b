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

// The interface of the mirror that is meant, and how much of the host's address its
// network names; empty: none.
struct Place {
   IntfId intfId;
   unsigned length = 0;
};
Place place( const Mirror& mirror, const Receiver& receiver ) {
   Place found;
   if ( !receiver.intfId.empty() ) {
      if ( mirror.agent->interface().has( receiver.intfId ) )
         found = { receiver.intfId, 1 };
      return found;
   }
   mirror.agent->ownAddress().visit( nullptr, [&]( const auto& own ) {
      const bool longer =
         found.intfId.empty() || own.subnet.length() > found.length;
      if ( longer && own.subnet.contains( receiver.host ) )
         found = { own.key.intfId, static_cast<unsigned>( own.subnet.length() ) };
      return true;
   } );
   return found;
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

// A long one is folded between its sentences.
std::string foldable( std::string verdict ) {
   for ( size_t at = verdict.find( ". " ); at != std::string::npos;
         at = verdict.find( ". ", at + 1 ) )
      verdict[at + 1] = '\t';
   return verdict;
}

const char* markText( Why::Mark mark ) {
   return mark == Why::fine ? "ok" : mark == Why::bad ? "NO" : "?";
}

}

namespace {

using Routes = std::vector<const Route*>;

// Sources that send, with records of the interface: each may fare in its own way.
constexpr size_t kSources = 32;
std::vector<IpGenAddr> sourcesOn( const Routes& ofGroup, IntfId intfId ) {
   std::vector<IpGenAddr> sources;
   for ( const Route* each : ofGroup ) {
      const bool sends = !each->wildCard() && !each->katExpired() &&
                         each->routeIntf( intfId ) != nullptr;
      if ( sends && sources.size() < kSources )
         sources.push_back( each->key().source );
   }
   return sources;
}

// Of any source: the group as a whole, then each that sends.
Why whyAny( const Mirror& mirror, const Receiver& receiver, IntfId intfId,
            const Routes& ofGroup, const Evidence& evidence ) {
   const Rps rps( mirror );
   const auto ask = [&]( const Receiver& of ) {
      return Inquiry( mirror, rps, of, intfId, ofGroup, evidence ).answer();
   };
   Why whole = ask( receiver );
   if ( !whole.cause.empty() || !receiver.source.isUnspecified() ) return whole;
   for ( const IpGenAddr& source : sourcesOn( ofGroup, intfId ) ) {
      Receiver of = receiver;
      of.source = source;
      Why why = ask( of );
      if ( why.cause.empty() ) continue;
      why.verdict = "Of source " + text( source ) + ": " + why.verdict;
      return why;
   }
   return whole;
}

}

Answer whyOf( const Mirrors& mirrors, const Receiver& receiver,
              const Evidence& evidence ) {
   Answer answer;
   Place best{ receiver.intfId, 0 };
   for ( const auto& each : mirrors.all() ) {
      if ( each->family != receiver.group.family() ) continue;
      const Place found = place( *each, receiver );
      if ( answer.mirror != nullptr && found.length <= best.length ) continue;
      answer.mirror = each.get();
      if ( found.length > best.length ) best = found;
   }
   if ( answer.mirror == nullptr ) return answer;
   answer.intfId = best.intfId;
   Routes ofGroup;
   for ( const Route& each : std::as_const( *answer.mirror->model ).route() )
      if ( each.key().group == receiver.group ) ofGroup.push_back( &each );
   answer.why =
      whyAny( *answer.mirror, receiver, answer.intfId, ofGroup, evidence );
   const Mirror* other = otherVrf( mirrors, *answer.mirror, receiver );
   const bool sourceHere =
      std::any_of( ofGroup.begin(), ofGroup.end(), []( const Route* each ) {
         return !each->wildCard() && !each->katExpired();
      } );
   if ( other != nullptr && !sourceHere && lacksSource( answer.why.cause ) ) {
      answer.why.cause = "wrong-vrf";
      answer.why.verdict = fmt::format(
         "{} is in vrf {}, where no source of the group is; one is in vrf {}. Move "
         "one "
         "of them, if they belong together.",
         nameText( answer.intfId ), vrfText( *answer.mirror ), vrfText( *other ) );
      answer.why.chain.push_back(
         { Why::bad, "VRF",
           "a source of the group is in vrf " + vrfText( *other ) } );
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
                   mirrorText( *answer.mirror ), foldable( why.verdict ) );
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
