#include "apps/show/output/Answer.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "apps/json/RouteJson.h"
#include "apps/json/YangData.h"
#include "apps/program/Output.h"
#include "apps/show/metrics/MetricsReport.h"
#include "apps/show/reports/CheckReport.h"
#include "apps/show/reports/HistogramReport.h"
#include "apps/show/reports/InterfaceReport.h"
#include "apps/show/reports/RegisterReport.h"
#include "apps/show/reports/StatusReport.h"
#include "apps/show/text/Fold.h"
#include "apps/show/text/RouteText.h"
#include "apps/show/watch/Watch.h"

namespace Show {

namespace {

using Json = nlohmann::ordered_json;

void printText( const std::string& text ) {
   std::cout << folded( text, outputWidth() );
}

// `indent`: -1 for a line.
void printJson( const Json& document, int indent = 2 ) {
   std::cout << jsonText( document, indent ) << '\n';
}

// What is printed of mirrors, one after the other: as text, or as one JSON document in
// which each has its envelope around `member`.
class Printout {
 public:
   // `between`: what parts the text of two mirrors.
   Printout( bool json, const char* member, const char* between )
      : json_( json ), member_( member ), between_( between ) {}

   template <class Text, class ToJson>
   void add( const Mirror& mirror, Text text, ToJson json ) {
      if ( json_ ) {
         document_.push_back( envelope( mirror, member_, json() ) );
      } else {
         printText( ( first_ ? "" : between_ ) + text() );
      }
      first_ = false;
   }
   bool first() const { return first_; }
   void end() const {
      if ( json_ ) printJson( document_ );
   }

 private:
   bool json_, first_ = true;
   const char* member_;
   const char* between_;
   Json document_ = Json::array();
};

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

void printRouteJson( const Mirrors& mirrors, const Arguments& arguments ) {
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
   if ( arguments.json ) return printJson( document );
   for ( const Json& line : document ) printJson( line, -1 );
}

ExitStatus printRoutes( const Mirrors& mirrors, const Arguments& arguments ) {
   if ( arguments.json || arguments.jsonLines ) {
      printRouteJson( mirrors, arguments );
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
   Printout out( arguments.json, member, "\n" );
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

Json withAge( Json json, const Mirror& mirror ) {
   if ( const auto since = mirror.sinceLastWrite() )
      json["since-last-write"] = timeticks( *since );
   return json;
}

ExitStatus printChecked( const Mirrors& mirrors, const Arguments& arguments ) {
   Printout out( arguments.json, "pimsm-state:check", "" );
   bool found = false;
   for ( const auto& mirror : mirrors.all() ) {
      Checked checked = check( *mirror, arguments.filter );
      if ( out.first() ) checkProcess( mirrors.agentProcess(), checked );
      found = found || !checked.findings.empty();
      out.add(
         *mirror,
         [&] { return checkText( *mirror, checked ) + lastWriteText( *mirror ); },
         [&] { return withAge( checkJson( checked ), *mirror ); } );
   }
   out.end();
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
   Printout out( arguments.json, member, between );
   for ( const auto& mirror : mirrors.all() )
      out.add(
         *mirror, [&] { return text( *mirror ); },
         [&] { return json( *mirror ); } );
   out.end();
   return done;
}

ExitStatus printExplanations( const Mirrors& mirrors, const Arguments& arguments ) {
   const Question& question = arguments.question;
   Printout out( arguments.json, "pimsm-state:explanation", "\n" );
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
