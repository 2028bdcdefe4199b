#include "apps/json/RouteMembers.h"

#include "apps/json/YangData.h"

namespace Show {

using Json = nlohmann::ordered_json;
namespace Sm = Routing::Pim::SparseMode;
using Vantu::IpGenAddr;

namespace {

void addName( Json& json, const char* name, Vantu::IntfId intfId ) {
   if ( !intfId.empty() ) json[name] = std::string( intfId.name() );
}

void addNeighbor( Json& json, const char* name, const IpGenAddr& address ) {
   if ( !address.isUnspecified() ) json[name] = Vantu::valueToStrep( address );
}

void addIncoming( Json& json, const Incoming& incoming ) {
   addName( json, "incoming-interface", incoming.intfId );
   addNeighbor( json, "rpf-neighbor", incoming.neighbor );
}

std::string flagsText( const Route::RouteFlags& flags ) {
   std::string text;
   const auto add = [&]( bool set, const char* name ) {
      if ( set ) text += ( text.empty() ? "" : " " ) + yangName( name );
   };
#define PIMSM_ADD_FLAG( X, name, ... ) add( flags.name(), #name );
   PIMSM_EACH_ROUTE_FLAG( PIMSM_ADD_FLAG, )
#undef PIMSM_ADD_FLAG
   return text;
}

// Adds members with their defaults, which the trimmed form leaves out.
class Members {
 public:
   Members( Json& json, Form form ) : json_( json ), form_( form ) {}

   void flag( const char* name, bool value ) const {
      if ( value || form_ == Form::whole ) json_[name] = value;
   }
   template <class Value, class ToText>
   void add( const char* name, Value value, Value usual, ToText text ) const {
      if ( value != usual || form_ == Form::whole ) json_[name] = text( value );
   }

 private:
   Json& json_;
   Form form_;
};

// A directly connected source is a host, no PIM neighbour.
void addPath( Json& json, const char* name, const Rpf& rpf,
              const RouteRecord& record, bool attached, Form form ) {
   if ( rpf == Rpf() ) return;
   Json& path = json[name];
   addName( path, "interface", rpf.intfId );
   if ( rpf.neighbor != record.key.source )
      addNeighbor( path, "neighbor", rpf.neighbor );
   Members( path, form ).flag( "attached", attached );
   path["preference"] = rpf.preference;
   path["metric"] = rpf.metric.value;
}

Json winnerJson( const Sm::AssertMetric& metric ) {
   Json json;
   addNeighbor( json, "address", metric.address );
   json["rpt-bit"] = metric.rptBit;
   json["preference"] = metric.preference.value();
   json["metric"] = metric.metric.value;
   return json;
}

}

Incoming incomingOf( const Route& route ) {
   Incoming incoming{ route.incomingIntf(), {} };
   const Rpf rpf = route.incomingRpf();
   if ( !route.key().source.isUnspecified() && route.rpfAttached() )
      return incoming;
   // A border router's interface has no neighbour of its own.
   if ( rpf.intfId == incoming.intfId ) incoming.neighbor = rpf.neighbor;
   return incoming;
}

Incoming rptIncomingOf( const Route& route ) {
   const Rpf rpf = route.rpfWc();
   return { rpf.intfId, rpf.neighbor };
}

Json pathJson( const Rpf& rpf ) {
   Json json;
   if ( rpf == Rpf() ) return json;
   addName( json, "interface", rpf.intfId );
   addNeighbor( json, "neighbor", rpf.neighbor );
   json["preference"] = rpf.preference;
   json["metric"] = rpf.metric.value;
   return json;
}

Json keyJson( const Routing::Pim::RouteKey& key ) {
   Json json;
   json["group"] = Vantu::valueToStrep( key.group );
   json["source-address"] =
      key.source.isUnspecified() ? "*" : Vantu::valueToStrep( key.source );
   return json;
}

void addRoute( Json& json, const RouteRecord& record, const Incoming& incoming ) {
   const bool wildcard = record.key.source.isUnspecified();
   if ( !wildcard ) json["is-spt"] = record.routeFlags.spTree();
   addIncoming( json, incoming );
   if ( !wildcard ) json["msdp-learned"] = record.routeFlags.msdpDiscovered();
}

void addRouteState( Json& json, const RouteRecord& record, Form form ) {
   const Members members( json, form );
   members.add( "pimsm-state:flags", record.routeFlags, Route::RouteFlags(),
                flagsText );
   addPath( json, "pimsm-state:rpf", record.rpf, record, record.rpfAttached, form );
   addPath( json, "pimsm-state:previous-rpf", record.prevRpf, record, false, form );
   addPath( json, "pimsm-state:fast-reroute-rpf", record.rpfFrr, record,
            record.rpfFrrAttached, form );
   addName( json, "pimsm-state:border-router-interface", record.mbrIif );
   members.add(
      "pimsm-state:upstream-join-state", record.upJoinState, Sm::upNotJoined,
      []( auto state ) { return yangName( stringValue( state ), "up" ); } );
   if ( form == Form::trimmed && record.iifSwitchState == Route::notSwitching &&
        !record.iifSwitchPending )
      return;
   Json& change = json["pimsm-state:interface-switch"];
   change["state"] = yangName( stringValue( record.iifSwitchState ) );
   change["pending"] = record.iifSwitchPending;
}

void addRpt( Json& json, const RouteRecord& record, const Incoming& incoming ) {
   addIncoming( json, incoming );
   json["pimsm-state:upstream-rpt-state"] =
      yangName( stringValue( record.upRptState ), "upRpt" );
}

void addIntf( Json& json, const IntfRecord& record, Form form ) {
   const Members members( json, form );
   members.flag( "forwarding", record.forward );
   members.flag( "fast-failover-forwarding", record.fastForward );
   members.add( "join-state", record.joinState, Intf::noInfo, jpState );
   const Sm::AssertInfo& info = record.assertInfo;
   members.add(
      "assert-state", info.assertState, Sm::assertNoInfo,
      []( auto state ) { return yangName( stringValue( state ), "assert" ); } );
   if ( info.assertState != Sm::assertNoInfo )
      json["assert-winner"] = winnerJson( info.assertWinnerMetric );
   members.flag( "local-receiver-include", record.localReceiverInclude );
   members.flag( "local-receiver-exclude", record.localReceiverExclude );
   if ( record.lastAssertAction != 0 )
      json["last-assert-action"] = record.lastAssertAction;
   members.flag( "to-be-deleted", record.toBeDeleted );
   members.flag( "allow-rp-in-use", record.allowRpInUse );
}

void addRptIntf( Json& json, const IntfRecord& record ) {
   json["rpt-state"] = yangName( stringValue( record.rptState ), "rpt" );
}

std::string jpState( Intf::JoinState state ) {
   return state == Intf::joined ? "join" : yangName( stringValue( state ) );
}

}
