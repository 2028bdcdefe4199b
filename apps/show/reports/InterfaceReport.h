// The interfaces of each VRF: what the agent publishes of them, and their part in the
// routes.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "apps/mirror/RouteFilter.h"

namespace Show {

struct InterfaceTotals {
   // As the agent publishes it; nothing where it does not.
   std::optional<Published::Interface> published;
   uint32_t incoming = 0;  // routes whose traffic comes in here
   uint32_t records = 0;   // of routes, as a downstream interface
   uint32_t joins = 0;     // (*,G) and (S,G), prune pending too
   uint32_t rptPrunes = 0;
   uint32_t members = 0;  // routes that local receivers ask for
   uint32_t assertsWon = 0;
   uint32_t assertsLost = 0;
   uint32_t forwarding = 0;
};

// By name.
using Interfaces = std::map<std::string, InterfaceTotals>;

// Of the matching routes.
Interfaces interfacesOf( const Mirror& mirror, const RouteFilter& filter );

std::string interfacesText( const Mirror& mirror, const Interfaces& interfaces );
nlohmann::ordered_json interfacesJson( const Interfaces& interfaces );

}
