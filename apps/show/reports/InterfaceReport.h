// The interfaces of each VRF: the agent's record of each, and its part in the
// routes.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "apps/mirror/RouteFilter.h"

namespace Show {

struct InterfaceTotals {
   // The agent's record; nothing if it publishes none.
   std::optional<Published::Interface> published;
   uint32_t incoming = 0;  // routes with this incoming interface
   uint32_t records = 0;   // routes with this downstream interface
   uint32_t joins = 0;     // (*,G) and (S,G), prune pending included
   uint32_t rptPrunes = 0;
   uint32_t members = 0;  // routes that local receivers ask for
   uint32_t assertsWon = 0;
   uint32_t assertsLost = 0;
   uint32_t forwarding = 0;
};

// By name.
using Interfaces = std::map<std::string, InterfaceTotals>;

// The interfaces of the matching routes.
Interfaces interfacesOf( const Mirror& mirror, const RouteFilter& filter );

std::string interfacesText( const Mirror& mirror, const Interfaces& interfaces );
nlohmann::ordered_json interfacesJson( const Interfaces& interfaces );

}
