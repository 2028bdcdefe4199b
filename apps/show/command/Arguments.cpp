#include "apps/show/command/Arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <limits>
#include <map>
#include <sstream>
#include <tuple>

#include "apps/show/command/Abbreviation.h"
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
   std::vector<std::string> explained;  // see readQuestion()
   std::string received;
   std::vector<std::string> failover;
   std::string since;
   std::string neighbor;
   std::vector<std::string> kinds;
};

constexpr std::pair<double, double> kIntervals = { 1.0, 3600.0 };  // s
constexpr double kUsualInterval = 2.0;                             // s
constexpr std::pair<double, double> kFirst = { 1, 1000000 };

// The check of a text that must be one of these words.
std::string oneOf( const std::string& text,
                   std::initializer_list<const char*> words ) {
   std::string all;
   for ( const char* word : words ) {
      if ( text == word ) return "";
      all += ( all.empty()                    ? ""
               : word == *( words.end() - 1 ) ? " or "
                                              : ", " ) +
             std::string( word );
   }
   return text + " is not " + all;
}

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
   template <class Number>
   void number( const char* name, Number& into,
                const std::pair<double, double>& range, const char* type,
                const char* help ) const {
      if ( !refuses( name ) )
         app_.add_option( name, into, help )
            ->type_name( type )
            ->check( CLI::Range( range.first, range.second ) );
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
   at.flag( "--oneline", arguments.oneline, "A line a route" );
   at.text( "--sort", arguments.sort, "group|packets|rate",
            "Order of the routes; most packets or the highest rate first",
            []( const std::string& text ) {
               return oneOf( text, { "group", "packets", "rate" } );
            } );
   at.number( "--interval", arguments.interval, kIntervals, "S",
              "Seconds between two readings of the counters, for rates" );
}

void declareTop( const Declaration& at, Arguments& arguments ) {
   at.text( "--by", arguments.by, "packets|bits", "What makes a stream come first",
            []( const std::string& text ) {
               return oneOf( text, { "packets", "bits" } );
            } );
   at.number( "--first", arguments.first, kFirst, "N",
              "Only so many streams; without: 20, or what the terminal holds" );
}

void declareMetrics( const Declaration& at, Arguments& arguments ) {
   at.text( "--output", arguments.output, "FILE", "Replace this file, whole" );
   at.text( "--listen", arguments.listen, "[ADDRESS:]PORT",
            "Serve the metrics by HTTP, at /metrics; without an address on this "
            "host alone" );
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
      { arguments.detail && json, "--detail", "is for text: JSON has every field" },
      { arguments.oneline && ( json || arguments.detail || arguments.count ),
        "--oneline", "is a form of its own" },
      { !arguments.listen.empty() && !arguments.output.empty(), "--listen",
        "excludes --output" } };
   for ( const auto& [contradict, name, says] : rows ) {
      if ( contradict ) throw CLI::ValidationError( name, says );
   }
}

void declareExplain( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "route", given.explained,
                   "[SOURCE|*] GROUP, and the receiver's interface or address" )
      ->type_name( "" )
      ->required()
      ->expected( 1, 3 )
      ->check( filled );
   app.add_flag( "--terms", arguments.terms,
                 "The outgoing lists of the route, term by term" );
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

void declareLog( CLI::App& app, Arguments& arguments, Given& given ) {
   app.add_option( "--since", given.since, "Only the last 10s, 5m, 2h or 1d" )
      ->type_name( "SPAN" )
      ->check( filled );
   app.add_option( "--neighbor", given.neighbor,
                   "Only events of this neighbor, host or RP" )
      ->type_name( "ADDRESS" )
      ->check( filled );
   app.add_option( "--event", given.kinds,
                   "Only events with this word in their names: join, refused" )
      ->type_name( "WORD,..." )
      ->delimiter( ',' )
      ->check( filled );
   app.add_flag( "--follow", arguments.follow, "Go on with what comes" );
}

struct CommandRow {
   Command command;
   const char* name;
   const char* text;
   Declaration::Names refused;  // options that do not apply to the command
};

std::vector<CommandRow> commands() {
   using Names = Declaration::Names;
   const auto with = []( Names names, std::initializer_list<const char*> more ) {
      names.insert( names.end(), more );
      return names;
   };
   const Names rates = { "--oneline", "--sort", "--interval" };
   const Names list = with( rates, { "--json-lines" } );
   const Names forms = with( list, { "--count", "--detail" } );
   const Names routes = with(
      forms, { "--iface", "--iif", "--kind", "--forwarding", "--not-forwarding" } );
   const Names all = with( routes, { "--group", "--source" } );
   const Names any = with( all, { "--json" } );
   Names explain = all;
   std::erase( explain, std::string_view( "--interval" ) );
   const Names rows = with(
      list, { "--detail", "--iif", "--kind", "--forwarding", "--not-forwarding" } );
   return {
      { routesCommand, "routes", "Routes and interfaces (the default)", {} },
      { statusCommand, "status", "Tables: room, writer, counts", all },
      { explainCommand, "explain", "Why a receiver gets a group, or does not",
        explain },
      { checkCommand, "check", "What in the tables contradicts itself", forms },
      { interfacesCommand, "interfaces",
        "Interfaces: state, address, DR, joins, members, asserts", list },
      { neighborsCommand, "neighbors", "PIM neighbours, as their last hellos told",
        with( rows, { "--group", "--source" } ) },
      { rpsCommand, "rps", "RPs by group range; with --group the RP of one group",
        with( rows, { "--source", "--iface" } ) },
      { membersCommand, "members", "Groups that hosts ask for, by interface",
        rows },
      { topCommand,
        "top",
        "Streams by packets or bits a second; without a terminal once",
        { "--count", "--detail", "--json-lines", "--oneline", "--sort",
          "--forwarding", "--not-forwarding" } },
      { registersCommand, "registers",
        "(S,G) whose packets are registered or not, and why", routes },
      { advertisedCommand, "advertised", "(S,G) advertised to other RPs", routes },
      { histogramCommand, "histogram",
        "How many groups sources have, and sources groups", all },
      { metricsCommand, "metrics", "Counts for Prometheus", any },
      { watchCommand, "watch", "The same live; without a terminal a line a change",
        with( rates, { "--count", "--detail", "--json" } ) },
      { logCommand, "log", "What happened, and why",
        with( rates, { "--iif", "--kind", "--forwarding", "--not-forwarding",
                       "--count", "--detail" } ) } };
}

// Completes the command, the first word that is neither an option nor an option's
// value.
void completeCommand( std::vector<std::string>& words,
                      const std::vector<const CLI::App*>& parsers,
                      const std::vector<CommandRow>& rows ) {
   const auto takesValue = [&]( const std::string& name ) {
      return std::any_of(
         parsers.begin(), parsers.end(), [&]( const auto* parser ) {
            const CLI::Option* option = parser->get_option_no_throw( name );
            return option != nullptr && option->get_items_expected_min() > 0;
         } );
   };
   std::vector<std::string_view> names;
   for ( const CommandRow& row : rows ) names.emplace_back( row.name );
   for ( size_t i = 0; i < words.size(); ++i ) {
      if ( words[i].empty() || words[i][0] != '-' ) {
         words[i] = commandOf( words[i], names );
         return;
      }
      if ( takesValue( words[i] ) ) ++i;
   }
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

// An address of either family; unspecified: it is none.
Vantu::IpGenAddr addressIn( const std::string& text ) {
   try {
      return Vantu::IpGenAddr( text );
   } catch ( const Mox::Error& ) {
      return {};
   }
}

// Splits "[SOURCE|*] GROUP [INTERFACE|ADDRESS]". A second address that is no group is
// a receiver's.
struct Asked {
   std::string source = "*", group, where;
};
Asked askedFor( const std::vector<std::string>& words ) {
   Asked asked;
   const bool pair = words.size() == 3 || words[0] == "*" ||
                     ( words.size() == 2 && addressIn( words[1] ).isMulticast() );
   if ( pair && words.size() < 2 ) throw Mox::RangeError( "explain: name a group" );
   if ( pair ) asked.source = words[0];
   asked.group = words[pair ? 1 : 0];
   const size_t place = pair ? 2 : 1;
   if ( words.size() > place ) asked.where = words[place];
   return asked;
}

// Parses the question. Throws ParseError or RangeError.
void readQuestion( Arguments& arguments, const Given& given ) {
   const auto& [source, group, where] = askedFor( given.explained );
   arguments.question.route = routeArgument( source, group );
   familyIs( arguments, arguments.question.route.group.family(), group );
   const Vantu::IpGenAddr host = addressIn( where );
   const bool isHost = !host.isUnspecified();
   if ( !isHost && !interfaceName( where.empty() ? "-" : where ).empty() )
      throw Mox::RangeError( interfaceName( where ) );
   if ( !isHost ) arguments.question.intfId = Vantu::IntfId( where );
   if ( isHost ) familyIs( arguments, host.family(), where );
   arguments.terms = arguments.terms || !arguments.question.macro.empty();
   if ( arguments.terms && isHost )
      throw Mox::RangeError( where + ": terms are of an interface, by its name" );
   arguments.receiver = { arguments.question.route.group,
                          arguments.question.route.source,
                          arguments.question.intfId, host };
   if ( !given.received.empty() )
      arguments.question.received = metricArgument( given.received );
   for ( const std::string& name : given.failover )
      arguments.question.failover.emplace_back( name );
}

// "90", "10s", "5m", "2h", "1d" in seconds. Throws RangeError.
double spanArgument( const std::string& text ) {
   static const std::map<char, double> kUnits = {
      { 's', 1 }, { 'm', 60 }, { 'h', 3600 }, { 'd', 86400 } };
   size_t digits = text.find_first_not_of( "0123456789" );
   const bool plain = digits == std::string::npos;
   if ( plain ) digits = text.size();
   const bool unit =
      !plain && digits + 1 == text.size() && kUnits.count( text.back() );
   if ( digits == 0 || digits > 9 || !( plain || unit ) )
      throw Mox::RangeError( text + " is no span of time, such as 10m" );
   return std::stod( text.substr( 0, digits ) ) *
          ( plain ? 1.0 : kUnits.at( text.back() ) );
}

// Throws ParseError or RangeError.
void readEvents( Arguments& arguments, const Given& given ) {
   EventFilter& events = arguments.events;
   events.vrf = arguments.selection.vrf;
   if ( const auto family = arguments.selection.family )
      events.ipVersion = *family == Vantu::AddressFamily::ipv4 ? 4 : 6;
   events.group = arguments.filter.group;
   events.source = arguments.filter.source;
   events.iface = arguments.filter.iface;
   events.since = given.since.empty() ? std::numeric_limits<double>::infinity()
                                      : spanArgument( given.since );
   if ( !given.neighbor.empty() )
      events.neighbor = Vantu::IpGenAddr( given.neighbor );
   for ( const std::string& word : given.kinds ) {
      const auto kinds = eventKinds( word );
      if ( kinds.empty() )
         throw Mox::RangeError( "no event has " + word + " in its name" );
      events.kinds.insert( events.kinds.end(), kinds.begin(), kinds.end() );
   }
   if ( arguments.follow && arguments.json )
      throw Mox::RangeError( "--follow has no end: use --json-lines" );
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
   std::vector<const CLI::App*> all = { &app };
   for ( const CommandRow& row : rows ) {
      CLI::App* parser = app.add_subcommand( row.name, row.text );
      if ( row.command == explainCommand )
         declareExplain( *parser, arguments, given );
      if ( row.command == logCommand ) declareLog( *parser, arguments, given );
      if ( row.command == metricsCommand )
         declareMetrics( Declaration( *parser, {} ), arguments );
      if ( row.command == topCommand )
         declareTop( Declaration( *parser, {} ), arguments );
      // Options that the command refuses go to the program's parser, which names
      // them.
      parser->fallthrough();
      declare( Declaration( *parser, row.refused ), arguments, given );
      parsers.push_back( parser );
      all.push_back( parser );
   }
   std::vector<std::string> words( argv + 1, argv + argc );
   completeCommand( words, all, rows );
   // It takes them from the end.
   std::reverse( words.begin(), words.end() );
   app.parse( std::move( words ) );
   for ( size_t i = 0; i < rows.size(); ++i ) {
      if ( !parsers[i]->parsed() ) continue;
      arguments.command = rows[i].command;
      refuseOptions( app, rows[i] );
   }
   refuseContradictions( arguments, given );
   readFilter( arguments, given );
   if ( arguments.sort == "rate" && !arguments.interval )
      arguments.interval = kUsualInterval;
   if ( arguments.command == explainCommand ) readQuestion( arguments, given );
   if ( arguments.command == logCommand ) readEvents( arguments, given );
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
