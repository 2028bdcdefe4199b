#include "apps/fleet/answers/History.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

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

// Events of a router's log, each parsed once: by group, and of no group, in order of time.
class Log {
 public:
   // Those of a span of time, ms.
   Log( Reader& reader, const std::string& router, int64_t since, int64_t until ) {
      Past past;
      past.since = since;
      past.until = until;
      reader.history( router, past, [this]( const Event& event ) {
         if ( event.op != "log" ) return;
         Json json = parsedValue( event.body );
         const Published::Event of = Show::eventOf( json );
         if ( Show::isReason( of.kind ) )
            byGroup_[event.group].push_back(
               { event, std::move( json ), of.kind } );
      } );
   }

   // The last ones before a change are the nearest to its reason.
   std::vector<Event> reasonsOf( const Event& event ) const {
      constexpr size_t kMost = 3;
      const Json line = parsedValue( event.body );
      std::vector<const Entry*> found;
      // What has a group follows from events of the group; all from those of links.
      add( found, "", event, line );
      if ( !event.group.empty() ) add( found, event.group, event, line );
      std::stable_sort( found.begin(), found.end(),
                        []( const Entry* a, const Entry* b ) {
                           return a->event.at < b->event.at;
                        } );
      if ( found.size() > kMost ) found.erase( found.begin(), found.end() - kMost );
      std::vector<Event> reasons;
      for ( const Entry* each : found ) reasons.push_back( each->event );
      return reasons;
   }

 private:
   struct Entry {
      Event event;
      Json json;
      Published::EventKind kind;
   };

   static bool concerns( const Entry& entry, const Event& event,
                         const Json& line ) {
      const Event& logged = entry.event;
      if ( logged.vrf != event.vrf || logged.ipVersion != event.ipVersion )
         return false;
      const std::string its = textMember( entry.json, "interface" );
      if ( !logged.group.empty() ) {
         // An (S,G) may follow its group's (*,G).
         if ( logged.source != event.source && logged.source != "*" ) return false;
         const std::string own = textMember( line, "interface" );
         return own.empty() || its.empty() || own == its ||
                entry.kind == Published::rpfChanged;
      }
      const auto named = [&event]( const std::string& value ) {
         return !value.empty() &&
                event.body.find( '"' + value + '"' ) != std::string::npos;
      };
      return named( its ) || named( textMember( entry.json, "address" ) );
   }

   void add( std::vector<const Entry*>& found, const std::string& group,
             const Event& event, const Json& line ) const {
      const auto all = byGroup_.find( group );
      if ( all == byGroup_.end() ) return;
      auto at = std::lower_bound(
         all->second.begin(), all->second.end(), event.at - kBefore,
         []( const Entry& entry, int64_t time ) { return entry.event.at < time; } );
      for ( ; at != all->second.end() && at->event.at <= event.at; ++at )
         if ( concerns( *at, event, line ) ) found.push_back( &*at );
   }

   std::map<std::string, std::vector<Entry>> byGroup_;
};

}

namespace {

// REQUIRES: in order of time.
void addReasons( Reader& reader, std::vector<Told>& all ) {
   if ( all.empty() ) return;
   std::map<std::string, Log> logs;
   for ( Told& told : all ) {
      const auto at = logs.find( told.router );
      const Log& log =
         at != logs.end()
            ? at->second
            : logs
                 .try_emplace( told.router, reader, told.router,
                               told.event.at - kBefore, all.back().event.at )
                 .first->second;
      told.reasons = log.reasonsOf( told.event );
   }
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
         if ( all.size() == historyLines )
            throw Mox::RangeError( fmt::format(
               "there are more than {} lines: ask for a shorter time (--since, "
               "--until), or for one router, VRF or group",
               historyLines ) );
         all.push_back( { router.name, event, {} } );
      } );
   }
   std::stable_sort( all.begin(), all.end(), []( const Told& a, const Told& b ) {
      return a.event.at < b.event.at;
   } );
   if ( question.why ) addReasons( reader, all );
   return all;
}

std::string historyWords( const Event& event ) {
   const Json line = parsedValue( event.body );
   if ( event.op == "log" )
      return Programs::printable( Show::eventWords( Show::eventOf( line ) ) );
   std::string text = Show::changeWords( line );
   if ( const std::string away = textMember( line, "away" ); !away.empty() )
      text += " after " + away + " s";
   if ( line.is_object() && line.value( "resync", Json() ) == true )
      text += " (found by comparing, at an unknown time before)";
   return Programs::printable( text );
}

std::string historyText( const Told& told ) {
   const Event& event = told.event;
   std::string text = Show::utcText( event.at ) + "  " + told.router + "  ";
   if ( !event.vrf.empty() )
      text += fmt::format( "{} ipv{}  ", Programs::printable( event.vrf ),
                           event.ipVersion );
   text += historyWords( event ) + '\n';
   for ( const Event& reason : told.reasons )
      text += fmt::format( "    {:.3f} s before: {}\n",
                           static_cast<double>( event.at - reason.at ) / 1000,
                           historyWords( reason ) );
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
