#include "apps/show/Answer.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "apps/program/Output.h"
#include "apps/show/CheckReport.h"
#include "apps/show/Fold.h"
#include "apps/show/HistogramReport.h"
#include "apps/show/InterfaceReport.h"
#include "apps/show/MetricsReport.h"
#include "apps/show/RegisterReport.h"
#include "apps/show/RouteJson.h"
#include "apps/show/RouteText.h"
#include "apps/show/StatusReport.h"
#include "apps/show/Watch.h"
#include "apps/show/YangData.h"

namespace Show {

namespace {

using Json = nlohmann::ordered_json;

void printText( const std::string& text ) {
   std::cout << folded( text, outputWidth() );
}

// How many match, in whatever form was asked for.
Json countJson( const Mirror& mirror, size_t matching ) {
   Json json;
   json["matching"] = matching;
   json["routes"] = mirror.model->route().size();
   return envelope( mirror, "pimsm-state:route-count", std::move( json ) );
}

void printRouteText( const Mirrors& mirrors, const Arguments& arguments ) {
   bool first = true;
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.count ) {
         printText( routesHeading(
            *mirror, selectRoutes( *mirror, arguments.filter ).size() ) );
         continue;
      }
      printText( ( first ? "" : "\n" ) + routesText( *mirror, arguments.filter,
                                                     arguments.detail,
                                                     mirrors.now() ) );
      first = false;
   }
}

// `indent`: -1 for a line.
void printJsonDocument( const Json& document, int indent = 2 ) {
   std::cout << document.dump( indent, ' ', false, Json::error_handler_t::replace )
             << '\n';
}

void printJson( const Mirrors& mirrors, const Arguments& arguments ) {
   Json document = Json::array();
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.count ) {
         document.push_back( countJson(
            *mirror, selectRoutes( *mirror, arguments.filter ).size() ) );
         continue;
      }
      std::vector<Json> entries =
         routeEntries( *mirror, arguments.filter, mirrors.now() );
      const auto add = [&]( std::vector<Json> some ) {
         document.push_back( envelope( *mirror, "topology-tree-info",
                                       routesJson( *mirror, std::move( some ) ) ) );
      };
      if ( arguments.json ) {
         add( std::move( entries ) );
      } else {
         for ( Json& entry : entries ) add( { std::move( entry ) } );
      }
   }
   if ( arguments.json ) return printJsonDocument( document );
   for ( const Json& line : document ) printJsonDocument( line, -1 );
}

ExitStatus printRoutes( const Mirrors& mirrors, const Arguments& arguments ) {
   if ( arguments.json || arguments.jsonLines ) {
      printJson( mirrors, arguments );
   } else {
      printRouteText( mirrors, arguments );
   }
   if ( !arguments.filter.active() ) return done;
   const bool matching = std::any_of(
      mirrors.all().begin(), mirrors.all().end(), [&]( const auto& mirror ) {
         return !selectRoutes( *mirror, arguments.filter ).empty();
      } );
   return matching ? done : nothingFound;
}

template <class Row>
bool isEmpty( const Selected<Row>& selected, const RouteFilter& ) {
   return selected.rows.empty();
}
// Where routes were asked for, an interface with no part in any is none of theirs.
bool isEmpty( const Interfaces& selected, RouteFilter filter ) {
   filter.iface.clear();
   const bool routes = filter.active();
   return std::none_of( selected.begin(), selected.end(), [&]( const auto& each ) {
      return !routes || each.second.records != 0 || each.second.incoming != 0;
   } );
}

// What `select` finds in each mirror, by `text`, or by `json` as the member `member`.
template <class Select, class Text, class ToJson>
ExitStatus printSelected( const Mirrors& mirrors, const Arguments& arguments,
                          Select select, Text text, const char* member,
                          ToJson json ) {
   Json document = Json::array();
   bool first = true, matching = false;
   for ( const auto& mirror : mirrors.all() ) {
      auto selected = select( *mirror, arguments.filter );
      matching = matching || !isEmpty( selected, arguments.filter );
      if ( arguments.json ) {
         document.push_back( envelope( *mirror, member, json( selected ) ) );
      } else {
         printText( ( first ? "" : "\n" ) + text( *mirror, selected ) );
      }
      first = false;
   }
   if ( arguments.json ) printJsonDocument( document );
   return arguments.filter.active() && !matching ? nothingFound : done;
}

void addAge( Json& json, const Mirror& mirror ) {
   if ( const auto since = mirror.sinceLastWrite() )
      json["since-last-write"] = timeticks( *since );
}

ExitStatus printChecked( const Mirrors& mirrors, const Arguments& arguments ) {
   Json document = Json::array();
   bool found = false, first = true;
   for ( const auto& mirror : mirrors.all() ) {
      Checked checked = check( *mirror, arguments.filter );
      if ( std::exchange( first, false ) )
         checkProcess( mirrors.agentProcess(), checked );
      found = found || !checked.findings.empty();
      if ( arguments.json ) {
         Json json = checkJson( checked );
         addAge( json, *mirror );
         document.push_back(
            envelope( *mirror, "pimsm-state:check", std::move( json ) ) );
      } else {
         printText( checkText( *mirror, checked ) + lastWriteText( *mirror ) );
      }
   }
   if ( arguments.json ) printJsonDocument( document );
   return found ? nothingFound : done;
}

ExitStatus printMetrics( const Mirrors& mirrors, const Arguments& arguments ) {
   std::string text = metricsText( mirrors, PIMSM_VERSION );
   if ( arguments.output.empty() ) {
      std::cout << text;
   } else {
      replaceFile( arguments.output, text );
   }
   return done;
}

// Of every mirror the same, by `text` and apart by `between`, or by `json` as the member
// `member`.
template <class Text, class ToJson>
ExitStatus printEach( const Mirrors& mirrors, const Arguments& arguments,
                      const char* between, Text text, const char* member,
                      ToJson json ) {
   Json document = Json::array();
   bool first = true;
   for ( const auto& mirror : mirrors.all() ) {
      if ( arguments.json ) {
         document.push_back( envelope( *mirror, member, json( *mirror ) ) );
      } else {
         printText( ( first ? "" : between ) + text( *mirror ) );
      }
      first = false;
   }
   if ( arguments.json ) printJsonDocument( document );
   return done;
}

ExitStatus printExplanations( const Mirrors& mirrors, const Arguments& arguments ) {
   Json document = Json::array();
   bool known = false;
   for ( const auto& mirror : mirrors.all() ) {
      if ( !knows( *mirror, arguments.question ) ) continue;
      if ( arguments.json ) {
         Json answer;
         answer["answer"] = explainJson( *mirror, arguments.question );
         addAge( answer, *mirror );
         document.push_back(
            envelope( *mirror, "pimsm-state:explanation", std::move( answer ) ) );
      } else {
         printText( ( known ? "\n" : "" ) +
                    explainText( *mirror, arguments.question, mirrors.now() ) +
                    lastWriteText( *mirror ) );
      }
      known = true;
   }
   if ( !known )
      return complain( nothingFound, unknownText( mirrors, arguments.question ) );
   if ( arguments.json ) printJsonDocument( document );
   return done;
}

ExitStatus watchThem( Mirrors& mirrors, const Arguments& arguments ) {
   // In the background a terminal would stop us.
   const bool terminal =
      isatty( STDOUT_FILENO ) != 0 && tcgetpgrp( STDIN_FILENO ) == getpgrp();
   watch( mirrors, arguments.filter,
          arguments.jsonLines ? watchJsonLines
          : terminal          ? watchScreen
                              : watchText );
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
      case checkCommand:
         return printChecked( mirrors, arguments );
      case interfacesCommand:
         return printSelected( mirrors, arguments, interfacesOf, interfacesText,
                               "pimsm-state:interface-total", interfacesJson );
      case statusCommand:
         return printEach( mirrors, arguments, "", statusText, "pimsm-state:status",
                           statusJson );
      case histogramCommand:
         return printEach( mirrors, arguments, "\n", histogramText,
                           "pimsm-state:histogram", histogramJson );
      case explainCommand:
         return printExplanations( mirrors, arguments );
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
