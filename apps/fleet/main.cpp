// pimsm-fleet: answers for many routers, from stores.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

#include "apps/fleet/Arguments.h"
#include "apps/fleet/answers/Routes.h"
#include "apps/fleet/path/Check.h"
#include "apps/json/YangData.h"
#include "apps/mirror/Events.h"
#include "apps/program/Ending.h"
#include "apps/program/Output.h"
#include "apps/program/Printable.h"
#include "apps/show/text/Fold.h"
#include "platform/loop/RealClock.h"
#include "platform/loop/SignalWatcher.h"

namespace Fleet {

namespace {

using namespace Programs;
using Json = nlohmann::ordered_json;

constexpr const char* kProgram = "pimsm-fleet";

void printText( const std::string& text ) {
   std::cout << Show::folded( text, Show::outputWidth() );
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

ExitStatus printRoutes( Reader& reader, const std::vector<Router>& routers,
                        const Arguments& arguments ) {
   const int64_t now = Show::utcMilliseconds( Show::monotonicNow() );
   size_t matching = 0, unreadable = 0;
   Json document = Json::array();
   bool isFirst = true;
   for ( const Router& router : routers ) {
      if ( !router.problem.empty() ) continue;
      for ( StoredRoutes& routes : storedRoutes(
               reader, router.name, arguments.wanted, arguments.filter ) ) {
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

// Asks again whenever a router's store has changed. Events of a moment may come in two
// steps, so what was told is remembered by its text.
class Follower : public Mox::Clock::Notifiee {
 public:
   Follower( Mox::Loop& loop, Mox::Clock& clock, Reader& reader,
             const Arguments& arguments )
      : Notifiee( &clock ),
        loop_( loop ),
        reader_( reader ),
        arguments_( arguments ),
        question_( arguments.question ) {
      onTime();
   }

 private:
   static constexpr double kInterval = 0.5;   // s
   static constexpr int64_t kBehind = 60000;  // ms that a recorder may be late

   void onTime() override {
      wakeupTimeIs( clock()->now() + kInterval );
      std::vector<Router> changed;
      for ( const Router& router : routersOf( reader_, arguments_.router ) ) {
         if ( !router.problem.empty() ) continue;
         const uint64_t version = reader_.version( router.name );
         const auto [at, isNew] = versions_.try_emplace( router.name, version );
         if ( !isNew && at->second == version ) continue;
         at->second = version;
         changed.push_back( router );
      }
      if ( changed.empty() ) return;
      std::vector<Told> fresh;
      std::set<std::string> told;
      for ( Told& each : historyOf( reader_, changed, question_ ) ) {
         told.insert( each.event.body );
         if ( !told_.contains( each.event.body ) )
            fresh.push_back( std::move( each ) );
      }
      told_.merge( told );
      question_.past.since = std::max(
         question_.past.since, Show::utcMilliseconds( clock()->now() ) - kBehind );
      printTold( arguments_, fresh );
      std::cout.flush();
      if ( !std::cout ) loop_.stop();
   }

   Mox::Loop& loop_;
   Reader& reader_;
   const Arguments& arguments_;
   HistoryQuestion question_;
   std::map<std::string, uint64_t> versions_;
   std::set<std::string> told_;
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
   return all.empty() ? nothingFound : done;
}

// Values of two routers are of slightly different times.
void awhile() {
   std::this_thread::sleep_for( std::chrono::milliseconds( 500 ) );
}

int64_t wallNow() {
   return Show::utcMilliseconds( Show::monotonicNow() );
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
   for ( const Scope& scope : scopesOf( reader, routers, arguments.wanted ) ) {
      CheckQuestion question{ scope, {}, wallNow(), awhile };
      if ( arguments.filter.group ) {
         if ( arguments.filter.group->address().family() != scope.family ) continue;
         question.groups = *arguments.filter.group;
      }
      const auto findings = checkFleet( reader, question );
      any = any || !findings.empty();
      const std::string family = Show::familyName( scope.family );
      if ( wantsJson( arguments ) ) {
         document.push_back( { { "vrf", scope.vrf },
                               { "family", family },
                               { "findings", checkJson( findings ) } } );
         continue;
      }
      printText( "vrf " + Programs::printable( scope.vrf ) + ' ' + family + ": " +
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

// What a router's state is worth is said after the answer.
ExitStatus answer( const Arguments& arguments ) {
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
      doubt = router.problem.empty() ? std::max( doubt, writerGone )
                                     : layoutNotSupported;
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
