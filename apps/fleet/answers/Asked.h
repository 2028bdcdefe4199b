// Questions made of what a user wrote, on the command line or in a page's address. All
// throw Mox::ParseError or Programs::WrongUsage with a sentence about what is wrong.
#pragma once

#include <optional>
#include <string>

#include "apps/fleet/answers/Routers.h"
#include "apps/fleet/path/Path.h"

namespace Fleet {

struct PathAsked {
   std::string source = {};  // "*": the shared tree
   std::string group = {};
   std::string receiver = {}, from = {};  // may be empty
};

// In the VRF default where no VRF is wanted. Without a time and a pause.
PathQuestion pathAsked( const Wanted& wanted, const PathAsked& asked );

// Times are "90" (seconds), "30m", "12h", "7d" ago, or "ever"; `until` may be empty.
Past pastAsked( const std::string& group, const std::string& source,
                const std::string& since, const std::string& until );

// ms since 1970, by the system's clock.
int64_t wallNow();

}
