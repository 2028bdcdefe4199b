// Follows the tables until told to stop.
#pragma once

#include "apps/show/ChangeFeed.h"

namespace Show {

enum WatchForm { watchScreen, watchText, watchJsonLines };

// A line a change, on standard output; or, in the form of a screen, the matching routes
// live on the terminal. Returns on SIGINT, SIGTERM, when nobody reads the lines any
// more, and on `q` at the screen.
void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form );

// One line, without its end. `time`: "2024-05-01T10:00:02.114Z".
std::string changeText( const Mirror& mirror, const Change& change,
                        const std::string& time );
nlohmann::ordered_json changeJson( const Mirror& mirror, const Change& change,
                                   const std::string& time );

}
