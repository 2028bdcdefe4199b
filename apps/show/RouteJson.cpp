#include "apps/show/RouteJson.h"

#include <algorithm>

#include "apps/published/Incoming.h"
#include "apps/show/Words.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;

namespace {

void addTime( Json& json, const char* name, double time, double now ) {
   if ( time != 0.0 ) json[name] = timeticks( now - time );
}

std::string addressText( const Vantu::IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

void addRpf( Json& json, const Rpf& rpf ) {
   if ( rpf == Rpf() ) return;
   json["incoming-interface"] = rpf.intfId.name();
   json["rpf-neighbor"] = addressText( rpf.neighbor );
}

Json intfJson( const Intf& intf, double now ) {
   Json json;
   json["name"] = intf.intfId().name();
   json["forwarding"] = intf.forward();
   json["fast-forwarding"] = intf.fastForward();
   json["join-state"] = stringValue( intf.joinState() );
   addTime( json, "since-last-join", intf.lastJoinReceived(), now );
   json["rpt-state"] = stringValue( intf.rptState() );
   addTime( json, "since-last-rpt-prune", intf.lastRptPruneReceived(), now );
   json["assert-state"] = stringValue( intf.assertInfo().assertState );
   if ( intf.assertInfo().assertState != Sm::assertNoInfo ) {
      json["assert-winner"] = valueToStrep( intf.assertInfo().assertWinnerMetric );
   }
   json["local-receiver-include"] = intf.localReceiverInclude();
   json["local-receiver-exclude"] = intf.localReceiverExclude();
   return json;
}

// As ietf-pim-base has it: "no-info" where only members or the shared tree keep it.
const char* jpState( const Intf& intf ) {
   switch ( intf.joinState() ) {
      case Intf::noInfo:
         return "no-info";
      case Intf::prunePending:
         return "prune-pending";
      case Intf::joined:
         return "join";
   }
   return "no-info";
}

Json outgoingJson( const Intf& intf ) {
   Json json;
   json["name"] = intf.intfId().name();
   json["jp-state"] = jpState( intf );
   return json;
}

Json routeJson( const Route& route, const RouteFilter& filter, double now ) {
   Json json;
   bool wildcard = route.key().source.isUnspecified();
   json["group"] = addressText( route.key().group );
   json["source-address"] = wildcard ? "*" : addressText( route.key().source );
   json["is-rpt"] = wildcard;
   if ( !wildcard ) json["is-spt"] = route.spTree();
   addTime( json, "up-time", route.creationTime(), now );
   addRpf( json, Published::incomingRpf( route ) );
   Json& outgoing = json["outgoing-interface"] = Json::array();
   for ( const Intf* intf : selectIntfs( route, filter ) ) {
      if ( intf->forward() ) outgoing.push_back( outgoingJson( *intf ) );
   }
   json["pimsm-state:flags"] = route.routeFlagsString();
   json["pimsm-state:rpf-attached"] = route.rpfAttached();
   json["pimsm-state:upstream-join-state"] = stringValue( route.upJoinState() );
   json["pimsm-state:upstream-rpt-state"] = stringValue( route.upRptState() );
   Json& interfaces = json["pimsm-state:interface"] = Json::array();
   for ( const Intf* intf : selectIntfs( route, filter ) ) {
      interfaces.push_back( intfJson( *intf, now ) );
   }
   return json;
}

bool hasRptState( const Route& route ) {
   for ( const Intf& intf : route.routeIntf() ) {
      if ( intf.rptState() != Intf::rptNoInfo ) return true;
   }
   return route.upRptState() == Sm::upRptPruned;
}

// The second entry of an (S,G) route: where the RP tree would bring it in.
Json rptJson( const Route& route ) {
   Json json;
   json["group"] = addressText( route.key().group );
   json["source-address"] = addressText( route.key().source );
   json["is-rpt"] = true;
   addRpf( json, route.rpfWc() );
   return json;
}

}

Json envelope( const Mirror& mirror, Json data ) {
   Json json;
   json["vrf"] = mirror.vrf();
   json["family"] = familyName( mirror.family );
   json["writer"] = mirror.writerAlive() ? "running" : "gone";
   json["data"] = std::move( data );
   return json;
}

Json routesJson( const Mirror& mirror, const RouteFilter& filter, double now ) {
   Json list = Json::array();
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      list.push_back( routeJson( *route, filter, now ) );
      if ( !route->key().source.isUnspecified() && hasRptState( *route ) ) {
         list.push_back( rptJson( *route ) );
      }
   }
   return list;
}

}
