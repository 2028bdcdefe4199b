// `history`: what changed, and why.
#pragma once

#include "apps/fleet/answers/Routers.h"

namespace Fleet {

constexpr size_t historyLines =
   1'000'000;  // of one answer, which holds them at once

struct HistoryQuestion {
   Past past;
   Wanted wanted;
   bool why = false;  // with what else the routers said of it shortly before
};

// A line of history, and the events that may be its reason, the oldest first.
struct Told {
   std::string router;
   Event event;
   std::vector<Event> reasons;
};

// In order of time over all routers. An event of the log is a line of its own only
// without `why`, where it concerns the group, or is of no group. Throws Mox::RangeError if
// there are more than `historyLines`.
std::vector<Told> historyOf( Reader& reader, const std::vector<Router>& routers,
                             const HistoryQuestion& question );

// What happened, in words safe for a terminal: "update (198.51.100.7, 239.1.2.3) ...".
std::string historyWords( const Event& event );
// A line, with a line for each reason.
std::string historyText( const Told& told );
// The event's own object, with `reasons`.
nlohmann::ordered_json historyJson( const Told& told );

}
