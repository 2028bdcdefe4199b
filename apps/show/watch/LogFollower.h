// The event log as it grows.
#pragma once

#include <functional>

#include "apps/mirror/Events.h"

namespace Show {

// Makes a line of an event, without its newline.
using EventToLine = std::function<std::string( const Logged& )>;

// Writes a line for each new event that passes the filter to standard output until
// the reader has gone, or SIGTERM or SIGINT comes; and one, at most each second, for one
// that was taken before and came again. Throws OutputError.
void followLog( Events& events, const EventFilter& filter,
                const EventToLine& line );

}
