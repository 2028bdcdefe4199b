// What differs between two states of a thing, as lines of changes. Pure functions; any
// thread.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Show {

// Lines in the form that `pimsm-show watch --json-lines` prints, without time, VRF and
// family: `op` "add", "update" or "delete", the key's members, `is-rpt`, `interface`, and
// `changed`, each member that differs with its former and present value.
//
// Of a route's entries, trimmed, as a store has them; null for no route. Times are no
// change, and members at their default are told as they are.
std::vector<nlohmann::ordered_json> routeChanges(
   const nlohmann::ordered_json& before, const nlohmann::ordered_json& after );

// Of two lists whose elements are told apart by these members: `op` is "THING-new",
// "THING-update" or "THING-gone".
std::vector<nlohmann::ordered_json> listChanges(
   const std::string& thing, const std::vector<const char*>& keys,
   const nlohmann::ordered_json& before, const nlohmann::ordered_json& after );

}
