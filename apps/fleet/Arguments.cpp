#include "apps/fleet/Arguments.h"

#include "apps/store/StoreOptions.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <map>

#include "apps/mirror/Events.h"
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

const std::map<std::string, double> kTimes = {
   { "s", 1.0 }, { "m", 60.0 }, { "h", 3600.0 }, { "d", 86400.0 } };

std::optional<Vantu::IpGenPrefix> prefixOf( const std::string& text ) {
   if ( text.empty() ) return std::nullopt;
   return Show::prefixArgument( text );
}

std::string addressOf( const std::string& text ) {
   return text.empty() || text == "*"
             ? text
             : Vantu::valueToStrep( Vantu::IpGenAddr( text ) );
}

// "90", "30m", "12h", "7d", "ever".
std::optional<double> agoOf( const std::string& given ) {
   std::string text = given;
   if ( text == "ever" ) return std::nullopt;
   double seconds = 0.0;
   try {
      const CLI::Validator units = CLI::AsNumberWithUnit(
         kTimes, CLI::AsNumberWithUnit::UNIT_OPTIONAL, "TIME" );
      if ( units( text ).empty() && CLI::detail::lexical_cast( text, seconds ) &&
           seconds >= 0 )
         return seconds;
   } catch ( const CLI::ParseError& ) {
      // Said below.
   }
   throw WrongUsage( given + " is no time: 90, 30m, 12h, 7d or ever" );
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

void takePath( Arguments& arguments, const Given& given ) {
   PathQuestion& path = arguments.path;
   path.stream.group = Vantu::IpGenAddr( given.group );
   if ( !path.stream.group.isMulticast() )
      throw WrongUsage( given.group + " is no multicast group" );
   const AddressFamily family = path.stream.group.family();
   const auto addressOfFamily = [&]( const std::string& text ) {
      const Vantu::IpGenAddr address( text );
      if ( address.family() != family )
         throw WrongUsage( text + " and " + given.group + " are of two families" );
      return address;
   };
   path.stream.source = given.source == "*"
                           ? Vantu::IpGenAddr::unspecified( family )
                           : addressOfFamily( given.source );
   if ( !given.receiver.empty() ) path.receiver = addressOfFamily( given.receiver );
   if ( arguments.wanted.ipVersion != 0 &&
        ( arguments.wanted.ipVersion == 4 ) != ( family == AddressFamily::ipv4 ) )
      throw WrongUsage( given.group + " is of the other family" );
   const bool all = arguments.wanted.vrf == "all";
   path.scope = { all ? "default" : arguments.wanted.vrf, family };
}

void take( Arguments& arguments, const Given& given ) {
   if ( arguments.json && arguments.jsonLines )
      throw WrongUsage( "--json excludes --json-lines" );
   if ( arguments.router != "all" &&
        ( arguments.command == pathCommand || arguments.command == checkCommand ) )
      throw WrongUsage( "path and check look at all routers: leave out --router" );
   if ( given.ipv4 || given.ipv6 ) arguments.wanted.ipVersion = given.ipv4 ? 4 : 6;
   if ( given.forwarding || given.notForwarding )
      arguments.filter.forwarding = given.forwarding;
   if ( arguments.command == pathCommand ) takePath( arguments, given );
   if ( arguments.command == checkCommand )
      arguments.filter.group = prefixOf( given.group );
   if ( arguments.command == routesCommand ) {
      arguments.filter.group = prefixOf( given.group );
      arguments.filter.source = prefixOf( given.source );
   }
   if ( arguments.command != historyCommand ) return;
   HistoryQuestion& question = arguments.question;
   question.wanted = arguments.wanted;
   question.past.group = addressOf( given.group );
   question.past.source = addressOf( given.source );
   arguments.since = agoOf( given.since );
   const int64_t now = Show::utcMilliseconds( Show::monotonicNow() );
   if ( arguments.since )
      question.past.since = now - static_cast<int64_t>( *arguments.since * 1000 );
   if ( !given.until.empty() ) {
      const auto until = agoOf( given.until );
      if ( !until ) throw WrongUsage( "--until ever is no end" );
      question.past.until = now - static_cast<int64_t>( *until * 1000 );
   }
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
