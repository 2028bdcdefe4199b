// The interfaces of each VRF: the agent's record of each, and its part in the
// routes.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "apps/mirror/RouteFilter.h"

namespace Show {

// Counts of messages by type, or reason.
using Messages = std::map<std::string, uint64_t>;

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
   // In both families; none without counters. What was refused is by reason.
   Messages sent, received, refused;
};

// By name.
using Interfaces = std::map<std::string, InterfaceTotals>;

// The interfaces of the matching routes, with the counters of the agent's process.
Interfaces interfacesOf( const Mirror& mirror, const RouteFilter& filter,
                         const Published::ProcessStatus& process );

// The heading alone: "vrf default ipv4: 8 interfaces, agent running".
std::string interfacesHeading( const Mirror& mirror, const Interfaces& interfaces );
// `detail`: querier, generation id and messages, too. `now`: seconds, CLOCK_MONOTONIC.
std::string interfacesText( const Mirror& mirror, const Interfaces& interfaces,
                            bool detail, double now );
nlohmann::ordered_json interfacesJson( const Interfaces& interfaces, double now );

// "192.0.2.1, this router", "192.0.2.9, for 3m20s", "unknown": who asks the hosts.
std::string querierText( const Published::Interface& intf, double now );

}
