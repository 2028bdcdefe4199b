#include "apps/show/command/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <iostream>
#include <sstream>
#include <tuple>

#include "apps/show/text/Fold.h"

namespace Show {

namespace {

// The options as text, before they are parsed.
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

std::string interfaceName( const std::string& text ) {
   if ( text.size() <= Vantu::IntfId::maxLength ) return filled( text );
   return text + " is no interface's name: it has more than " +
          std::to_string( Vantu::IntfId::maxLength ) + " bytes";
}

// Declares options for the program or a command, except those that do not apply to
// it.
class Declaration {
 public:
   using Check = std::string ( * )( const std::string& );
   using Names = std::vector<const char*>;

   Declaration( CLI::App& app, const Names& refused )
      : app_( app ), refused_( refused ) {}

   void text( const char* name, std::string& into, const char* type,
              const char* help, Check check = filled ) const {
      if ( !refuses( name ) )
         app_.add_option( name, into, help )
            ->type_name( type )
            ->check( check )
            ->capture_default_str();
   }
   void flag( const char* name, bool& into, const char* help ) const {
      if ( !refuses( name ) ) app_.add_flag( name, into, help );
   }

 private:
   bool refuses( const char* name ) const {
      return std::any_of( refused_.begin(), refused_.end(),
                          [&]( std::string_view each ) { return each == name; } );
   }

   CLI::App& app_;
   const Names& refused_;
};

void declare( const Declaration& at, Arguments& arguments, Given& given ) {
   at.text( "--root", arguments.selection.root, "DIR", "Directory of the tables" );
   at.text( "--vrf", arguments.selection.vrf, "NAME|all", "One VRF, or all" );
   at.flag( "-4", given.ipv4, "IPv4 only" );
   at.flag( "-6", given.ipv6, "IPv6 only" );
   at.text( "--group", given.group, "PREFIX", "Groups of this prefix" );
   at.text( "--source", given.source, "PREFIX", "Sources of this prefix" );
   at.text( "--iface", arguments.filter.iface, "NAME", "With this interface",
            interfaceName );
   at.text( "--iif", arguments.filter.iif, "NAME", "With this incoming interface",
            interfaceName );
   at.text( "--kind", arguments.filter.kind, "wc|sg", "(*,G) or (S,G) routes",
            []( const std::string& text ) -> std::string {
               if ( text == "wc" || text == "sg" ) return "";
               return text + " is neither wc nor sg";
            } );
   at.flag( "--forwarding", given.forwarding, "Interfaces that forward" );
   at.flag( "--not-forwarding", given.notForwarding,
            "Interfaces that do not forward" );
   at.flag( "--count", arguments.count, "Only how many routes match" );
   at.flag( "--detail", arguments.detail, "Every field" );
   at.flag( "--json", arguments.json, "One JSON document" );
   at.flag( "--json-lines", arguments.jsonLines,
            "One JSON document a route or change" );
}

// Refuses contradictions, whether the options stand before the command or behind
// it.
void refuseContradictions( const Arguments& arguments, const Given& given ) {
   const bool json = arguments.json || arguments.jsonLines;
   const std::tuple<bool, const char*, const char*> rows[] = {
      { given.ipv4 && given.ipv6, "-6", "excludes -4" },
      { given.forwarding && given.notForwarding, "--not-forwarding",
        "excludes --forwarding" },
      { arguments.json && arguments.jsonLines, "--json-lines", "excludes --json" },
      { arguments.detail && json, "--detail",
        "is for text: JSON has every field" } };
   for ( const auto& [contradict, name, says] : rows ) {
      if ( contradict ) throw CLI::ValidationError( name, says );
   }
}

void declareExplain( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "source", given.explained[0], "Source, or '*'" )->required();
   app.add_option( "group", given.explained[1], "Group" )->required();
   app.add_option( "iface", given.explained[2],
                   "Interface; without: every one of the route" )
      ->check( interfaceName );
   auto* macro = app.add_option( "--macro", arguments.question.macro,
                                 "Macro to explain; without: the outgoing lists" )
                    ->type_name( "NAME" )
                    ->check( filled );
   app.add_option( "--received", given.received,
                   "The received metric that the macro compares, \"[S] ADDRESS "
                   "[PREFERENCE/METRIC]\"" )
      ->type_name( "METRIC" )
      ->check( filled )
      ->needs( macro );
   app.add_option( "--failover", given.failover,
                   "The interfaces of the fast-reroute path" )
      ->type_name( "NAME,..." )
      ->delimiter( ',' )
      ->check( interfaceName )
      ->needs( macro );
   app.add_flag( "--all", arguments.question.all, "Every term of every step" )
      ->needs( macro );
}

struct CommandRow {
   Command command;
   const char* name;
   const char* text;
   Declaration::Names refused;  // options that do not apply to the command
};

std::vector<CommandRow> commands() {
   const Declaration::Names forms = { "--count", "--detail", "--json-lines" };
   Declaration::Names routes = forms;
   routes.insert( routes.end(), { "--iface", "--iif", "--kind", "--forwarding",
                                  "--not-forwarding" } );
   Declaration::Names all = routes;
   all.insert( all.end(), { "--group", "--source" } );
   Declaration::Names any = all;
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

// An address in the question determines its family. Throws RangeError for two
// families.
void familyIs( Arguments& arguments, Vantu::AddressFamily family,
               const std::string& text ) {
   if ( arguments.selection.family.value_or( family ) != family )
      throw Mox::RangeError( text + " is not of the address family asked for" );
   arguments.selection.family = family;
}

// Parses the question. Throws ParseError or RangeError.
void readQuestion( Arguments& arguments, const Given& given ) {
   const auto& [source, group, intf] = given.explained;
   arguments.question.route = routeArgument( source, group );
   arguments.question.intfId = Vantu::IntfId( intf );
   if ( !given.received.empty() )
      arguments.question.received = metricArgument( given.received );
   for ( const std::string& name : given.failover )
      arguments.question.failover.emplace_back( name );
   familyIs( arguments, arguments.question.route.group.family(), group );
}

// Parses the filter. Throws ParseError or RangeError.
void readFilter( Arguments& arguments, const Given& given ) {
   const auto prefix = [&]( const std::string& text, auto& into ) {
      if ( text.empty() ) return;
      into = prefixArgument( text );
      familyIs( arguments, into->address().family(), text );
   };
   if ( given.ipv4 ) arguments.selection.family = Vantu::AddressFamily::ipv4;
   if ( given.ipv6 ) arguments.selection.family = Vantu::AddressFamily::ipv6;
   prefix( given.group, arguments.filter.group );
   prefix( given.source, arguments.filter.source );
   if ( given.forwarding || given.notForwarding )
      arguments.filter.forwarding = given.forwarding;
}

// Throws CLI::ParseError, Mox::ParseError, RangeError.
Arguments parse( CLI::App& app, int argc, char** argv ) {
   Arguments arguments;
   Given given;
   declare( Declaration( app, {} ), arguments, given );
   app.set_version_flag( "--version", PIMSM_VERSION );
   app.require_subcommand( 0, 1 );
   const std::vector<CommandRow> rows = commands();
   std::vector<CLI::App*> parsers;
   for ( const CommandRow& row : rows ) {
      CLI::App* parser = app.add_subcommand( row.name, row.text );
      if ( row.command == explainCommand )
         declareExplain( *parser, arguments, given );
      if ( row.command == metricsCommand )
         Declaration( *parser, {} )
            .text( "--output", arguments.output, "FILE",
                   "Replace this file, whole" );
      // Options that the command refuses go to the program's parser, which names
      // them.
      parser->fallthrough();
      declare( Declaration( *parser, row.refused ), arguments, given );
      parsers.push_back( parser );
   }
   app.parse( argc, argv );
   for ( size_t i = 0; i < rows.size(); ++i ) {
      if ( !parsers[i]->parsed() ) continue;
      arguments.command = rows[i].command;
      refuseOptions( app, rows[i] );
   }
   refuseContradictions( arguments, given );
   readFilter( arguments, given );
   if ( arguments.command == explainCommand ) readQuestion( arguments, given );
   return arguments;
}

}

std::optional<Arguments> parseArguments( int argc, char** argv ) {
   CLI::App app(
      "Shows PIM sparse-mode routes from the agent's tables.\n"
      "Exit status: 0 done; 1 no such route, or check found something; 2 wrong\n"
      "usage; 3 no tables; 4 layout not supported; 5 printed, but the agent is "
      "gone;\n8 printed, but something read did not verify; 9 the output could not "
      "be\nwritten, or memory ran out." );
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
