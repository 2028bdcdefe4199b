// The JSON members for a single record of a route or of an interface. `routes`
// prints them, `watch` reports which of them change. They do not include times, nor
// values that depend on several records or the agent's configuration.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Mirrors.h"
#include "export/Records.h"

namespace Show {

// The incoming interface and PIM neighbour of a route's traffic; empty if unknown.
// The neighbour is also empty for a source on a link of this router: a host speaks
// no PIM.
struct Incoming {
   Vantu::IntfId intfId;
   Vantu::IpGenAddr neighbor;
   bool operator==( const Incoming& ) const = default;
};
Incoming incomingOf( const Route& route );
// The same on the RP tree.
Incoming rptIncomingOf( const Route& route );

using RouteRecord = Routing::Pim::SparseMode::Brane::Route;
using IntfRecord = Routing::Pim::SparseMode::Brane::Intf;

// "group" and "source-address"; the latter is "*" for a (*,G) route.
nlohmann::ordered_json keyJson( const Routing::Pim::RouteKey& key );

// Whole, or without the members at their default (Trim.h).
enum class Form { whole, trimmed };

// These add members to an object: for the entry of a (*,G) route, or of an (S,G)
// route without its (S,G,rpt) state, those of ietf-pim-base and those of our
// module.
void addRoute( nlohmann::ordered_json& json, const RouteRecord& record,
               const Incoming& incoming );
void addRouteState( nlohmann::ordered_json& json, const RouteRecord& record,
                    Form form = Form::whole );
// For the entry with an (S,G) route's (S,G,rpt) state.
void addRpt( nlohmann::ordered_json& json, const RouteRecord& record,
             const Incoming& incoming );

// For the interfaces of these entries.
void addIntf( nlohmann::ordered_json& json, const IntfRecord& record,
              Form form = Form::whole );
void addRptIntf( nlohmann::ordered_json& json, const IntfRecord& record );

// A path as an object; null for the default path, which means none.
nlohmann::ordered_json pathJson( const Rpf& rpf );

// The state as ietf-pim-base names it; "no-info" where only members or the shared
// tree keep the interface.
std::string jpState( Intf::JoinState state );

}
