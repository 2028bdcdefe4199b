// pimsm-fleet: answers for many routers, from stores.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

#include "apps/fleet/Arguments.h"
#include "apps/fleet/answers/Asked.h"
#include "apps/fleet/answers/Routes.h"
#include "apps/fleet/path/Check.h"
#include "apps/fleet/serve/Server.h"
#include "apps/json/YangData.h"
#include "apps/mirror/Events.h"
#include "apps/program/Ending.h"
#include "apps/program/Output.h"
#include "apps/program/Printable.h"
#include "apps/show/text/Fold.h"
#include "apps/show/text/Words.h"
#include "platform/loop/RealClock.h"
#include "platform/loop/SignalWatcher.h"

namespace Fleet {

namespace {

using namespace Programs;
using Json = nlohmann::ordered_json;

constexpr const char* kProgram = "pimsm-fleet";

// Whatever a store says, no control character but ours reaches a terminal.
void printText( const std::string& text ) {
   std::string safe;
   for ( size_t at = 0; at < text.size(); ) {
      const size_t end = std::min( text.find_first_of( "\n\t", at ), text.size() );
      safe +=
         Programs::printable( std::string_view( text ).substr( at, end - at ) );
      if ( end < text.size() ) safe += text[end];
      at = end + 1;
   }
   std::cout << Show::folded( safe, Show::outputWidth() );
}

// Items as one document, or a line each.
void printJson( const Arguments& arguments, Json list ) {
   if ( !arguments.jsonLines ) {
      std::cout << Show::jsonText( list, 2 ) << '\n';
      return;
   }
   for ( const Json& item : list ) std::cout << Show::jsonText( item ) << '\n';
}

bool wantsJson( const Arguments& arguments ) {
   return arguments.json || arguments.jsonLines;
}

std::string noVrfText( const Arguments& arguments ) {
   return "no router has " + ( arguments.wanted.vrf == "all"
                                  ? "such a VRF"
                                  : "a VRF " + arguments.wanted.vrf );
}

ExitStatus printRoutes( Reader& reader, const std::vector<Router>& routers,
                        const Arguments& arguments ) {
   const int64_t now = Show::utcMilliseconds( Show::monotonicNow() );
   size_t matching = 0, unreadable = 0;
   Json document = Json::array();
   bool isFirst = true, any = false;
   for ( const Router& router : routers ) {
      if ( !router.problem.empty() ) continue;
      for ( StoredRoutes& routes : storedRoutes(
               reader, router.name, arguments.wanted, arguments.filter ) ) {
         any = true;
         matching += routes.matching;
         unreadable += routes.unreadable;
         if ( arguments.count ) routes.entries.clear();
         if ( wantsJson( arguments ) ) {
            Json json;
            if ( arguments.count ) {
               json = { { "router", router.name },
                        { "vrf", routes.scope.vrf },
                        { "family", Show::familyName( routes.scope.family ) },
                        { "matching", routes.matching },
                        { "routes", routes.all } };
            } else {
               json = routesJson( router.name, std::move( routes ) );
            }
            document.push_back( std::move( json ) );
            continue;
         }
         if ( !std::exchange( isFirst, false ) && !arguments.count &&
              !arguments.oneline )
            std::cout << '\n';
         printText( routesText( router.name, routes, now, arguments.oneline ) );
      }
   }
   if ( wantsJson( arguments ) ) printJson( arguments, std::move( document ) );
   if ( unreadable != 0 ) return unverified;
   if ( !any ) return complain( kProgram, nothingFound, noVrfText( arguments ) );
   return matching == 0 && arguments.filter.active() ? nothingFound : done;
}

void printTold( const Arguments& arguments, const std::vector<Told>& all ) {
   if ( arguments.json ) {
      Json document = Json::array();
      for ( const Told& told : all ) document.push_back( historyJson( told ) );
      printJson( arguments, std::move( document ) );
      return;
   }
   for ( const Told& told : all ) {
      if ( arguments.jsonLines )
         std::cout << Show::jsonText( historyJson( told ) ) << '\n';
      else
         printText( historyText( told ) );
   }
}

// Asks each router for the lines after those that were told.
class Follower : public Mox::Clock::Notifiee {
 public:
   Follower( Mox::Loop& loop, Mox::Clock& clock, Reader& reader,
             const Arguments& arguments )
      : Notifiee( &clock ),
        loop_( loop ),
        reader_( reader ),
        arguments_( arguments ) {
      onTime();
   }

 private:
   static constexpr double kInterval = 0.5;  // s

   void onTime() override {
      wakeupTimeIs( clock()->now() + kInterval );
      tellAll();
      std::cout.flush();
      if ( !std::cout ) loop_.stop();
   }

   // A store that cannot be read now can be the next time.
   void tellAll() {
      try {
         for ( const Router& router : routersOf( reader_, arguments_.router ) )
            if ( router.problem.empty() ) tell( router );
      } catch ( const StoreAway& ) {
         return;
      } catch ( const StoreMissing& ) {
         return;
      }
   }

   void tell( const Router& router ) {
      const auto [last, isNew] = last_.try_emplace( router.name, 0 );
      const int64_t newest = reader_.newest( router.name );
      if ( newest < last->second ) last->second = 0;
      if ( newest == last->second && !isNew ) return;
      HistoryQuestion question = arguments_.question;
      question.past.after = last->second;
      auto all = historyOf( reader_, { router }, question );
      // What has come since is told the next time.
      std::erase_if( all,
                     [&]( const Told& told ) { return told.event.id > newest; } );
      printTold( arguments_, all );
      last->second = newest;
   }

   Mox::Loop& loop_;
   Reader& reader_;
   const Arguments& arguments_;
   std::map<std::string, int64_t> last_;
};

void follow( Reader& reader, const Arguments& arguments ) {
   std::signal( SIGPIPE, SIG_IGN );
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Mox::SignalWatcher ends( loop, { SIGTERM, SIGINT },
                            [&]( int ) { loop.stop(); } );
   const Follower follower( loop, clock, reader, arguments );
   loop.run();
}

ExitStatus printHistory( Reader& reader, const std::vector<Router>& routers,
                         const Arguments& arguments ) {
   if ( arguments.follow ) {
      follow( reader, arguments );
      return done;
   }
   const auto all = historyOf( reader, routers, arguments.question );
   printTold( arguments, all );
   if ( !all.empty() ) return done;
   return complain( kProgram, nothingFound,
                    "no line of history; --since ever looks at all of it" );
}

// Values of two routers are of slightly different times.
void awhile() {
   std::this_thread::sleep_for( std::chrono::milliseconds( 500 ) );
}

ExitStatus printPath( Reader& reader, const Arguments& arguments ) {
   PathQuestion question = arguments.path;
   question.now = wallNow();
   question.pause = awhile;
   const PathAnswer answer = findPath( reader, question );
   wantsJson( arguments )
      ? void( std::cout << Show::jsonText( pathJson( answer ),
                                           arguments.jsonLines ? -1 : 2 )
                        << '\n' )
      : printText( pathText( answer ) );
   std::cout.flush();
   bool format = false;
   for ( const Problem& problem : answer.problems ) {
      format = format || problem.format;
      if ( wantsJson( arguments ) )  // the text has it
         complain( kProgram, unverified, problem.router + ": " + problem.text );
   }
   if ( answer.broken ) return nothingFound;
   if ( format ) return layoutNotSupported;
   return answer.stale ? writerGone : done;
}

// The VRFs and families of all routers.
std::set<Scope> scopesOf( Reader& reader, const std::vector<Router>& routers,
                          const Wanted& wanted ) {
   std::set<Scope> scopes;
   for ( const Router& router : routers ) {
      if ( !router.problem.empty() ) continue;
      reader.each( router.name, keyPrefix( Key::table ),
                   [&]( const std::string& text, const std::string& ) {
                      const auto key = parseKey( text );
                      if ( key && wanted.matches( key->scope ) )
                         scopes.insert( key->scope );
                   } );
   }
   return scopes;
}

ExitStatus printCheck( Reader& reader, const std::vector<Router>& routers,
                       const Arguments& arguments ) {
   Json document = Json::array();
   bool any = false;
   const auto scopes = scopesOf( reader, routers, arguments.wanted );
   if ( scopes.empty() )
      return complain( kProgram, nothingFound, noVrfText( arguments ) );
   for ( const Scope& scope : scopes ) {
      CheckQuestion question{ scope, {}, wallNow(), awhile };
      if ( arguments.filter.group ) {
         if ( arguments.filter.group->address().family() != scope.family ) continue;
         question.groups = *arguments.filter.group;
      }
      const auto findings = checkFleet( reader, question );
      // What is stale is told, and is no contradiction.
      any = any || std::any_of( findings.begin(), findings.end(),
                                []( const Finding& each ) {
                                   return each.judgement.verdict != Verdict::stale;
                                } );
      const std::string family = Show::familyName( scope.family );
      if ( wantsJson( arguments ) ) {
         document.push_back( { { "vrf", scope.vrf },
                               { "family", family },
                               { "findings", checkJson( findings ) } } );
         continue;
      }
      printText( "vrf " + scope.vrf + ' ' + family + ": " +
                 ( findings.empty()
                      ? ""
                      : Show::countText( findings.size(), "finding" ) + '\n' ) +
                 checkText( findings ) );
   }
   if ( wantsJson( arguments ) ) printJson( arguments, std::move( document ) );
   return any ? nothingFound : done;
}

ExitStatus print( Reader& reader, const std::vector<Router>& routers,
                  const Arguments& arguments ) {
   switch ( arguments.command ) {
      case routesCommand:
         return printRoutes( reader, routers, arguments );
      case historyCommand:
         return printHistory( reader, routers, arguments );
      case checkCommand:
         return printCheck( reader, routers, arguments );
      case topCommand: {
         const auto streams = topStreams( reader, routers, arguments.wanted,
                                          arguments.by, arguments.first );
         wantsJson( arguments ) ? printJson( arguments, topJson( streams ) )
                                : printText( topText( streams ) );
         return streams.empty() ? nothingFound : done;
      }
      default:
         wantsJson( arguments )
            ? printJson( arguments, routersJson( reader, routers ) )
            : printText( routersText( reader, routers ) );
         return done;
   }
}

ExitStatus servePage( const Arguments& arguments ) {
   Server server( arguments.store, arguments.listen );
   if ( !server.isLoopback() )
      complain(
         kProgram, done,
         "others than this host reach the page, and whoever does may read all: "
         "have a proxy before it that knows users and encrypts" );
   complain( kProgram, done, "serves http://" + server.address() + '/' );
   server.run();
   return done;
}

// What a router's state is worth is said after the answer.
ExitStatus answer( const Arguments& arguments ) {
   if ( arguments.command == serveCommand ) return servePage( arguments );
   const auto reader = openReader( arguments.store );
   if ( arguments.command == forgetCommand ) {
      reader->forget( arguments.forgotten );
      return done;
   }
   // A path has words of its own for routers that are not recorded.
   if ( arguments.command == pathCommand ) return printPath( *reader, arguments );
   const auto routers = routersOf( *reader, arguments.router );
   const ExitStatus status = print( *reader, routers, arguments );
   std::cout.flush();
   ExitStatus doubt = done;
   for ( const Router& router : routers ) {
      if ( router.usable() ) continue;
      if ( arguments.command != routersCommand )
         complain( kProgram, writerGone, doubtText( router ) );
      if ( doubt != layoutNotSupported )
         doubt = router.format ? layoutNotSupported : writerGone;
   }
   return status != done ? status : doubt;
}

ExitStatus runCommand( int argc, char** argv ) {
   try {
      const auto arguments = parseArguments( argc, argv );
      return arguments ? answer( *arguments ) : done;
   } catch ( const Mox::ParseError& e ) {
      return complain( kProgram, wrongUsage, e.what() );
   } catch ( const Mox::RangeError& e ) {
      return complain( kProgram, wrongUsage, e.what() );
   } catch ( const StoreMissing& e ) {
      return complain( kProgram, noTables, e.what() );
   } catch ( const StoreFormat& e ) {
      return complain( kProgram, layoutNotSupported, e.what() );
   } catch ( const StoreHeld& e ) {
      return complain( kProgram, heldByAnother, e.what() );
   } catch ( const StoreRefuses& e ) {
      return complain( kProgram, storeRefused, e.what() );
   }
}

}

}

int main( int argc, char** argv ) {
   return Programs::ending( "pimsm-fleet",
                            [&] { return Fleet::runCommand( argc, argv ); } );
}
