// The interfaces and neighbours that the agent publishes, as JSON: what lasts of them, no
// times.
#pragma once

#include <nlohmann/json.hpp>

#include "apps/mirror/Neighbors.h"

namespace Show {

void addInterface( nlohmann::ordered_json& json, const Published::Interface& intf );
void addNeighbor( nlohmann::ordered_json& json, const NeighborRow& row );

// All of a mirror: lists `interface` and `neighbor`, in order of name and address.
nlohmann::ordered_json linksJson( const Mirror& mirror );

}
