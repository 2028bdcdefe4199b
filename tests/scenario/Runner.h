// Runs one story and compares what changed with what it expects.
#pragma once

#include <string>
#include <vector>

#include "tests/scenario/View.h"
#include "tests/scenario/World.h"

namespace Scenario {

// `failures`: what went another way, a text each: the line, what was expected, what came.

struct Outcome {
   std::vector<std::string> failures;
   std::string missing;  // the capture that this machine does not have
};

Outcome run( const Script& script, const Story& story );

}
