// Entries of routes as stores keep them: without the members that are at the default
// that yang/pimsm-state.yang gives them (RFC 6243, "trim"), and without
// `outgoing-interface`, which follows from pimsm-state:interface. A third of the length.
// RouteEntries makes them; these bring back what is left out. Pure functions; any thread.
#pragma once

#include <nlohmann/json.hpp>

namespace Show {

// The entry as `pimsm-show routes` prints it, whatever it holds: foreign members stay.
nlohmann::ordered_json restored( nlohmann::ordered_json entry );

// One element of its pimsm-state:interface, where `entry` is not the one of an (S,G)
// route's (S,G,rpt) state.
nlohmann::ordered_json restoredInterface( nlohmann::ordered_json interface );

// Is the entry that of an (S,G) route's (S,G,rpt) state? It has other members.
bool isRptEntry( const nlohmann::ordered_json& entry );

}
