// A change as JSON, as `pimsm-show watch --json-lines` prints it. Event-loop thread only.
#pragma once

#include "apps/json/ChangeFeed.h"

namespace Show {

// For a change of a route or an interface, each member that differs by its name,
// with its former and present value. `time`: "2024-05-01T10:00:02.114Z".
nlohmann::ordered_json changeJson( const Mirror& mirror, const Change& change,
                                   const std::string& time );

}
