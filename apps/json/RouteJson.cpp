#include "apps/json/RouteJson.h"

#include <fmt/format.h>

#include <iterator>

#include "apps/json/YangData.h"
#include "apps/mirror/Olist.h"
#include "export/Conversion.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;

namespace {

// The reason why an interface does not forward; empty if unknown.
std::string reason( const Outgoing& outgoing ) {
   if ( outgoing.incoming ) return "incoming-interface";
   if ( outgoing.forwards != false ) return "";
   for ( const Olist& list : outgoing.olists ) {
      if ( list.decides ) return "no-receivers";
      for ( const Term& term : list.terms )
         if ( term.decides ) return term.name;
   }
   return "";
}

bool hasRptState( const Route& route ) {
   for ( const Intf& intf : route.routeIntf() ) {
      if ( intf.rptState() != Intf::rptNoInfo ) return true;
   }
   return route.upRptState() != Sm::upRptNotJoined;
}

void addOutgoing( Json& json, const std::vector<const Intf*>& intfs ) {
   Json& outgoing = json["outgoing-interface"] = Json::array();
   for ( const Intf* intf : intfs ) {
      if ( !intf->forward() ) continue;
      outgoing.push_back( { { "name", std::string( intf->intfId().name() ) },
                            { "jp-state", jpState( intf->joinState() ) } } );
   }
}

Json keyOf( const Route& route, bool rpt ) {
   Json json = keyJson( route.key() );
   json["is-rpt"] = rpt;
   return json;
}

}

RouteEntries::RouteEntries( const Mirror& mirror, const RouteFilter& filter,
                            double now )
   : mirror_( mirror ),
     filter_( filter ),
     ranges_( mirror.family, *mirror.agent ),
     form_( Form::whole ),
     now_( now ) {}

RouteEntries::RouteEntries( const Mirror& mirror, const RouteFilter& filter )
   : RouteEntries( mirror, filter, 0.0 ) {
   form_ = Form::trimmed;
}

std::vector<Json> RouteEntries::of( const Route& route ) const {
   std::vector<Json> entries = { entry( route ) };
   if ( !route.key().source.isUnspecified() && hasRptState( route ) )
      entries.push_back( rpt( route ) );
   return entries;
}

Json RouteEntries::entry( const Route& route ) const {
   Json json = keyOf( route, route.key().source.isUnspecified() );
   const auto record = Sm::Brane::doGetBraneRouteFromRoute( route );
   addRoute( json, record, incomingOf( route ) );
   addGroup( json, route );
   addSince( json, "up-time", route.creationTime() );
   const auto intfs = selectIntfs( route, filter_ );
   if ( form_ == Form::whole ) addOutgoing( json, intfs );
   addRouteState( json, record, form_ );
   Json& all = json["pimsm-state:interface"] = Json::array();
   for ( const Intf* intf : intfs ) all.push_back( interface( route, *intf ) );
   return json;
}

Json RouteEntries::rpt( const Route& route ) const {
   Json json = keyOf( route, true );
   addRpt( json, Sm::Brane::doGetBraneRouteFromRoute( route ),
           rptIncomingOf( route ) );
   addGroup( json, route );
   Json& all = json["pimsm-state:interface"] = Json::array();
   for ( const Intf* intf : selectIntfs( route, filter_ ) ) {
      if ( intf->rptState() == Intf::rptNoInfo ) continue;
      Json each;
      each["name"] = std::string( intf->intfId().name() );
      addRptIntf( each,
                  Sm::Brane::doGetBraneIntfFromRouteIntf( route.key(), *intf ) );
      addSince( each, "since-last-rpt-prune", intf->lastRptPruneReceived() );
      all.push_back( std::move( each ) );
   }
   return json;
}

Json RouteEntries::interface( const Route& route, const Intf& intf ) const {
   Json json;
   json["name"] = std::string( intf.intfId().name() );
   addIntf( json, Sm::Brane::doGetBraneIntfFromRouteIntf( route.key(), intf ),
            form_ );
   if ( !intf.forward() ) {
      const std::string why = reason( outgoingOf( mirror_, intf ) );
      if ( !why.empty() ) json["not-forwarding-reason"] = why;
   }
   addSince( json, "since-last-join", intf.lastJoinReceived() );
   return json;
}

void RouteEntries::addGroup( Json& json, const Route& route ) const {
   const auto specific = ranges_.sourceSpecific( route.key().group );
   if ( specific )
      json["mode"] = *specific ? "ietf-pim-base:pim-ssm" : "ietf-pim-base:pim-asm";
   if ( specific == true ) return;
   if ( const auto rp = ranges_.rp( route.key().group ) )
      json["rp-address"] = Vantu::valueToStrep( *rp );
}

void RouteEntries::addSince( Json& json, const char* name, double time ) const {
   if ( form_ == Form::whole && time != 0.0 ) json[name] = timeticks( now_ - time );
}

Json trafficJson( const Published::MfibCache* counters,
                  const std::optional<Rate>& rate ) {
   Json json = Json::object();
   if ( counters != nullptr ) {
      json["packets"] = std::to_string( counters->packets );
      json["octets"] = std::to_string( counters->bytes );
      json["wrong-interface-packets"] = std::to_string( counters->wrongIf );
   }
   if ( rate ) {
      json["packets-per-second"] = fmt::format( "{:.1f}", rate->packets );
      json["bits-per-second"] = fmt::format( "{:.0f}", rate->bits );
   }
   return json;
}

std::vector<Json> routeEntries( const Mirror& mirror, const RouteFilter& filter,
                                double now, const Rates* rates ) {
   const RouteEntries entries( mirror, filter, now );
   std::vector<Json> all;
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      std::vector<Json> some = entries.of( *route );
      if ( rates != nullptr ) {
         Json traffic = trafficJson( rates->counters( route->key() ),
                                     rates->rate( route->key() ) );
         if ( !traffic.empty() )
            some.front()["pimsm-state:traffic"] = std::move( traffic );
      }
      std::move( some.begin(), some.end(), std::back_inserter( all ) );
   }
   return all;
}

Json routesJson( const Mirror& mirror, std::vector<Json> entries ) {
   Json json;
   json[familyName( mirror.family ) + "-route"] = std::move( entries );
   return json;
}

}
