#include "apps/fleet/serve/Answers.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "apps/fleet/answers/History.h"
#include "apps/fleet/answers/Top.h"
#include "apps/fleet/path/Check.h"
#include "apps/fleet/serve/Picture.h"
#include "apps/json/YangData.h"
#include "apps/mirror/Events.h"
#include "apps/mirror/RouteFilter.h"
#include "apps/program/Ending.h"

namespace Fleet {

namespace {

using Json = nlohmann::ordered_json;
using Programs::WrongUsage;

constexpr size_t kMostLines = 500;  // of history
constexpr size_t kLayouts = 16;     // that are kept

Answer jsonAnswer( const Json& json ) {
   return { 200, "application/json", Show::jsonText( json ) + '\n' };
}

Answer refusal( unsigned status, const std::string& text ) {
   Answer answer;
   answer.status = status;
   answer.body = text + '\n';
   return answer;
}

// What went wrong as an answer.
Answer answered( const std::function<Answer()>& make ) {
   try {
      return make();
   } catch ( const WrongUsage& e ) {
      return refusal( 400, e.what() );
   } catch ( const Mox::ParseError& e ) {
      return refusal( 400, e.what() );
   } catch ( const Mox::RangeError& e ) {
      return refusal( 400, e.what() );
   } catch ( const StoreMissing& e ) {
      return refusal( 404, e.what() );
   } catch ( const std::exception& e ) {
      return refusal( 503, e.what() );
   }
}

size_t numberOf( const std::string& text, size_t otherwise, size_t most ) {
   if ( text.empty() ) return otherwise;
   size_t number = 0;
   const auto [end, error] =
      std::from_chars( text.data(), text.data() + text.size(), number );
   if ( error != std::errc() || end != text.data() + text.size() || number == 0 ||
        number > most )
      throw WrongUsage( "first is a number from 1 to " + std::to_string( most ) );
   return number;
}

Wanted wantedOf( const Target& target ) {
   Wanted wanted;
   if ( const std::string vrf = target["vrf"]; !vrf.empty() ) wanted.vrf = vrf;
   const std::string family = target["family"];
   if ( family == "ipv4" || family == "4" ) wanted.ipVersion = 4;
   if ( family == "ipv6" || family == "6" ) wanted.ipVersion = 6;
   if ( !family.empty() && wanted.ipVersion == 0 )
      throw WrongUsage( "family is ipv4 or ipv6" );
   return wanted;
}

TopBy orderOf( const std::string& by ) {
   if ( by.empty() || by == "rate" ) return TopBy::rate;
   if ( by == "packets" ) return TopBy::packets;
   if ( by == "routers" ) return TopBy::routers;
   throw WrongUsage( "by is rate, packets or routers" );
}

PathQuestion questionOf( const Target& target ) {
   const std::string group = target["group"], source = target["source"];
   if ( group.empty() || source.empty() )
      throw WrongUsage( "name a group, and a source or * for the shared tree" );
   return pathAsked( wantedOf( target ),
                     { source, group, target["to"], target["from"] } );
}

// The same for the same question.
std::string textOf( const PathQuestion& question ) {
   std::string text = targetText( question.scope.vrf ) + ' ' +
                      Vantu::valueToStrep( question.stream.source ) + ' ' +
                      Vantu::valueToStrep( question.stream.group ) + ' ' +
                      targetText( question.from );
   if ( question.receiver ) text += ' ' + Vantu::valueToStrep( *question.receiver );
   return text;
}

// "r1,r2"; empty: all of them.
std::vector<Router> routersAsked( Reader& reader, const std::string& names ) {
   if ( names.empty() ) return routersOf( reader, "all" );
   std::vector<Router> routers;
   for ( size_t at = 0; at <= names.size(); ) {
      const size_t end = std::min( names.find( ',', at ), names.size() );
      const auto found = routersOf( reader, names.substr( at, end - at ) );
      routers.insert( routers.end(), found.begin(), found.end() );
      at = end + 1;
   }
   return routers;
}

Json toldJson( const Told& told ) {
   Json json{ { "at", Show::utcText( told.event.at ) },
              { "router", told.router },
              { "op", told.event.op },
              { "text", historyWords( told.event ) },
              { "reasons", Json::array() } };
   for ( const Event& reason : told.reasons )
      json["reasons"].push_back(
         { { "before", static_cast<double>( told.event.at - reason.at ) / 1000 },
           { "text", historyWords( reason ) } } );
   return json;
}

Answer check( Reader& reader, const Target& target ) {
   const std::string group = target["group"];
   if ( group.empty() ) throw WrongUsage( "name a group, or groups by a prefix" );
   const Vantu::IpGenPrefix groups = Show::prefixArgument( group );
   const std::string vrf = target["vrf"];
   return jsonAnswer( checkJson( checkFleet(
      reader, { { vrf.empty() ? "default" : vrf, groups.address().family() },
                groups,
                wallNow(),
                {} } ) ) );
}

bool isPath( const std::string& path ) {
   return path == "/api/path" || path == "/svg";
}

bool same( const Graph& a, const Graph& b ) {
   const auto size = []( const Graph::Size& x, const Graph::Size& y ) {
      return x.width == y.width && x.height == y.height;
   };
   return a.down == b.down && a.lines == b.lines &&
          std::equal( a.boxes.begin(), a.boxes.end(), b.boxes.begin(),
                      b.boxes.end(), size );
}

}

Answers::Answers( std::unique_ptr<Reader> reader )
   : reader_( std::move( reader ) ),
     following_( [this]( const auto& question ) { return find( question ); },
                 [this]( const auto& question ) {
                    return reader_->bell( question.scope, question.stream.group );
                 } ) {}

Answers::~Answers() {
   stop();
}

void Answers::stop() {
   asking_.stop();
   drawing_.stop();
}

bool Answers::knows( const std::string& path ) {
   return isPath( path ) || path == "/api/routers" || path == "/api/top" ||
          path == "/api/history" || path == "/api/check";
}

void Answers::ask( const Target& target, const Tell& tell ) {
   const bool taken = asking_.post( [this, target, tell] {
      if ( isPath( target.path ) ) return path( target, tell, false );
      tell( answered( [&] { return answer( target ); } ) );
   } );
   if ( !taken )
      tell( refusal( 503, "Too many questions wait; try again later." ) );
}

Answer Answers::answer( const Target& target ) {
   if ( target.path == "/api/history" ) return history( target );
   if ( target.path == "/api/check" ) return check( *reader_, target );
   const auto routers = routersOf( *reader_, "all" );
   if ( target.path == "/api/routers" )
      return jsonAnswer( routersJson( *reader_, routers ) );
   return jsonAnswer( topJson(
      topStreams( *reader_, routers, wantedOf( target ), orderOf( target["by"] ),
                  numberOf( target["first"], 10, 1000 ) ) ) );
}

Answer Answers::history( const Target& target ) {
   HistoryQuestion question;
   const std::string since = target["since"];
   const size_t most = numberOf( target["first"], kMostLines, kMostLines );
   question.wanted = wantedOf( target );
   question.past = pastAsked( target["group"], target["source"],
                              since.empty() ? "1h" : since, target["until"] );
   question.why = target["why"] != "no";
   const auto all =
      historyOf( *reader_, routersAsked( *reader_, target["router"] ), question );
   Json json = Json::array();
   for ( size_t i = all.size() - std::min( all.size(), most ); i < all.size(); ++i )
      json.push_back( toldJson( all[i] ) );
   return jsonAnswer( json );
}

PathAnswer Answers::find( const PathQuestion& question ) {
   PathQuestion now = question;
   now.now = wallNow();
   return findPath( *reader_, now );
}

void Answers::path( const Target& target, const Tell& tell, bool again ) {
   std::optional<PathAnswer> found;
   bool doubtful = false;
   const Answer failure = answered( [&]() -> Answer {
      const PathQuestion question = questionOf( target );
      // A page that follows the tree gets the picture of what it was told.
      const PathAnswer* known = following_.last( textOf( question ) );
      found = known != nullptr ? *known : find( question );
      doubtful = known == nullptr && found->broken && !again;
      return {};
   } );
   if ( !found ) return tell( failure );
   if ( doubtful )
      return asking_.postAt( Worker::Clock::now() + Following::doubt,
                             [this, target, tell] { path( target, tell, true ); } );
   if ( target.path == "/svg" ) return draw( *found, target, tell );
   tell( { 200, "application/json", tellingText( *found ) + '\n' } );
}

void Answers::draw( const PathAnswer& answer, const Target& target,
                    const Tell& tell ) {
   const auto picture =
      std::make_shared<Picture>( answer, target["layout"] == "down" );
   const bool taken = drawing_.post( [this, picture, tell] {
      tell( answered( [&]() -> Answer {
         return { 200, "image/svg+xml",
                  picture->svg( layout( picture->graph() ) ) };
      } ) );
   } );
   if ( !taken ) tell( refusal( 503, "Too many pictures wait; try again later." ) );
}

// Rates change often, and where the boxes are does not.
Layout Answers::layout( const Graph& graph ) {
   for ( const auto& [of, layout] : layouts_ )
      if ( same( of, graph ) ) return layout;
   layouts_.emplace_front( graph, layoutOf( graph ) );
   if ( layouts_.size() > kLayouts ) layouts_.pop_back();
   return layouts_.front().second;
}

uint64_t Answers::follow( const Target& target, const Following::Tell& tell ) {
   const PathQuestion question = questionOf( target );
   const uint64_t follower = ++followers_;
   asking_.postAt( Worker::Clock::now(), [this, question, follower, tell] {
      following_.add( follower, textOf( question ), question, tell );
      if ( !std::exchange( looks_, true ) ) look();
   } );
   return follower;
}

void Answers::leave( uint64_t follower ) {
   asking_.postAt( Worker::Clock::now(),
                   [this, follower] { following_.remove( follower ); } );
}

// Looks take a fifth of the thread's time at most: questions have the rest.
void Answers::look() {
   looks_ = !following_.empty();
   if ( !looks_ ) return;
   const auto began = Worker::Clock::now();
   following_.look( began );
   const auto ended = Worker::Clock::now();
   const auto pause = std::max<Worker::Clock::duration>( Following::interval,
                                                         4 * ( ended - began ) );
   asking_.postAt( ended + pause, [this] { look(); } );
}

}
