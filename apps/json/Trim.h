// Entries of routes without the members that are at their default (RFC 6243, "trim"), as
// stores keep them: a third of the length. Pure functions; any thread.
#pragma once

#include <nlohmann/json.hpp>

namespace Show {

// Leaves out members at the default that yang/pimsm-state.yang gives them, and
// `outgoing-interface`, which follows from pimsm-state:interface.
nlohmann::ordered_json trimmed( nlohmann::ordered_json entry );

// The entry as it was, whatever it holds: foreign members stay.
nlohmann::ordered_json restored( nlohmann::ordered_json entry );

}
