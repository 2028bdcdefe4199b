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
   mirror.agent->ownAddress().visit( [&]( const auto& own ) {
      const bool longer =
         found.intfId.empty() || own.subnet.length() > found.length;
      if ( longer && own.subnet.contains( receiver.host ) )
         found = { own.key.intfId, static_cast<unsigned>( own.subnet.length() ) };
      return true;
   } );
   return found;
}

bool lacksSource( const std::string& cause ) {
   return cause == "no-rp" || cause == "no-path" || cause == "nothing-arrives" ||
          cause == "not-registered";
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

// Asks for many receivers, and reads once what their answers share.
class Asker {
 public:
   Asker( const Mirrors& mirrors, const Evidence& evidence )
      : mirrors_( mirrors ), evidence_( evidence ) {}

   Answer ask( const Receiver& receiver ) {
      Answer answer;
      Place best{ receiver.intfId, 0 };
      for ( const auto& each : mirrors_.all() ) {
         if ( each->family != receiver.group.family() ) continue;
         const Place found = place( *each, receiver );
         if ( answer.mirror != nullptr && found.length <= best.length ) continue;
         answer.mirror = each.get();
         if ( found.length > best.length ) best = found;
      }
      if ( answer.mirror == nullptr ) return answer;
      answer.intfId = best.intfId;
      answer.why = whyAny( *answer.mirror, receiver, answer.intfId );
      lookElsewhere( receiver, answer );
      return answer;
   }

 private:
   const Facts& factsOf( const Mirror& mirror ) {
      return facts_.try_emplace( &mirror, mirror, evidence_ ).first->second;
   }

   const Routes& routesOf( const Mirror& mirror, const IpGenAddr& group ) {
      const auto [found, isNew] = routes_.try_emplace( { &mirror, group } );
      if ( !isNew ) return found->second;
      for ( const Route& each : std::as_const( *mirror.model ).route() )
         if ( each.key().group == group ) found->second.push_back( &each );
      return found->second;
   }

   // Of any source: the group as a whole, then each that sends.
   Why whyAny( const Mirror& mirror, const Receiver& receiver, IntfId intfId ) {
      const Routes& ofGroup = routesOf( mirror, receiver.group );
      const auto why = [&]( const Receiver& of ) {
         return Inquiry( factsOf( mirror ), of, intfId, ofGroup ).answer();
      };
      Why whole = why( receiver );
      if ( !whole.cause.empty() || !receiver.source.isUnspecified() ) return whole;
      for ( const IpGenAddr& source : sourcesOn( ofGroup, intfId ) ) {
         Receiver of = receiver;
         of.source = source;
         Why its = why( of );
         if ( its.cause.empty() ) continue;
         its.verdict = "Of source " + text( source ) + ": " + its.verdict;
         return its;
      }
      return whole;
   }

   // A source may send in another VRF.
   void lookElsewhere( const Receiver& receiver, Answer& answer ) {
      if ( !lacksSource( answer.why.cause ) ) return;
      const Routes& here = routesOf( *answer.mirror, receiver.group );
      if ( std::any_of( here.begin(), here.end(), sends ) ) return;
      const Mirror* other = otherVrf( *answer.mirror, receiver );
      if ( other == nullptr ) return;
      answer.why.cause = "wrong-vrf";
      answer.why.verdict = fmt::format(
         "{} is in vrf {}, where no source of the group is; one is in vrf {}. Move "
         "one of them, if they belong together.",
         nameText( answer.intfId ), vrfText( *answer.mirror ), vrfText( *other ) );
      answer.why.chain.push_back(
         { Why::bad, "VRF",
           "a source of the group is in vrf " + vrfText( *other ) } );
   }

   static bool sends( const Route* route ) {
      return !route->wildCard() && !route->katExpired();
   }

   // Another VRF in which the group's packets flow; null: none.
   const Mirror* otherVrf( const Mirror& mirror, const Receiver& receiver ) {
      for ( const auto& each : mirrors_.all() ) {
         if ( each.get() == &mirror || each->family != mirror.family ) continue;
         for ( const Route* route : routesOf( *each, receiver.group ) )
            if ( sends( route ) && ( receiver.source.isUnspecified() ||
                                     route->key().source == receiver.source ) )
               return each.get();
      }
      return nullptr;
   }

   const Mirrors& mirrors_;
   const Evidence& evidence_;
   std::map<const Mirror*, Facts> facts_;
   std::map<std::pair<const Mirror*, IpGenAddr>, Routes> routes_;
};

}

std::vector<Answer> whyOf( const Mirrors& mirrors,
                           const std::vector<Receiver>& receivers,
                           const Evidence& evidence ) {
   Asker asker( mirrors, evidence );
   std::vector<Answer> out;
   for ( const Receiver& receiver : receivers )
      out.push_back( asker.ask( receiver ) );
   return out;
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
