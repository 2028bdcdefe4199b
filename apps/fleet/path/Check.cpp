#include "apps/fleet/path/Check.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <tuple>

#include "apps/fleet/path/detail/Checking.h"
#include "apps/program/Printable.h"
#include "apps/show/text/Words.h"

namespace Fleet {

namespace {

using Programs::printable;
using Found = Checking::Found;

using Identity = std::tuple<uint32_t, std::optional<uint32_t>, std::optional<Place>,
                            std::optional<RouteKey>>;
Identity identity( const Found& found ) {
   return { found.router, found.interface, found.other,
            found.ofLink ? std::nullopt : found.stream };
}

Checking::Chosen chosenOf( const std::vector<Found>& all ) {
   Checking::Chosen chosen;
   for ( const Found& each : all )
      if ( each.stream )
         for ( const uint32_t router : each.routers )
            chosen[router].insert( *each.stream );
   return chosen;
}

// What is found once more: state that was changing is not.
std::vector<Found> confirmed( Reader& reader, Routers& routers,
                              const CheckQuestion& question,
                              std::vector<Found> first ) {
   question.pause();
   std::set<uint32_t> suspects;
   for ( const Found& each : first )
      suspects.insert( each.routers.begin(), each.routers.end() );
   const Checking::Chosen chosen = chosenOf( first );
   routers.again( suspects );
   const auto second = Checking( reader, routers, question ).run( &chosen );
   std::set<Identity> still;
   for ( const Found& each : second ) still.insert( identity( each ) );
   std::erase_if( first, [&]( const Found& each ) {
      return still.count( identity( each ) ) == 0;
   } );
   return first;
}

Finding findingOf( const Fabric& fabric, const Found& found ) {
   const auto end = [&]( uint32_t router, std::optional<uint32_t> interface ) {
      const RouterFacts& facts = fabric.routers()[router];
      Finding::End made{ facts.name, "" };
      if ( interface && *interface < facts.links.interfaces.size() )
         made.interface = facts.links.interfaces[*interface].name;
      return made;
   };
   Finding finding{ found.judgement,
                    end( found.router, found.interface ),
                    {},
                    found.stream,
                    found.streams };
   if ( found.other )
      finding.second = end( found.other->router, found.other->interface );
   return finding;
}

}

std::vector<Finding> checkFleet( Reader& reader, const CheckQuestion& question ) {
   Routers routers( reader, question.scope, std::nullopt, false );
   std::vector<Found> found = Checking( reader, routers, question ).run( nullptr );
   if ( question.pause && !found.empty() )
      found = confirmed( reader, routers, question, std::move( found ) );
   std::vector<Finding> findings;
   findings.reserve( found.size() );
   for ( const Found& each : found )
      findings.push_back( findingOf( routers.fabric(), each ) );
   for ( const Problem& each : routers.problems() )
      findings.push_back(
         { { Verdict::unreadable, each.router + " has state that cannot be read: " +
                                     printable( each.text ) },
           { each.router, "" },
           {},
           {},
           0 } );
   std::stable_sort( findings.begin(), findings.end(),
                     []( const Finding& a, const Finding& b ) {
                        return std::tie( a.first, a.judgement.verdict ) <
                               std::tie( b.first, b.judgement.verdict );
                     } );
   return findings;
}

std::string checkText( const std::vector<Finding>& findings ) {
   if ( findings.empty() ) return "Nothing contradicts itself.\n";
   std::string out;
   for ( const Finding& each : findings ) {
      std::string stream;
      if ( each.stream ) stream = Show::keyText( *each.stream ) + "  ";
      if ( each.streams > 1 )
         stream = fmt::format( "{} routes, one of them {}", each.streams, stream );
      out += fmt::format( "{}  {}{}\n", verdictText( each.judgement.verdict ),
                          stream, sentenceOf( each.judgement ) );
   }
   return out;
}

nlohmann::ordered_json checkJson( const std::vector<Finding>& findings ) {
   auto list = nlohmann::ordered_json::array();
   for ( const Finding& each : findings ) {
      nlohmann::ordered_json json;
      json["verdict"] = verdictText( each.judgement.verdict );
      const auto end = []( const Finding::End& is ) {
         nlohmann::ordered_json made{ { "router", is.router } };
         if ( !is.interface.empty() ) made["interface"] = is.interface;
         return made;
      };
      json["at"] = end( each.first );
      if ( !each.second.router.empty() ) json["other"] = end( each.second );
      if ( each.stream ) {
         json["group"] = Vantu::valueToStrep( each.stream->group );
         json["source-address"] = each.stream->source.isUnspecified()
                                     ? "*"
                                     : Vantu::valueToStrep( each.stream->source );
         json["routes"] = each.streams;
      }
      json["text"] = sentenceOf( each.judgement );
      list.push_back( std::move( json ) );
   }
   return list;
}

}
