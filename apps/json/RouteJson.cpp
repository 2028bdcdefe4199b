#include "apps/json/RouteJson.h"

#include <fmt/format.h>

#include "apps/json/RouteMembers.h"
#include "apps/json/YangData.h"
#include "apps/mirror/Olist.h"
#include "export/Conversion.h"
#include "published/GroupRanges.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;

namespace {

void addSince( Json& json, const char* name, double time, double now ) {
   if ( time != 0.0 ) json[name] = timeticks( now - time );
}

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

// Makes the entries of a mirror's routes.
class Entries {
 public:
   Entries( const Mirror& mirror, const RouteFilter& filter, double now )
      : mirror_( mirror ),
        filter_( filter ),
        ranges_( mirror.family, *mirror.agent ),
        now_( now ) {}

   Json route( const Route& route ) const {
      const bool wildcard = route.key().source.isUnspecified();
      Json json = key( route, wildcard );
      const auto record = Sm::Brane::doGetBraneRouteFromRoute( route );
      addRoute( json, record, incomingOf( route ) );
      addGroup( json, route );
      addSince( json, "up-time", route.creationTime(), now_ );
      const auto intfs = selectIntfs( route, filter_ );
      Json& outgoing = json["outgoing-interface"] = Json::array();
      for ( const Intf* intf : intfs ) {
         if ( !intf->forward() ) continue;
         outgoing.push_back( { { "name", std::string( intf->intfId().name() ) },
                               { "jp-state", jpState( intf->joinState() ) } } );
      }
      addRouteState( json, record );
      Json& all = json["pimsm-state:interface"] = Json::array();
      for ( const Intf* intf : intfs ) all.push_back( interface( route, *intf ) );
      return json;
   }

   // The source's incoming path on the RP tree, and the interfaces that pruned it
   // there.
   Json rpt( const Route& route ) const {
      Json json = key( route, true );
      const auto record = Sm::Brane::doGetBraneRouteFromRoute( route );
      addRpt( json, record, rptIncomingOf( route ) );
      addGroup( json, route );
      Json& all = json["pimsm-state:interface"] = Json::array();
      for ( const Intf* intf : selectIntfs( route, filter_ ) ) {
         if ( intf->rptState() == Intf::rptNoInfo ) continue;
         Json entry;
         entry["name"] = std::string( intf->intfId().name() );
         addRptIntf( entry,
                     Sm::Brane::doGetBraneIntfFromRouteIntf( route.key(), *intf ) );
         addSince( entry, "since-last-rpt-prune", intf->lastRptPruneReceived(),
                   now_ );
         all.push_back( std::move( entry ) );
      }
      return json;
   }

 private:
   static Json key( const Route& route, bool rpt ) {
      Json json = keyJson( route.key() );
      json["is-rpt"] = rpt;
      return json;
   }

   void addGroup( Json& json, const Route& route ) const {
      const auto specific = ranges_.sourceSpecific( route.key().group );
      if ( specific )
         json["mode"] =
            *specific ? "ietf-pim-base:pim-ssm" : "ietf-pim-base:pim-asm";
      if ( specific == true ) return;
      if ( const auto rp = ranges_.rp( route.key().group ) )
         json["rp-address"] = Vantu::valueToStrep( *rp );
   }

   Json interface( const Route& route, const Intf& intf ) const {
      Json json;
      json["name"] = std::string( intf.intfId().name() );
      addIntf( json, Sm::Brane::doGetBraneIntfFromRouteIntf( route.key(), intf ) );
      if ( !intf.forward() ) {
         const std::string why = reason( outgoingOf( mirror_, intf ) );
         if ( !why.empty() ) json["not-forwarding-reason"] = why;
      }
      addSince( json, "since-last-join", intf.lastJoinReceived(), now_ );
      return json;
   }

   const Mirror& mirror_;
   const RouteFilter& filter_;
   Published::GroupRanges ranges_;
   double now_;
};

bool hasRptState( const Route& route ) {
   for ( const Intf& intf : route.routeIntf() ) {
      if ( intf.rptState() != Intf::rptNoInfo ) return true;
   }
   return route.upRptState() != Sm::upRptNotJoined;
}

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
   const Entries entries( mirror, filter, now );
   std::vector<Json> all;
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      all.push_back( entries.route( *route ) );
      if ( rates != nullptr ) {
         Json traffic = trafficJson( rates->counters( route->key() ),
                                     rates->rate( route->key() ) );
         if ( !traffic.empty() )
            all.back()["pimsm-state:traffic"] = std::move( traffic );
      }
      if ( !route->key().source.isUnspecified() && hasRptState( *route ) )
         all.push_back( entries.rpt( *route ) );
   }
   return all;
}

Json routesJson( const Mirror& mirror, std::vector<Json> entries ) {
   Json json;
   json[familyName( mirror.family ) + "-route"] = std::move( entries );
   return json;
}

}
