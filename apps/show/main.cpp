// pimsm-show: prints the exported PIM state.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "apps/show/RouteJson.h"
#include "apps/show/RouteText.h"
#include "apps/show/StatusReport.h"

namespace {

enum ExitStatus {
   done = 0,
   nothingFound = 1,
   wrongUsage = 2,
   noTables = 3,
   layoutNotSupported = 4,
   writerGone = 5,
};

struct Arguments {
   Show::Selection selection;
   Show::RouteFilter filter;
   std::string group;
   std::string source;
   bool ipv4 = false;
   bool ipv6 = false;
   bool json = false;
   bool jsonLines = false;
   bool count = false;
   bool detail = false;
};

void declareCommon( CLI::App& app, Arguments& arguments ) {
   app.add_option( "--root", arguments.selection.root, "Directory of the tables" )
      ->type_name( "DIR" )
      ->capture_default_str();
   app.add_option( "--vrf", arguments.selection.vrf, "One VRF, or all" )
      ->type_name( "NAME|all" )
      ->capture_default_str();
   auto* ipv4 = app.add_flag( "-4", arguments.ipv4, "IPv4 only" );
   app.add_flag( "-6", arguments.ipv6, "IPv6 only" )->excludes( ipv4 );
   auto* json = app.add_flag( "--json", arguments.json, "One JSON document" );
   app.add_flag( "--json-lines", arguments.jsonLines, "One JSON document a route" )
      ->excludes( json );
}

void declareRoutes( CLI::App& app, Arguments& arguments ) {
   app.add_option( "--group", arguments.group, "Groups of this prefix" )
      ->type_name( "PREFIX" );
   app.add_option( "--source", arguments.source, "Sources of this prefix" )
      ->type_name( "PREFIX" );
   app.add_option( "--iface", arguments.filter.iface, "With this interface" )
      ->type_name( "NAME" );
   app.add_option( "--iif", arguments.filter.iif, "With this incoming interface" )
      ->type_name( "NAME" );
   app.add_option( "--kind", arguments.filter.kind, "(*,G) or (S,G) routes" )
      ->check( CLI::IsMember( { "wc", "sg" } ) );
   app.add_flag( "--count", arguments.count, "Only how many routes match" );
   app.add_flag( "--detail", arguments.detail, "Every field" );
}

// What says which routes, and how, says nothing of tables. Throws CLI::ParseError.
void refuseRouteOptions( const CLI::App& app ) {
   for ( const char* name : { "--group", "--source", "--iface", "--iif", "--kind",
                              "--count", "--detail", "--json-lines" } ) {
      if ( app.count( name ) != 0 ) {
         throw CLI::ValidationError( name, "is for routes, not for status" );
      }
   }
}

// Throws ParseError or RangeError.
void readPrefixes( Arguments& arguments ) {
   if ( !arguments.group.empty() ) {
      arguments.filter.group = Show::prefixArgument( arguments.group );
   }
   if ( !arguments.source.empty() ) {
      arguments.filter.source = Show::prefixArgument( arguments.source );
   }
   if ( arguments.ipv4 ) arguments.selection.family = Vantu::AddressFamily::ipv4;
   if ( arguments.ipv6 ) arguments.selection.family = Vantu::AddressFamily::ipv6;
}

using Json = nlohmann::ordered_json;

// How many match, in whatever form was asked for.
Json countJson( const Show::Mirror& mirror, size_t matching ) {
   Json json;
   json["matching"] = matching;
   json["routes"] = mirror.model->route().size();
   return Show::envelope( mirror, std::move( json ) );
}

void printText( const Show::Mirrors& mirrors, const Arguments& arguments ) {
   bool first = true;
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.count ) {
         std::cout << Show::routesHeading(
            *mirror, Show::selectRoutes( *mirror, arguments.filter ).size() );
         continue;
      }
      if ( !first ) std::cout << '\n';
      first = false;
      std::cout << Show::routesText( *mirror, arguments.filter, arguments.detail,
                                     mirrors.now() );
   }
}

void printJson( const Show::Mirrors& mirrors, const Arguments& arguments ) {
   Json document = Json::array();
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.count ) {
         document.push_back( countJson(
            *mirror, Show::selectRoutes( *mirror, arguments.filter ).size() ) );
         continue;
      }
      Json list = Show::routesJson( *mirror, arguments.filter, mirrors.now() );
      if ( arguments.jsonLines ) {
         for ( Json& route : list ) {
            document.push_back( Show::envelope( *mirror, std::move( route ) ) );
         }
      } else {
         document.push_back( Show::envelope( *mirror, std::move( list ) ) );
      }
   }
   if ( arguments.json ) {
      std::cout << document.dump( 2, ' ', false, Json::error_handler_t::replace )
                << '\n';
      return;
   }
   for ( const Json& line : document ) std::cout << line.dump() << '\n';
}

ExitStatus printRoutes( const Show::Mirrors& mirrors, const Arguments& arguments ) {
   if ( arguments.json || arguments.jsonLines ) {
      printJson( mirrors, arguments );
   } else {
      printText( mirrors, arguments );
   }
   bool matching = std::any_of(
      mirrors.all().begin(), mirrors.all().end(), [&]( const auto& mirror ) {
         return !Show::selectRoutes( *mirror, arguments.filter ).empty();
      } );
   return arguments.filter.active() && !matching ? nothingFound : done;
}

ExitStatus printStatus( const Show::Mirrors& mirrors, const Arguments& arguments ) {
   Json document = Json::array();
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.json ) {
         document.push_back(
            Show::envelope( *mirror, Show::statusJson( *mirror ) ) );
      } else {
         std::cout << Show::statusText( *mirror );
      }
   }
   if ( arguments.json )
      std::cout << document.dump( 2, ' ', false, Json::error_handler_t::replace )
                << '\n';
   return done;
}

ExitStatus complain( ExitStatus status, const std::string& text ) {
   std::cerr << "pimsm-show: " << text << '\n';
   return status;
}

std::string noTablesText( const Show::Selection& selection ) {
   std::string what = "no tables";
   if ( selection.vrf != "all" ) what += " of vrf " + selection.vrf;
   return what + " under " + selection.root +
          ": start pimsm-agent, or name its --root";
}

ExitStatus complainOf( const Show::Mirror::Problem& problem ) {
   if ( problem.kind == Show::Mirror::Problem::otherLayout ) {
      return complain(
         layoutNotSupported,
         problem.text + ": use the pimsm-show of the agent's version" );
   }
   return complain( noTables,
                    problem.text + ": restart pimsm-agent, which makes it anew" );
}

void warnOfUnreadable( const Show::Mirror& mirror ) {
   uint64_t count = mirror.unreadable();
   if ( count == 0 ) return;
   std::cerr << "pimsm-show: vrf " << mirror.vrf() << ": " << count
             << " unreadable records are left out\n";
}

ExitStatus run( const Arguments& arguments, bool status ) {
   Show::Mirrors mirrors( arguments.selection );
   if ( mirrors.all().empty() ) {
      return complain( noTables, noTablesText( arguments.selection ) );
   }
   for ( const auto& mirror : mirrors.all() ) {
      Show::Mirror::Problem problem = mirror->problem();
      if ( problem.kind == Show::Mirror::Problem::none ) continue;
      return complainOf( problem );
   }
   mirrors.load();
   ExitStatus result = status ? printStatus( mirrors, arguments )
                              : printRoutes( mirrors, arguments );
   for ( const auto& mirror : mirrors.all() ) warnOfUnreadable( *mirror );
   if ( !std::cout.flush() )
      return complain( wrongUsage, "cannot write the output" );
   bool alive = std::all_of( mirrors.all().begin(), mirrors.all().end(),
                             []( const auto& m ) { return m->writerAlive(); } );
   return result == done && !alive ? writerGone : result;
}

}

int main( int argc, char** argv ) {
   CLI::App app(
      "Shows PIM sparse-mode routes from the agent's tables. Exit status: 0 "
      "done; 1 no such route; 2 wrong usage; 3 no tables; 4 layout not "
      "supported; 5 printed, but the agent is gone." );
   Arguments arguments;
   declareCommon( app, arguments );
   declareRoutes( app, arguments );
   app.set_version_flag( "--version", PIMSM_VERSION );
   auto* routes =
      app.add_subcommand( "routes", "Routes and interfaces (the default)" );
   auto* status = app.add_subcommand( "status", "Tables: room, writer, counts" );
   app.require_subcommand( 0, 1 );
   for ( CLI::App* command : { routes, status } ) command->fallthrough();
   try {
      app.parse( argc, argv );
      if ( status->parsed() ) refuseRouteOptions( app );
      readPrefixes( arguments );
   } catch ( const CLI::Success& e ) {
      return app.exit( e );
   } catch ( const CLI::ParseError& e ) {
      return complain( wrongUsage, std::string( e.what() ) + "; see --help" );
   } catch ( const Mox::Error& e ) {
      return complain( wrongUsage, e.what() );
   }
   try {
      return run( arguments, status->parsed() );
   } catch ( const std::exception& e ) {
      return complain( noTables, e.what() );
   }
}
