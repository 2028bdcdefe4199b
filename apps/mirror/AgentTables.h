// The tables that the agent publishes of a VRF and family, as people are told of them.
// Event-loop thread only.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "apps/mirror/Mirrors.h"

namespace Show {

// Of the routes, then the others; what of them is not there, too.
std::vector<const MoxBrane::TableBase*> agentTables( const Mirror& mirror );

bool isReady( const MoxBrane::TableBase& table );

// Why a table that ought to be there cannot be read. Empty where it can, and where the
// agent publishes nothing of its kind.
std::string unreadableText( const MoxBrane::TableBase& table );

// "routeIntf"; "advertised", which alone has no name of its own.
std::string tableName( const MoxBrane::TableBase& table );

// Routes that wait for something; nothing where their number is not published.
struct Pending {
   const char* state;  // "unresolved", "switching", "to-be-deleted"
   std::optional<uint32_t> routes;
};
std::array<Pending, 3> pendingRoutes( const Mirror& mirror );

}
