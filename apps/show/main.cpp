// pimsm-show: prints the exported PIM state.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "apps/show/Explain.h"
#include "apps/show/HistogramReport.h"
#include "apps/show/RegisterReport.h"
#include "apps/show/RouteJson.h"
#include "apps/show/RouteText.h"
#include "apps/show/StatusReport.h"
#include "apps/show/Words.h"

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
   bool forwarding = false;
   bool notForwarding = false;
   // explain
   std::string explained[3];  // source, group, interface
   Show::Question question;
   std::string received;
   std::vector<std::string> failover;
};

// CLI11 lets no option fall through from a command that begins with a digit: each
// command has these for itself.
void declareFamily( CLI::App& app, Arguments& arguments ) {
   app.add_flag( "-4", arguments.ipv4, "IPv4 only" );
   app.add_flag( "-6", arguments.ipv6, "IPv6 only" );
}

void declareCommon( CLI::App& app, Arguments& arguments ) {
   app.add_option( "--root", arguments.selection.root, "Directory of the tables" )
      ->type_name( "DIR" )
      ->capture_default_str();
   app.add_option( "--vrf", arguments.selection.vrf, "One VRF, or all" )
      ->type_name( "NAME|all" )
      ->capture_default_str();
   declareFamily( app, arguments );
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
   auto* forwarding = app.add_flag( "--forwarding", arguments.forwarding,
                                    "Interfaces that forward" );
   app.add_flag( "--not-forwarding", arguments.notForwarding,
                 "Interfaces that do not forward" )
      ->excludes( forwarding );
   app.add_flag( "--count", arguments.count, "Only how many routes match" );
   app.add_flag( "--detail", arguments.detail, "Every field" );
}

void declareExplain( CLI::App& app, Arguments& arguments ) {
   app.add_option( "source", arguments.explained[0], "Source, or '*'" )->required();
   app.add_option( "group", arguments.explained[1], "Group" )->required();
   app.add_option( "iface", arguments.explained[2],
                   "Interface; without: every one of the route" );
   app.add_option( "--macro", arguments.question.macro,
                   "Macro to explain; without: the outgoing lists" )
      ->type_name( "NAME" );
   app.add_option( "--received", arguments.received,
                   "The received metric that the macro compares, \"[S] ADDRESS "
                   "[PREFERENCE/METRIC]\"" )
      ->type_name( "METRIC" );
   app.add_option( "--failover", arguments.failover,
                   "The interfaces of the fast-reroute path" )
      ->type_name( "NAME,..." )
      ->delimiter( ',' );
   app.add_flag( "--all", arguments.question.all, "Every term of every step" );
}

enum Command {
   routesCommand,
   statusCommand,
   explainCommand,
   registersCommand,
   advertisedCommand,
   histogramCommand
};

bool listsSources( Command command ) {
   return command == registersCommand || command == advertisedCommand;
}

// What says which routes, and how, says nothing to other commands. Throws
// CLI::ParseError.
void refuseRouteOptions( const CLI::App& app, Command command ) {
   std::vector<const char*> refused = {
      "--iface",          "--iif",   "--kind",   "--forwarding",
      "--not-forwarding", "--count", "--detail", "--json-lines" };
   if ( !listsSources( command ) )
      refused.insert( refused.end(), { "--group", "--source" } );
   for ( const char* name : refused ) {
      if ( app.count( name ) != 0 ) {
         throw CLI::ValidationError( name, "is not for this command" );
      }
   }
}

// Throws ParseError or RangeError.
void readQuestion( Arguments& arguments ) {
   auto& [source, group, intf] = arguments.explained;
   arguments.question.route = Show::routeArgument( source, group );
   arguments.question.intfId = Vantu::IntfId( intf );
   if ( !arguments.received.empty() )
      arguments.question.received = Show::metricArgument( arguments.received );
   for ( const std::string& name : arguments.failover )
      arguments.question.failover.emplace_back( name );
   arguments.selection.family = arguments.question.route.group.family();
}

// Throws ParseError or RangeError.
void readPrefixes( Arguments& arguments ) {
   if ( !arguments.group.empty() ) {
      arguments.filter.group = Show::prefixArgument( arguments.group );
   }
   if ( !arguments.source.empty() ) {
      arguments.filter.source = Show::prefixArgument( arguments.source );
   }
   if ( arguments.forwarding || arguments.notForwarding )
      arguments.filter.forwarding = arguments.forwarding;
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

void printJsonDocument( const Json& document ) {
   std::cout << document.dump( 2, ' ', false, Json::error_handler_t::replace )
             << '\n';
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
   if ( arguments.json ) return printJsonDocument( document );
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

// What `select` finds in each mirror, by `text` or `json`.
template <class Select, class Text, class ToJson>
ExitStatus printSources( const Show::Mirrors& mirrors, const Arguments& arguments,
                         Select select, Text text, ToJson json ) {
   Json document = Json::array();
   bool first = true, matching = false;
   for ( const auto& mirror : mirrors.all() ) {
      auto selected = select( *mirror, arguments.filter );
      matching = matching || !selected.rows.empty();
      if ( arguments.json ) {
         document.push_back( Show::envelope( *mirror, json( selected ) ) );
      } else {
         std::cout << ( first ? "" : "\n" ) << text( *mirror, selected );
      }
      first = false;
   }
   if ( arguments.json ) printJsonDocument( document );
   return arguments.filter.active() && !matching ? nothingFound : done;
}

// Of every mirror the same, by `text` or `json`, apart by `between`.
template <class Text, class ToJson>
ExitStatus printEach( const Show::Mirrors& mirrors, const Arguments& arguments,
                      const char* between, Text text, ToJson json ) {
   Json document = Json::array();
   bool first = true;
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.json ) {
         document.push_back( Show::envelope( *mirror, json( *mirror ) ) );
      } else {
         std::cout << ( first ? "" : between ) << text( *mirror );
      }
      first = false;
   }
   if ( arguments.json ) printJsonDocument( document );
   return done;
}

ExitStatus printExplanations( const Show::Mirrors& mirrors,
                              const Arguments& arguments ) {
   Json document = Json::array();
   bool known = false;
   for ( const auto& mirror : mirrors.all() ) {
      if ( !Show::knows( *mirror, arguments.question ) ) continue;
      if ( arguments.json ) {
         document.push_back( Show::envelope(
            *mirror, Show::explainJson( *mirror, arguments.question ) ) );
      } else {
         std::cout << ( known ? "\n" : "" )
                   << Show::explainText( *mirror, arguments.question,
                                         mirrors.now() )
                   << Show::lastWriteText( *mirror );
      }
      known = true;
   }
   if ( arguments.json ) printJsonDocument( document );
   if ( known ) return done;
   std::cerr << "pimsm-show: no such route or interface: see pimsm-show routes\n";
   return nothingFound;
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

ExitStatus print( const Show::Mirrors& mirrors, const Arguments& arguments,
                  Command command ) {
   switch ( command ) {
      case statusCommand:
         return printEach( mirrors, arguments, "", Show::statusText,
                           Show::statusJson );
      case histogramCommand:
         return printEach( mirrors, arguments, "\n", Show::histogramText,
                           Show::histogramJson );
      case explainCommand:
         return printExplanations( mirrors, arguments );
      case registersCommand:
         return printSources( mirrors, arguments, Show::selectRegisters,
                              Show::registersText, Show::registersJson );
      case advertisedCommand:
         return printSources( mirrors, arguments, Show::selectAdvertised,
                              Show::advertisedText, Show::advertisedJson );
      default:
         return printRoutes( mirrors, arguments );
   }
}

// What keeps the command from reading the mirror's tables.
Show::Mirror::Problem problemOf( const Show::Mirror& mirror, Command command ) {
   switch ( command ) {
      case registersCommand:
         return Show::Mirror::problem( *mirror.registers );
      case advertisedCommand:
         return Show::Mirror::problem( *mirror.advertised );
      default:
         return mirror.problem();
   }
}

ExitStatus run( const Arguments& arguments, Command command ) {
   Show::Mirrors mirrors( arguments.selection );
   if ( mirrors.all().empty() ) {
      return complain( noTables, noTablesText( arguments.selection ) );
   }
   for ( const auto& mirror : mirrors.all() ) {
      Show::Mirror::Problem problem = problemOf( *mirror, command );
      if ( problem.kind == Show::Mirror::Problem::none ) continue;
      return complainOf( problem );
   }
   if ( !listsSources( command ) ) mirrors.load();
   ExitStatus result = print( mirrors, arguments, command );
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
   auto* explain = app.add_subcommand(
      "explain", "Why an interface forwards or not, term by term" );
   declareExplain( *explain, arguments );
   auto* registers = app.add_subcommand(
      "registers", "(S,G) whose packets are registered or not, and why" );
   auto* advertised =
      app.add_subcommand( "advertised", "(S,G) advertised to other RPs" );
   auto* histogram = app.add_subcommand(
      "histogram", "How many groups sources have, and sources groups" );
   app.require_subcommand( 0, 1 );
   for ( CLI::App* each :
         { routes, status, explain, registers, advertised, histogram } ) {
      each->fallthrough();
      declareFamily( *each, arguments );
   }
   Command command = routesCommand;
   try {
      app.parse( argc, argv );
      if ( arguments.ipv4 && arguments.ipv6 )
         throw CLI::ValidationError( "-6", "excludes -4" );
      if ( status->parsed() ) command = statusCommand;
      if ( explain->parsed() ) command = explainCommand;
      if ( registers->parsed() ) command = registersCommand;
      if ( advertised->parsed() ) command = advertisedCommand;
      if ( histogram->parsed() ) command = histogramCommand;
      if ( command != routesCommand ) refuseRouteOptions( app, command );
      if ( command == explainCommand ) readQuestion( arguments );
      readPrefixes( arguments );
   } catch ( const CLI::Success& e ) {
      return app.exit( e );
   } catch ( const CLI::ParseError& e ) {
      return complain( wrongUsage, std::string( e.what() ) + "; see --help" );
   } catch ( const Mox::Error& e ) {
      return complain( wrongUsage, e.what() );
   }
   try {
      return run( arguments, command );
   } catch ( const Mox::NameError& e ) {
      return complain( wrongUsage, e.what() );
   } catch ( const Mox::RangeError& e ) {
      return complain( wrongUsage, e.what() );
   } catch ( const std::exception& e ) {
      return complain( noTables, e.what() );
   }
}
