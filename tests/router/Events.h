// Which changes of a router's states were told as events.
#pragma once

#include <map>
#include <set>
#include <string>

#include "router/VrfRouter.h"
#include "tests/scenario/Names.h"

namespace Router::Test {

using namespace Routing::Pim::SparseMode;

// Each state by what it is of, and the events that may announce it.
using States = std::map<std::string, std::string>;

inline States statesOf( const Router::VrfRouter& router,
                        const Scenario::Names& names ) {
   States out;
   for ( const Route& route : router.model().route() ) {
      const std::string key = names.of( route.key() );
      out[key + " route"] = "there";
      out[key + " rpf"] = valueToStrep( route.rpf() );
      out[key + " onS"] = route.spTree() ? "source" : "";
      out[key + " source"] = route.katExpired() ? "" : "sends";
      for ( const Intf& intf : route.routeIntf() ) {
         const std::string at = std::string( intf.intfId().name() ) + ' ' + key;
         out[at + " join"] = intf.joinState() == Intf::noInfo
                                ? ""
                                : valueToStrep( intf.joinState() );
         out[at + " rptPrune"] = intf.rptState() == Intf::rptNoInfo ? "" : "pruned";
         out[at + " member"] = intf.localReceiverInclude()   ? "in"
                               : intf.localReceiverExclude() ? "out"
                                                             : "";
         out[at + " assert"] = intf.assertInfo().assertState == assertNoInfo
                                  ? ""
                                  : valueToStrep( intf.assertInfo().assertState ) +
                                       valueToStrep( intf.assertWinner() );
         out[at + " forward"] = intf.forward() ? "yes" : "";
      }
   }
   return out;
}

inline bool isOfRecord( const std::string& state ) {
   return state.front() != '(';
}

inline bool anyOf( const std::set<std::string>& events,
                   const std::string& prefix ) {
   const auto found = events.lower_bound( prefix );
   return found != events.end() && found->substr( 0, prefix.size() ) == prefix;
}

// What was changed without an event of that name, such as "lan (*,G) join".
inline std::set<std::string> untold( const States& before, const States& after,
                                     const std::set<std::string>& events ) {
   std::set<std::string> out;
   const auto valueIn = []( const States& states, const std::string& of ) {
      const auto found = states.find( of );
      return found == states.end() ? "" : found->second;
   };
   States all = before;
   all.insert( after.begin(), after.end() );
   for ( const auto& [of, ignored] : all ) {
      if ( valueIn( before, of ) == valueIn( after, of ) ) continue;
      // A route's other values come and go with it, and a record's forwarding.
      const std::string key = of.substr( 0, of.rfind( ' ' ) );
      const bool gone = after.count( of ) == 0;
      const bool ofRoute = !isOfRecord( of ) && of != key + " route";
      const bool came = before.count( key + " route" ) == 0;
      if ( ( ofRoute && ( gone || came ) && of != key + " source" ) ||
           ( gone && of == key + " forward" ) || ( gone && of == key + " source" ) )
         continue;
      // What went and came again between two looks is told as that.
      const std::string again =
         of == key + " forward" ? key + ' ' : key + " routeGone";
      if ( !anyOf( events, of ) && !anyOf( events, again ) )
         out.insert( of + ": " + valueIn( before, of ) + " -> " +
                     valueIn( after, of ) );
   }
   return out;
}

}
