#include "apps/fleet/Arguments.h"

#include "apps/store/StoreOptions.h"

#include <CLI/CLI.hpp>
#include <map>

#include "apps/fleet/answers/Asked.h"
#include "apps/program/CommandLine.h"
#include "apps/program/Ending.h"

namespace Fleet {

namespace {

using namespace Programs;

// The options as text, before they are parsed.
struct Given {
   bool ipv4 = false, ipv6 = false;
   bool forwarding = false, notForwarding = false;
   std::string group, source, receiver;
   std::string since = "1h", until;
   std::string by = "rate";
};

std::optional<Vantu::IpGenPrefix> prefixOf( const std::string& text ) {
   if ( text.empty() ) return std::nullopt;
   return Show::prefixArgument( text );
}

void declareOutput( CLI::App& app, Arguments& arguments ) {
   app.add_flag( "--json", arguments.json, "One JSON document" );
   app.add_flag( "--json-lines", arguments.jsonLines, "JSON, an item a line" );
}

// Before a command and behind it.
void declareGlobal( CLI::App& app, Arguments& arguments, Given& given ) {
   declareStore( app, arguments.store, "The store to read" );
   app.add_option( "--router", arguments.router, "One router, or all" )
      ->type_name( "NAME" )
      ->check( filled )
      ->capture_default_str();
   app.add_option( "--vrf", arguments.wanted.vrf, "One VRF, or all" )
      ->type_name( "NAME" )
      ->check( filled )
      ->capture_default_str();
   auto* ipv4 = app.add_flag( "-4", given.ipv4, "IPv4 only" );
   app.add_flag( "-6", given.ipv6, "IPv6 only" )->excludes( ipv4 );
}

void declareRoutes( CLI::App& app, Arguments& arguments, Given& given ) {
   Show::RouteFilter& filter = arguments.filter;
   app.add_option( "--group", given.group, "Groups within this prefix" )
      ->type_name( "PREFIX" );
   app.add_option( "--source", given.source, "Sources within this prefix" )
      ->type_name( "PREFIX" );
   app.add_option( "--iface", filter.iface,
                   "Routes with this interface, and of theirs only it" )
      ->type_name( "NAME" )
      ->check( filled );
   app.add_option( "--iif", filter.iif, "Routes that come in there" )
      ->type_name( "NAME" )
      ->check( filled );
   app.add_option( "--kind", filter.kind, "(*,G) or (S,G) routes" )
      ->type_name( "wc|sg" )
      ->check( CLI::IsMember( { "wc", "sg" } ) );
   auto* forwarding =
      app.add_flag( "--forwarding", given.forwarding, "Interfaces that forward" );
   app.add_flag( "--not-forwarding", given.notForwarding, "Interfaces that do not" )
      ->excludes( forwarding );
   app.add_flag( "--oneline", arguments.oneline, "A line a route" );
   app.add_flag( "--count", arguments.count, "Their numbers only" );
   declareOutput( app, arguments );
}

void declareHistory( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "GROUP", given.group, "Of this group" );
   app.add_option( "SOURCE", given.source, "Of this source, and of (*,G)" );
   app.add_option( "--since", given.since, "How long ago at most: 30m, 12h, ever" )
      ->type_name( "TIME" )
      ->capture_default_str();
   app.add_option( "--until", given.until, "How long ago at least" )
      ->type_name( "TIME" );
   app.add_flag( "--why", arguments.question.why,
                 "With what the router said of it in the 5 s before" );
   app.add_flag( "--follow", arguments.follow, "Goes on until interrupted" );
   declareOutput( app, arguments );
}

void declarePath( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "SOURCE", given.source,
                   "The source, or '*' for the shared tree" )
      ->required();
   app.add_option( "GROUP", given.group, "The group" )->required();
   app.add_option( "--to", given.receiver, "Only towards this receiver" )
      ->type_name( "ADDRESS" )
      ->check( filled );
   app.add_option( "--from", arguments.path.from, "Only what is below this router" )
      ->type_name( "ROUTER" )
      ->check( filled );
   declareOutput( app, arguments );
}

void take( Arguments& arguments, const Given& given ) {
   if ( arguments.json && arguments.jsonLines )
      throw WrongUsage( "--json excludes --json-lines" );
   if ( arguments.router != "all" &&
        ( arguments.command == pathCommand || arguments.command == checkCommand ||
          arguments.command == serveCommand ) )
      throw WrongUsage(
         "path, check and serve look at all routers: leave out --router" );
   if ( given.ipv4 || given.ipv6 ) arguments.wanted.ipVersion = given.ipv4 ? 4 : 6;
   if ( given.forwarding || given.notForwarding )
      arguments.filter.forwarding = given.forwarding;
   if ( arguments.command == pathCommand )
      arguments.path = pathAsked(
         arguments.wanted,
         { given.source, given.group, given.receiver, arguments.path.from } );
   if ( arguments.command == checkCommand )
      arguments.filter.group = prefixOf( given.group );
   if ( arguments.command == routesCommand ) {
      arguments.filter.group = prefixOf( given.group );
      arguments.filter.source = prefixOf( given.source );
   }
   if ( arguments.command != historyCommand ) return;
   HistoryQuestion& question = arguments.question;
   question.wanted = arguments.wanted;
   question.past = pastAsked( given.group, given.source, given.since, given.until );
}

}

std::optional<Arguments> parseArguments( int argc, char** argv ) {
   CLI::App app(
      "Answers for many routers, from the stores that their recorders keep." );
   Arguments arguments;
   Given given;
   app.require_subcommand( 1 );
   declareGlobal( app, arguments, given );
   declareOutput( app, arguments );
   const auto command = [&]( const char* name, const char* help, Command value ) {
      CLI::App* sub = app.add_subcommand( name, help );
      sub->callback( [&arguments, value] { arguments.command = value; } );
      declareGlobal( *sub, arguments, given );
      return sub;
   };
   declareRoutes( *command( "routes", "The routes of routers", routesCommand ),
                  arguments, given );
   declareHistory( *command( "history", "What changed, and why", historyCommand ),
                   arguments, given );
   declarePath(
      *command( "path", "Where a stream flows, and where it stops", pathCommand ),
      arguments, given );
   CLI::App* check =
      command( "check", "What contradicts itself between routers", checkCommand );
   check->add_option( "--group", given.group, "Groups within this prefix" )
      ->type_name( "PREFIX" );
   declareOutput( *check, arguments );
   CLI::App* top = command( "top", "The fastest streams", topCommand );
   top->add_option( "N", arguments.first, "How many" )
      ->check( CLI::Range( 1, 1000000 ) )
      ->capture_default_str();
   top->add_option( "--by", given.by, "Their order" )
      ->type_name( "rate|packets|routers" )
      ->check( CLI::IsMember( { "rate", "packets", "routers" } ) )
      ->capture_default_str();
   declareOutput( *top, arguments );
   declareOutput(
      *command( "routers", "The routers, and who records them", routersCommand ),
      arguments );
   command( "serve", "A page for browsers: the tree of a stream, live",
            serveCommand )
      ->add_option( "--listen", arguments.listen,
                    "Where to serve it; port 0: any that is free" )
      ->type_name( "ADDRESS:PORT" )
      ->check( filled )
      ->capture_default_str();
   command( "forget", "Removes a router from the store", forgetCommand )
      ->add_option( "ROUTER", arguments.forgotten, "Its name" )
      ->required()
      ->check( filled );
   if ( !parsed( app, argc, argv ) ) return std::nullopt;
   arguments.by = given.by == "rate"      ? TopBy::rate
                  : given.by == "packets" ? TopBy::packets
                                          : TopBy::routers;
   if ( arguments.store.store.empty() )
      throw WrongUsage( "name the --store to read, or set PIMSM_STORE" );
   take( arguments, given );
   return arguments;
}

}
