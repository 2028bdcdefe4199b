// What contradicts itself between the routers of a fleet, over all links and routes: the
// rules for the edges of paths, and what neighbours must agree on. Whether two routers
// both forward to a link is not asked here: without packets they may.
//
// Reads one router's state after the other, and keeps some 72 bytes a join. Blocks.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/fleet/path/Facts.h"
#include "apps/fleet/path/Verdict.h"
#include "apps/store/Store.h"

namespace Fleet {

struct CheckQuestion {
   Scope scope = {};
   IpGenPrefix groups = {};  // none: all
   Time now = 0;
   // Waits before what was found is read once more; empty: it is told as it is.
   std::function<void()> pause = {};
};

struct Finding {
   struct End {
      std::string router = {};
      std::string interface = {};  // empty: of the router as a whole
      auto operator<=>( const End& ) const = default;
   };
   Judgement judgement = {};
   End first = {};
   End second = {};                      // without a router: there is none
   std::optional<RouteKey> stream = {};  // of more than one: the first
   size_t streams = 0;
};

// In order of routers. Throws what the store's reader throws where it concerns the whole
// store.
std::vector<Finding> checkFleet( Reader& reader, const CheckQuestion& question );

// A line each, safe for a terminal; without findings, a line that says so.
std::string checkText( const std::vector<Finding>& findings );
nlohmann::ordered_json checkJson( const std::vector<Finding>& findings );

}
