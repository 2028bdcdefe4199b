// The tables that the agent publishes of a VRF and family, in words for people.
// Event-loop thread only.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "apps/mirror/Mirrors.h"

namespace Show {

// The routes' tables first, then the others; missing tables included.
std::vector<const MoxBrane::TableBase*> agentTables( const Mirror& mirror );

bool isReady( const MoxBrane::TableBase& table );

// The reason why an expected table cannot be read. Empty if it can, and if the
// agent publishes nothing of its kind.
std::string unreadableText( const MoxBrane::TableBase& table );

// "routeIntf"; "advertised" for the table "coll".
std::string tableName( const MoxBrane::TableBase& table );

// Routes that wait for something; no number if it is not published.
struct Pending {
   const char* state;  // "unresolved", "switching", "to-be-deleted"
   std::optional<uint32_t> routes;
};
std::array<Pending, 3> pendingRoutes( const Mirror& mirror );

// The routes in the tables, by kind. Reads every record of routes and interfaces, so
// that the mirror's unreadable() tells of them.
struct RouteCounts {
   uint32_t wc = 0;  // (*,G)
   uint32_t sg = 0;
};
RouteCounts countRoutes( const Mirror& mirror );

}
