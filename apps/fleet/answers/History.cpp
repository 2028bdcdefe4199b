#include "apps/fleet/answers/History.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/json/EventJson.h"
#include "apps/json/YangData.h"
#include "apps/program/Printable.h"
#include "apps/show/text/ChangeText.h"
#include "apps/show/text/EventText.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

namespace {

constexpr int64_t kBefore = 5000;  // ms: so long before a change its reason may be

bool matches( const Wanted& wanted, const Event& event ) {
   if ( event.vrf.empty() ) return true;
   return wanted.matches( { event.vrf, event.ipVersion == 6
                                          ? AddressFamily::ipv6
                                          : AddressFamily::ipv4 } );
}

// Does the logged event concern what changed: its group, or its interface or neighbour?
bool concerns( const Event& logged, const Json& log, const Event& event,
               const Json& line ) {
   if ( logged.vrf != event.vrf || logged.ipVersion != event.ipVersion )
      return false;
   const Published::Event of = Show::eventOf( log );
   if ( !Show::isReason( of.kind ) ) return false;
   if ( !logged.group.empty() ) {
      if ( logged.group != event.group ) return false;
      // An (S,G) may follow its group's (*,G).
      if ( logged.source != event.source && logged.source != "*" ) return false;
      const std::string own = textMember( line, "interface" );
      const std::string its = textMember( log, "interface" );
      return own.empty() || its.empty() || own == its ||
             of.kind == Published::rpfChanged;
   }
   const std::string change = Show::jsonText( line );
   const auto names = [&]( const char* member ) {
      const std::string value = textMember( log, member );
      return !value.empty() &&
             change.find( '"' + value + '"' ) != std::string::npos;
   };
   return names( "interface" ) || names( "address" );
}

std::vector<Event> reasonsOf( Reader& reader, const std::string& router,
                              const Event& event ) {
   const Json line = parsedValue( event.body );
   std::vector<Event> reasons;
   Past before;
   before.since = event.at - kBefore;
   before.until = event.at;
   const auto take = [&]( const Event& each ) {
      if ( each.op == "log" &&
           concerns( each, parsedValue( each.body ), event, line ) )
         reasons.push_back( each );
   };
   reader.history( router, before, take );
   // The last ones before a change are the nearest to its reason.
   constexpr size_t kMost = 3;
   if ( reasons.size() > kMost )
      reasons.erase( reasons.begin(), reasons.end() - kMost );
   return reasons;
}

std::string lineText( const Event& event ) {
   const Json line = parsedValue( event.body );
   if ( event.op == "log" ) return Show::eventWords( Show::eventOf( line ) );
   return Show::changeWords( line );
}

}

std::vector<Told> historyOf( Reader& reader, const std::vector<Router>& routers,
                             const HistoryQuestion& question ) {
   std::vector<Told> all;
   for ( const Router& router : routers ) {
      if ( !router.problem.empty() ) continue;
      reader.history( router.name, question.past, [&]( const Event& event ) {
         if ( !matches( question.wanted, event ) ) return;
         if ( question.why && event.op == "log" ) return;
         all.push_back( { router.name, event, {} } );
      } );
   }
   std::stable_sort( all.begin(), all.end(), []( const Told& a, const Told& b ) {
      return a.event.at < b.event.at;
   } );
   if ( question.why ) {
      for ( Told& told : all )
         told.reasons = reasonsOf( reader, told.router, told.event );
   }
   return all;
}

std::string historyText( const Told& told ) {
   const Event& event = told.event;
   const Json line = parsedValue( event.body );
   std::string text = Show::utcText( event.at ) + "  " + told.router + "  ";
   if ( !event.vrf.empty() )
      text += fmt::format( "{} ipv{}  ", event.vrf, event.ipVersion );
   text += lineText( event );
   if ( line.is_object() && line.value( "resync", Json() ) == true )
      text += " (found by comparing, at an unknown time before)";
   text = Programs::printable( text ) + '\n';
   for ( const Event& reason : told.reasons )
      text += Programs::printable(
                 fmt::format( "    {:.3f} s before: {}",
                              static_cast<double>( event.at - reason.at ) / 1000,
                              lineText( reason ) ) ) +
              '\n';
   return text;
}

Json historyJson( const Told& told ) {
   Json json = parsedValue( told.event.body );
   if ( !json.is_object() ) json = Json::object();
   for ( const Event& reason : told.reasons )
      json["reasons"].push_back( parsedValue( reason.body ) );
   return json;
}

}
