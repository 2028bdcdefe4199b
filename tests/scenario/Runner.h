// Runs one story and compares the changes with its expectations.
#pragma once

#include <string>
#include <vector>

#include "tests/scenario/View.h"
#include "tests/scenario/World.h"

namespace Scenario {

// `failures`: one text for each difference: the line, the expected change, the real
// one.

struct Outcome {
   std::vector<std::string> failures;
   std::string missing;  // the capture that is missing on this machine
};

Outcome run( const Script& script, const Story& story );

}
