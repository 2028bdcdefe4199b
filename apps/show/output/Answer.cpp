#include "apps/show/output/Answer.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <set>
#include <tuple>

#include "apps/json/RegisterJson.h"
#include "apps/json/RouteJson.h"
#include "apps/json/RpJson.h"
#include "apps/json/YangData.h"
#include "apps/program/Output.h"
#include "apps/show/metrics/MetricsReport.h"
#include "apps/show/metrics/MetricsServer.h"
#include "apps/show/output/Print.h"
#include "apps/show/reports/CheckReport.h"
#include "apps/show/reports/HistogramReport.h"
#include "apps/show/reports/InterfaceReport.h"
#include "apps/show/reports/MemberReport.h"
#include "apps/show/reports/NeighborReport.h"
#include "apps/show/reports/RegisterReport.h"
#include "apps/show/reports/RpReport.h"
#include "apps/show/reports/TopReport.h"
#include "apps/show/text/Fold.h"
#include "apps/show/text/RouteText.h"
#include "apps/show/text/Words.h"
#include "apps/show/watch/TopScreen.h"
#include "apps/show/watch/Watch.h"
#include "platform/loop/SignalWatcher.h"

namespace Show {

namespace {

// Prints every mirror: by `text`, separated by `between`, or by `json` as the
// member `member`.
template <class Text, class ToJson>
ExitStatus printEach( const Mirrors& mirrors, const Arguments& arguments,
                      const char* between, Text text, const char* member,
                      ToJson json ) {
   Printout out( arguments, member, between );
   for ( const auto& mirror : mirrors.all() )
      out.add(
         *mirror, [&] { return text( *mirror ); },
         [&] { return json( *mirror ); } );
   out.end();
   return done;
}

// Prints the number of matches in the requested form.
void printCount( const Mirrors& mirrors, const Arguments& arguments ) {
   const auto matching = [&]( const Mirror& mirror ) {
      return selectRoutes( mirror, arguments.filter ).size();
   };
   printEach(
      mirrors, arguments, "",
      [&]( const Mirror& mirror ) {
         return routesHeading( mirror, matching( mirror ) );
      },
      "pimsm-state:route-count",
      [&]( const Mirror& mirror ) {
         return Json{ { "matching", matching( mirror ) },
                      { "routes", mirror.model->route().size() } };
      } );
}

void printRouteLines( const Mirrors& mirrors, const RouteFilter& filter,
                      const AllRates& rates ) {
   for ( const auto& mirror : mirrors.all() ) {
      for ( Json& entry : routeEntries( *mirror, filter, mirrors.now(),
                                        &rates.at( mirror.get() ) ) )
         printJson( envelope( *mirror, "topology-tree-info",
                              routesJson( *mirror, { std::move( entry ) } ) ),
                    -1 );
   }
}

void printAllOfRoutes( const Mirrors& mirrors, const Arguments& arguments,
                       const AllRates& rates ) {
   const auto text = [&]( const Mirror& mirror ) {
      const RouteForm form{ arguments.detail, arguments.oneline, arguments.sort,
                            &rates.at( &mirror ), arguments.interval.has_value() };
      return routesText( mirror, arguments.filter, form, mirrors.now() );
   };
   if ( arguments.oneline ) {
      // Deliberately not folded.
      for ( const auto& mirror : mirrors.all() )
         std::cout << ( mirror == mirrors.all().front() ? "" : "\n" )
                   << text( *mirror );
      return;
   }
   printEach( mirrors, arguments, "\n", text, "topology-tree-info",
              [&]( const Mirror& mirror ) {
                 return routesJson(
                    mirror, routeEntries( mirror, arguments.filter, mirrors.now(),
                                          &rates.at( &mirror ) ) );
              } );
}

// The counters, read twice where an interval is given.
AllRates ratesOf( Mirrors& mirrors, const std::optional<double>& interval ) {
   AllRates rates = firstRates( mirrors );
   if ( !interval ) return rates;
   pause( mirrors, *interval );
   for ( auto& [mirror, each] : rates ) each.read();
   return rates;
}

ExitStatus printRoutes( Mirrors& mirrors, const Arguments& arguments ) {
   if ( arguments.count ) {
      printCount( mirrors, arguments );
   } else {
      const AllRates rates = ratesOf( mirrors, arguments.interval );
      if ( arguments.jsonLines ) {
         printRouteLines( mirrors, arguments.filter, rates );
      } else {
         printAllOfRoutes( mirrors, arguments, rates );
      }
   }
   if ( !arguments.filter.active() ) return done;
   const bool matching = std::any_of(
      mirrors.all().begin(), mirrors.all().end(), [&]( const auto& mirror ) {
         return !selectRoutes( *mirror, arguments.filter ).empty();
      } );
   return matching ? done : nothingFound;
}

Json countJson( size_t matching, size_t all ) {
   return { { "matching", matching }, { "all", all } };
}

// Prints the rows that `select` finds in each mirror, under a heading with their
// number, by `text`, or by `json` as the member `member`. `what`: "neighbour".
template <class Select, class Text, class ToJson>
ExitStatus printRows( const Mirrors& mirrors, const Arguments& arguments,
                      const char* what, Select select, Text text,
                      const char* member, ToJson json ) {
   Printout out( arguments, arguments.count ? "pimsm-state:count" : member,
                 arguments.count ? "" : "\n" );
   bool matching = false;
   for ( const auto& mirror : mirrors.all() ) {
      const auto selected = select( *mirror, arguments.filter );
      const size_t rows = selected.rows.size();
      matching = matching || rows != 0;
      out.add(
         *mirror,
         [&] {
            std::string heading = countText( selected.all, what );
            if ( rows != selected.all )
               heading = fmt::format( "{} of {}", rows, heading );
            if ( !selected.known ) heading = std::string( what ) + "s unknown";
            heading = headingText( *mirror, heading );
            return arguments.count || rows == 0
                      ? heading
                      : heading + '\n' + text( *mirror, selected );
         },
         [&] {
            if ( !selected.known ) return Json();
            return arguments.count ? countJson( rows, selected.all )
                                   : json( selected );
         } );
   }
   out.end();
   return arguments.filter.active() && !matching ? nothingFound : done;
}

ExitStatus printNeighbors( const Mirrors& mirrors, const Arguments& arguments ) {
   const double now = mirrors.now();
   return printRows(
      mirrors, arguments, "neighbour", selectNeighbors,
      [&]( const Mirror&, const Neighbors& found ) {
         return neighborsText( found, now );
      },
      "pimsm-state:neighbor",
      [&]( const Neighbors& found ) { return neighborsJson( found, now ); } );
}

ExitStatus printMembers( const Mirrors& mirrors, const Arguments& arguments ) {
   const double now = mirrors.now();
   const std::vector<Logged> log = Events( arguments.selection.root ).take();
   return printRows(
      mirrors, arguments, "membership",
      [&log]( const Mirror& mirror, const RouteFilter& filter ) {
         return selectMembers( mirror, filter, log );
      },
      [&]( const Mirror& mirror, const Members& found ) {
         return membersText( mirror, found, now );
      },
      "pimsm-state:member",
      [&]( const Members& found ) { return membersJson( found, now ); } );
}

// The RP of one group, in the mirrors of its family.
ExitStatus printGroupRp( const Mirrors& mirrors, const Arguments& arguments ) {
   Printout out( arguments, "pimsm-state:group-rp", "" );
   bool found = false;
   for ( const auto& mirror : mirrors.all() ) {
      const GroupRp rp = groupRp( *mirror, arguments.filter.group->address() );
      found = found || rp.mapping.rule > Published::GroupRanges::Mapping::none;
      out.add(
         *mirror, [&] { return headingText( *mirror, groupRpText( rp ) ); },
         [&] { return groupRpJson( rp ); } );
   }
   out.end();
   return found ? done : nothingFound;
}

ExitStatus printRps( const Mirrors& mirrors, const Arguments& arguments ) {
   const auto& group = arguments.filter.group;
   if ( group && group->length() == Vantu::addressBits( group->family() ) &&
        !arguments.count )
      return printGroupRp( mirrors, arguments );
   return printRows(
      mirrors, arguments, "range", selectRps,
      []( const Mirror&, const RpRanges& found ) { return rpsText( found ); },
      "pimsm-state:rp-range", rpsJson );
}

template <class Row>
bool isEmpty( const Selected<Row>& selected, const RouteFilter& ) {
   return selected.rows.empty();
}
// When routes are filtered, an interface without a part in any is empty.
bool isEmpty( const Interfaces& selected, RouteFilter filter ) {
   filter.iface.clear();
   const bool routes = filter.active();
   return std::none_of( selected.begin(), selected.end(), [&]( const auto& each ) {
      return !routes || each.second.records != 0 || each.second.incoming != 0;
   } );
}

// Prints what `select` finds in each mirror, by `text`, or by `json` as the member
// `member`.
template <class Select, class Text, class ToJson>
ExitStatus printSelected( const Mirrors& mirrors, const Arguments& arguments,
                          Select select, Text text, const char* member,
                          ToJson json ) {
   Printout out( arguments, member, "\n" );
   bool matching = false;
   for ( const auto& mirror : mirrors.all() ) {
      const auto selected = select( *mirror, arguments.filter );
      matching = matching || !isEmpty( selected, arguments.filter );
      out.add(
         *mirror, [&] { return text( *mirror, selected ); },
         [&] { return json( selected ); } );
   }
   out.end();
   return arguments.filter.active() && !matching ? nothingFound : done;
}

ExitStatus printInterfaces( const Mirrors& mirrors, const Arguments& arguments ) {
   const double now = mirrors.now();
   const bool count = arguments.count;
   return printSelected(
      mirrors, arguments,
      [&]( const Mirror& mirror, const RouteFilter& filter ) {
         return interfacesOf( mirror, filter, mirrors.agentProcess() );
      },
      [&]( const Mirror& mirror, const Interfaces& found ) {
         return count ? interfacesHeading( mirror, found )
                      : interfacesText( mirror, found, arguments.detail, now );
      },
      count ? "pimsm-state:count" : "pimsm-state:interface-total",
      [&]( const Interfaces& found ) {
         return count ? Json{ { "matching", found.size() } }
                      : interfacesJson( found, now );
      } );
}

Json withAge( Json json, const Mirror& mirror ) {
   if ( const auto since = mirror.sinceLastWrite() )
      json["since-last-write"] = timeticks( *since );
   return json;
}

// A neighbor may come a moment after its interface's DR is told, as may an entry.
bool mayBeOnTheWay( const Finding& finding ) {
   return finding.kind.rfind( "entry-", 0 ) == 0 || finding.kind == "no-dr";
}

// What a second look does not find was on its way.
std::vector<Checked> checkedTwice( Mirrors& mirrors, const Arguments& arguments ) {
   constexpr double kOnTheWay = 2.5;  // s
   Events events( arguments.selection.root );
   Evidence evidence{ events.take(), thisHost(), mirrors.now() };
   const auto checkAll = [&] {
      std::vector<Checked> all;
      for ( const auto& mirror : mirrors.all() )
         all.push_back( check( *mirror, arguments.filter, evidence ) );
      return all;
   };
   std::vector<Checked> all = checkAll();
   const bool again = std::any_of( all.begin(), all.end(), []( const auto& each ) {
      return std::any_of( each.findings.begin(), each.findings.end(),
                          mayBeOnTheWay );
   } );
   if ( !again ) return all;
   pause( mirrors, kOnTheWay );
   evidence.host = thisHost();
   evidence.now = mirrors.now();
   std::vector<Checked> later = checkAll();
   for ( size_t i = 0; i < all.size(); ++i ) {
      std::set<std::tuple<std::string, Routing::Pim::RouteKey, Vantu::IntfId>>
         before;
      for ( const Finding& each : all[i].findings )
         before.emplace( each.kind, each.key, each.intfId );
      std::erase_if( later[i].findings, [&]( const Finding& finding ) {
         return mayBeOnTheWay( finding ) &&
                before.count( { finding.kind, finding.key, finding.intfId } ) == 0;
      } );
   }
   return later;
}

ExitStatus printChecked( Mirrors& mirrors, const Arguments& arguments ) {
   Printout out( arguments, "pimsm-state:check", "" );
   bool found = false;
   auto all = checkedTwice( mirrors, arguments );
   for ( size_t i = 0; i < all.size(); ++i ) {
      const Mirror& mirror = *mirrors.all()[i];
      Checked& checked = all[i];
      if ( i == 0 ) checkProcess( mirrors.agentProcess(), checked );
      found = found || !checked.findings.empty();
      out.add(
         mirror,
         [&] { return checkText( mirror, checked ) + lastWriteText( mirror ); },
         [&] { return withAge( checkJson( checked ), mirror ); } );
   }
   out.end();
   return found ? nothingFound : done;
}

// Serves until a signal ends it. VRFs come and go meanwhile, and so does the agent.
ExitStatus serveMetrics( Mirrors& mirrors, const std::string& where ) {
   Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                            [&]( int ) { mirrors.loop().stop(); } );
   const MetricsServer server( mirrors.loop(), mirrors.clock(), where, [&] {
      mirrors.followVrfs();
      return metricsText( mirrors, PIMSM_VERSION );
   } );
   complain( done, "serves http://" + server.address() + "/metrics" );
   mirrors.loop().run();
   return done;
}

ExitStatus printMetrics( Mirrors& mirrors, const Arguments& arguments ) {
   if ( !arguments.listen.empty() )
      return serveMetrics( mirrors, arguments.listen );
   std::string text = metricsText( mirrors, PIMSM_VERSION );
   if ( arguments.output.empty() ) {
      std::cout << text;
   } else {
      replaceFile( arguments.output, text );
   }
   return done;
}

ExitStatus printExplanations( const Mirrors& mirrors, const Arguments& arguments ) {
   const Question& question = arguments.question;
   Printout out( arguments, "pimsm-state:explanation", "\n" );
   for ( const auto& mirror : mirrors.all() ) {
      if ( !knows( *mirror, question ) ) continue;
      out.add(
         *mirror,
         [&] {
            return explainText( *mirror, question, mirrors.now() ) +
                   lastWriteText( *mirror );
         },
         [&] {
            return withAge( { { "answer", explainJson( *mirror, question ) } },
                            *mirror );
         } );
   }
   if ( out.first() )
      return complain( nothingFound, unknownText( mirrors, question ) );
   out.end();
   return done;
}

// In the background a terminal would stop the process.
bool atTerminal() {
   return isatty( STDOUT_FILENO ) != 0 && tcgetpgrp( STDIN_FILENO ) == getpgrp();
}

ExitStatus printTop( Mirrors& mirrors, const Arguments& arguments ) {
   constexpr double kInterval = 2.0;  // s
   constexpr size_t kFirst = 20;
   const double interval = arguments.interval.value_or( kInterval );
   Top top( mirrors, arguments.filter, arguments.by == "bits" );
   if ( !top.known() )
      return complain(
         noTables, "no forwarding process publishes counters: start pimsm-mfib" );
   if ( atTerminal() && !arguments.json ) {
      topOnScreen( mirrors, top, interval, arguments.first );
      return done;
   }
   pause( mirrors, interval );
   top.read();
   const auto streams = top.streams();
   const size_t first = arguments.first.value_or( kFirst );
   if ( !arguments.json ) {
      printText( topText( streams, first ) );
   } else {
      printEach(
         mirrors, arguments, "", []( const Mirror& ) { return std::string(); },
         "pimsm-state:stream",
         [&]( const Mirror& mirror ) {
            return topJson( streams, first, mirror );
         } );
   }
   return arguments.filter.active() && streams.empty() ? nothingFound : done;
}

ExitStatus watchThem( Mirrors& mirrors, const Arguments& arguments ) {
   watch( mirrors, arguments.filter,
          arguments.jsonLines ? watchJsonLines
          : atTerminal()      ? watchScreen
                              : watchText,
          arguments.selection.root );
   return done;
}

}

ExitStatus complain( ExitStatus status, const std::string& text ) {
   return Programs::complain( "pimsm-show", status, text );
}

ExitStatus print( Mirrors& mirrors, const Arguments& arguments ) {
   switch ( arguments.command ) {
      case watchCommand:
         return watchThem( mirrors, arguments );
      case metricsCommand:
         return printMetrics( mirrors, arguments );
      case topCommand:
         return printTop( mirrors, arguments );
      case checkCommand:
         return printChecked( mirrors, arguments );
      case interfacesCommand:
         return printInterfaces( mirrors, arguments );
      case neighborsCommand:
         return printNeighbors( mirrors, arguments );
      case rpsCommand:
         return printRps( mirrors, arguments );
      case membersCommand:
         return printMembers( mirrors, arguments );
      case histogramCommand:
         return printEach( mirrors, arguments, "\n", histogramText,
                           "pimsm-state:histogram", histogramJson );
      case explainCommand:
         return arguments.terms ? printExplanations( mirrors, arguments )
                                : printWhy( mirrors, arguments );
      case registersCommand:
         return printSelected( mirrors, arguments, selectRegisters, registersText,
                               "pimsm-state:register", registersJson );
      case advertisedCommand:
         return printSelected( mirrors, arguments, selectAdvertised, advertisedText,
                               "pimsm-state:advertised", advertisedJson );
      default:
         return printRoutes( mirrors, arguments );
   }
}

}
