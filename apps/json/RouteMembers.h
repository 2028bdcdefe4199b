// The members by which JSON tells what one record of a route or of an interface holds:
// `routes` prints them, `watch` tells which of them change. Times are not among them, nor
// is what several records, or the agent's configuration, decide together.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Mirrors.h"
#include "export/Records.h"

namespace Show {

// Where a route's traffic comes in, and from which PIM neighbour. What is not known is
// empty, and so is the neighbour of a source on a link of this router: the source itself
// speaks no PIM.
struct Incoming {
   Vantu::IntfId intfId;
   Vantu::IpGenAddr neighbor;
   bool operator==( const Incoming& ) const = default;
};
Incoming incomingOf( const Route& route );
// The same of the RP tree.
Incoming rptIncomingOf( const Route& route );

using RouteRecord = Routing::Pim::SparseMode::Brane::Route;
using IntfRecord = Routing::Pim::SparseMode::Brane::Intf;

// "group" and "source-address", which is "*" of a (*,G) route.
nlohmann::ordered_json keyJson( const Routing::Pim::RouteKey& key );

// They add to an object. Of a (*,G) route's entry, or an (S,G) route's that is not of the
// RP tree: what ietf-pim-base has, and what our module adds.
void addRoute( nlohmann::ordered_json& json, const RouteRecord& record,
               const Incoming& incoming );
void addRouteState( nlohmann::ordered_json& json, const RouteRecord& record );
// Of the entry with an (S,G) route's (S,G,rpt) state.
void addRpt( nlohmann::ordered_json& json, const RouteRecord& record,
             const Incoming& incoming );

// Of their interfaces.
void addIntf( nlohmann::ordered_json& json, const IntfRecord& record );
void addRptIntf( nlohmann::ordered_json& json, const IntfRecord& record );

// A path by itself; null for the default, which is none.
nlohmann::ordered_json pathJson( const Rpf& rpf );

// As ietf-pim-base has it: "no-info" where only members or the shared tree keep it.
std::string jpState( Intf::JoinState state );

}
