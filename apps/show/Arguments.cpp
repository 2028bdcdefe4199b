#include "apps/show/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <sstream>

#include "apps/show/Fold.h"

namespace Show {

namespace {

// As given, before it is read.
struct Given {
   std::string group;
   std::string source;
   bool ipv4 = false;
   bool ipv6 = false;
   bool forwarding = false;
   bool notForwarding = false;
   std::array<std::string, 3> explained;  // source, group, interface
   std::string received;
   std::vector<std::string> failover;
};

// CLI11 lets no option fall through from a command that begins with a digit: each
// command has these for itself.
void declareFamily( CLI::App& app, Given& given ) {
   app.add_flag( "-4", given.ipv4, "IPv4 only" );
   app.add_flag( "-6", given.ipv6, "IPv6 only" );
}

void declareCommon( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "--root", arguments.selection.root, "Directory of the tables" )
      ->type_name( "DIR" )
      ->capture_default_str();
   app.add_option( "--vrf", arguments.selection.vrf, "One VRF, or all" )
      ->type_name( "NAME|all" )
      ->capture_default_str();
   declareFamily( app, given );
   auto* json = app.add_flag( "--json", arguments.json, "One JSON document" );
   app.add_flag( "--json-lines", arguments.jsonLines, "One JSON document a route" )
      ->excludes( json );
}

void declareRoutes( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "--group", given.group, "Groups of this prefix" )
      ->type_name( "PREFIX" );
   app.add_option( "--source", given.source, "Sources of this prefix" )
      ->type_name( "PREFIX" );
   app.add_option( "--iface", arguments.filter.iface, "With this interface" )
      ->type_name( "NAME" );
   app.add_option( "--iif", arguments.filter.iif, "With this incoming interface" )
      ->type_name( "NAME" );
   app.add_option( "--kind", arguments.filter.kind, "(*,G) or (S,G) routes" )
      ->check( CLI::IsMember( { "wc", "sg" } ) );
   auto* forwarding =
      app.add_flag( "--forwarding", given.forwarding, "Interfaces that forward" );
   app.add_flag( "--not-forwarding", given.notForwarding,
                 "Interfaces that do not forward" )
      ->excludes( forwarding );
   app.add_flag( "--count", arguments.count, "Only how many routes match" );
   app.add_flag( "--detail", arguments.detail, "Every field" );
}

void declareExplain( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "source", given.explained[0], "Source, or '*'" )->required();
   app.add_option( "group", given.explained[1], "Group" )->required();
   app.add_option( "iface", given.explained[2],
                   "Interface; without: every one of the route" );
   app.add_option( "--macro", arguments.question.macro,
                   "Macro to explain; without: the outgoing lists" )
      ->type_name( "NAME" );
   app.add_option( "--received", given.received,
                   "The received metric that the macro compares, \"[S] ADDRESS "
                   "[PREFERENCE/METRIC]\"" )
      ->type_name( "METRIC" );
   app.add_option( "--failover", given.failover,
                   "The interfaces of the fast-reroute path" )
      ->type_name( "NAME,..." )
      ->delimiter( ',' );
   app.add_flag( "--all", arguments.question.all, "Every term of every step" );
}

struct CommandRow {
   Command command;
   const char* name;
   const char* text;
   std::vector<const char*> refused;  // options that say nothing to it
};

std::vector<CommandRow> commands() {
   const std::vector<const char*> forms = { "--count", "--detail", "--json-lines" };
   std::vector<const char*> routes = forms;
   routes.insert( routes.end(), { "--iface", "--iif", "--kind", "--forwarding",
                                  "--not-forwarding" } );
   std::vector<const char*> all = routes;
   all.insert( all.end(), { "--group", "--source" } );
   std::vector<const char*> any = all;
   any.push_back( "--json" );
   return {
      { routesCommand, "routes", "Routes and interfaces (the default)", {} },
      { statusCommand, "status", "Tables: room, writer, counts", all },
      { explainCommand, "explain", "Why an interface forwards or not, term by term",
        all },
      { checkCommand, "check", "What in the tables contradicts itself", forms },
      { interfacesCommand, "interfaces",
        "Interfaces: address, DR, joins, members, asserts", forms },
      { registersCommand, "registers",
        "(S,G) whose packets are registered or not, and why", routes },
      { advertisedCommand, "advertised", "(S,G) advertised to other RPs", routes },
      { histogramCommand, "histogram",
        "How many groups sources have, and sources groups", all },
      { metricsCommand, "metrics", "Counts for Prometheus", any },
      { watchCommand,
        "watch",
        "The same live; without a terminal a line a change",
        { "--count", "--detail", "--json" } } };
}

void refuseOptions( const CLI::App& app, const CommandRow& row ) {
   for ( const char* name : row.refused ) {
      if ( app.count( name ) != 0 )
         throw CLI::ValidationError( name, "is not for this command" );
   }
}

// Throws ParseError or RangeError.
void readQuestion( Arguments& arguments, const Given& given ) {
   const auto& [source, group, intf] = given.explained;
   arguments.question.route = routeArgument( source, group );
   arguments.question.intfId = Vantu::IntfId( intf );
   if ( !given.received.empty() )
      arguments.question.received = metricArgument( given.received );
   for ( const std::string& name : given.failover )
      arguments.question.failover.emplace_back( name );
   arguments.selection.family = arguments.question.route.group.family();
}

// Throws ParseError or RangeError.
void readFilter( Arguments& arguments, const Given& given ) {
   if ( !given.group.empty() )
      arguments.filter.group = prefixArgument( given.group );
   if ( !given.source.empty() )
      arguments.filter.source = prefixArgument( given.source );
   if ( given.forwarding || given.notForwarding )
      arguments.filter.forwarding = given.forwarding;
   if ( given.ipv4 ) arguments.selection.family = Vantu::AddressFamily::ipv4;
   if ( given.ipv6 ) arguments.selection.family = Vantu::AddressFamily::ipv6;
}

// Throws CLI::ParseError, Mox::ParseError, RangeError.
Arguments parse( CLI::App& app, int argc, char** argv ) {
   Arguments arguments;
   Given given;
   declareCommon( app, arguments, given );
   declareRoutes( app, arguments, given );
   app.set_version_flag( "--version", PIMSM_VERSION );
   app.require_subcommand( 0, 1 );
   const std::vector<CommandRow> rows = commands();
   std::vector<CLI::App*> parsers;
   for ( const CommandRow& row : rows ) {
      CLI::App* parser = app.add_subcommand( row.name, row.text );
      if ( row.command == explainCommand )
         declareExplain( *parser, arguments, given );
      if ( row.command == metricsCommand )
         parser
            ->add_option( "--output", arguments.output, "Replace this file, whole" )
            ->type_name( "FILE" );
      parser->fallthrough();
      declareFamily( *parser, given );
      parsers.push_back( parser );
   }
   app.parse( argc, argv );
   if ( given.ipv4 && given.ipv6 )
      throw CLI::ValidationError( "-6", "excludes -4" );
   for ( size_t i = 0; i < rows.size(); ++i ) {
      if ( !parsers[i]->parsed() ) continue;
      arguments.command = rows[i].command;
      refuseOptions( app, rows[i] );
   }
   if ( arguments.command == explainCommand ) readQuestion( arguments, given );
   readFilter( arguments, given );
   return arguments;
}

}

std::optional<Arguments> parseArguments( int argc, char** argv ) {
   CLI::App app(
      "Shows PIM sparse-mode routes from the agent's tables.\n"
      "Exit status: 0 done; 1 no such route, or check found something; 2 wrong\n"
      "usage; 3 no tables; 4 layout not supported; 5 printed, but the agent is "
      "gone." );
   app.name( "pimsm-show" );
   try {
      return parse( app, argc, argv );
   } catch ( const CLI::Success& e ) {
      std::ostringstream text;
      app.exit( e, text, std::cerr );
      std::cout << folded( text.str(), outputWidth() );
      return std::nullopt;
   } catch ( const CLI::ParseError& e ) {
      throw WrongUsage( std::string( e.what() ) + "; see --help" );
   } catch ( const Mox::Error& e ) {
      throw WrongUsage( e.what() );
   }
}

}
