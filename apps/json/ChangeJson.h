// A change as JSON, as `pimsm-show watch --json-lines` prints it. Event-loop thread only.
#pragma once

#include "apps/json/ChangeFeed.h"

namespace Show {

// Where the change is one of a route or an interface, the members that differ by their
// names, with what they held before and hold now. `time`: "2024-05-01T10:00:02.114Z".
nlohmann::ordered_json changeJson( const Mirror& mirror, const Change& change,
                                   const std::string& time );

}
