#include "apps/show/RouteJson.h"

#include "apps/published/GroupRanges.h"
#include "apps/published/Incoming.h"
#include "apps/show/Olist.h"
#include "apps/show/Words.h"
#include "apps/show/YangData.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;
using Vantu::IpGenAddr;

namespace {

void addSince( Json& json, const char* name, double time, double now ) {
   if ( time != 0.0 ) json[name] = timeticks( now - time );
}

void addIntf( Json& json, const char* name, Vantu::IntfId intfId ) {
   if ( !intfId.empty() ) json[name] = std::string( intfId.name() );
}

void addNeighbor( Json& json, const char* name, const IpGenAddr& address ) {
   if ( !address.isUnspecified() ) json[name] = Vantu::valueToStrep( address );
}

std::string flagsText( const Route& route ) {
   std::string text;
   const auto add = [&]( bool set, const char* name ) {
      if ( set ) text += ( text.empty() ? "" : " " ) + yangName( name );
   };
#define PIMSM_ADD_FLAG( X, name, ... ) add( route.name(), #name );
   PIMSM_EACH_ROUTE_FLAG( PIMSM_ADD_FLAG, )
#undef PIMSM_ADD_FLAG
   return text;
}

void addPath( Json& json, const char* name, const Rpf& rpf, bool attached ) {
   if ( rpf == Rpf() ) return;
   Json& path = json[name];
   addIntf( path, "interface", rpf.intfId );
   addNeighbor( path, "neighbor", rpf.neighbor );
   path["attached"] = attached;
   path["preference"] = rpf.preference;
   path["metric"] = rpf.metric.value;
}

// As ietf-pim-base has it: "no-info" where only members or the shared tree keep it.
std::string jpState( const Intf& intf ) {
   return intf.joinState() == Intf::joined
             ? "join"
             : yangName( stringValue( intf.joinState() ) );
}

Json winnerJson( const Sm::AssertMetric& metric ) {
   Json json;
   addNeighbor( json, "address", metric.address );
   json["rpt-bit"] = metric.rptBit;
   json["preference"] = metric.preference.value();
   json["metric"] = metric.metric.value;
   return json;
}

// Why an interface does not forward; empty where that is not known.
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
      if ( !wildcard ) json["is-spt"] = route.spTree();
      addIncoming( json, route );
      addGroup( json, route );
      if ( !wildcard ) json["msdp-learned"] = route.msdpDiscovered();
      addSince( json, "up-time", route.creationTime(), now_ );
      const auto intfs = selectIntfs( route, filter_ );
      Json& outgoing = json["outgoing-interface"] = Json::array();
      for ( const Intf* intf : intfs ) {
         if ( !intf->forward() ) continue;
         outgoing.push_back( { { "name", std::string( intf->intfId().name() ) },
                               { "jp-state", jpState( *intf ) } } );
      }
      addState( json, route );
      Json& all = json["pimsm-state:interface"] = Json::array();
      for ( const Intf* intf : intfs ) all.push_back( interface( *intf ) );
      return json;
   }

   // Where the RP tree brings the source's traffic in, and who pruned it off there.
   Json rpt( const Route& route ) const {
      Json json = key( route, true );
      addIntf( json, "incoming-interface", route.rpfWc().intfId );
      addNeighbor( json, "rpf-neighbor", route.rpfWc().neighbor );
      addGroup( json, route );
      json["pimsm-state:upstream-rpt-state"] =
         yangName( stringValue( route.upRptState() ), "upRpt" );
      Json& all = json["pimsm-state:interface"] = Json::array();
      for ( const Intf* intf : selectIntfs( route, filter_ ) ) {
         if ( intf->rptState() == Intf::rptNoInfo ) continue;
         Json entry;
         entry["name"] = std::string( intf->intfId().name() );
         entry["rpt-state"] = yangName( stringValue( intf->rptState() ), "rpt" );
         addSince( entry, "since-last-rpt-prune", intf->lastRptPruneReceived(),
                   now_ );
         all.push_back( std::move( entry ) );
      }
      return json;
   }

 private:
   static Json key( const Route& route, bool rpt ) {
      const auto& key = route.key();
      Json json;
      json["group"] = Vantu::valueToStrep( key.group );
      json["source-address"] =
         key.source.isUnspecified() ? "*" : Vantu::valueToStrep( key.source );
      json["is-rpt"] = rpt;
      return json;
   }

   static void addIncoming( Json& json, const Route& route ) {
      const Vantu::IntfId intfId = Published::incomingIntf( route );
      const Rpf rpf = Published::incomingRpf( route );
      addIntf( json, "incoming-interface", intfId );
      // A border router's interface has no neighbour of its own.
      if ( rpf.intfId == intfId ) addNeighbor( json, "rpf-neighbor", rpf.neighbor );
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

   static void addState( Json& json, const Route& route ) {
      json["pimsm-state:flags"] = flagsText( route );
      addPath( json, "pimsm-state:rpf", route.rpf(), route.rpfAttached() );
      addPath( json, "pimsm-state:previous-rpf", route.prevRpf(), false );
      addPath( json, "pimsm-state:fast-reroute-rpf", route.rpfFrr(),
               route.rpfFrrAttached() );
      addIntf( json, "pimsm-state:border-router-interface", route.mbrIif() );
      json["pimsm-state:upstream-join-state"] =
         yangName( stringValue( route.upJoinState() ), "up" );
      Json& change = json["pimsm-state:interface-switch"];
      change["state"] = yangName( stringValue( route.iifSwitchState() ) );
      change["pending"] = route.iifSwitchPending();
   }

   Json interface( const Intf& intf ) const {
      Json json;
      json["name"] = std::string( intf.intfId().name() );
      json["forwarding"] = intf.forward();
      if ( !intf.forward() ) {
         const std::string why = reason( outgoingOf( mirror_, intf ) );
         if ( !why.empty() ) json["not-forwarding-reason"] = why;
      }
      json["fast-failover-forwarding"] = intf.fastForward();
      json["join-state"] = jpState( intf );
      addSince( json, "since-last-join", intf.lastJoinReceived(), now_ );
      const Sm::AssertInfo& info = intf.assertInfo();
      json["assert-state"] = yangName( stringValue( info.assertState ), "assert" );
      if ( info.assertState != Sm::assertNoInfo )
         json["assert-winner"] = winnerJson( info.assertWinnerMetric );
      json["local-receiver-include"] = intf.localReceiverInclude();
      json["local-receiver-exclude"] = intf.localReceiverExclude();
      json["to-be-deleted"] = intf.toBeDeleted();
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

std::vector<Json> routeEntries( const Mirror& mirror, const RouteFilter& filter,
                                double now ) {
   const Entries entries( mirror, filter, now );
   std::vector<Json> all;
   for ( const Route* route : selectRoutes( mirror, filter ) ) {
      all.push_back( entries.route( *route ) );
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
