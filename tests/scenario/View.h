// The parts of a router that a scenario watches: facts by subject, a few words
// each.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "engine/RouterCounters.h"
#include "router/VrfRouter.h"
#include "tests/scenario/Names.h"

namespace Scenario {

// "eth1 A" -> "joined"
using Facts = std::map<std::string, std::string>;

struct View {
   const char* name;  // its name after `watch`
   const char*
      whenGone;  // of a fact that there is no more; null: counts, told at a line's end
   Facts ( *facts )( const Router::VrfRouter&, const Router::RouterCounters&,
                     const Names& );
};

// Throws ScriptError when there is none of that name.
const View& viewOf( const std::string& name );

}
