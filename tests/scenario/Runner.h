// Runs one story and compares what changed with what it expects.
#pragma once

#include <string>
#include <vector>

#include "tests/scenario/View.h"
#include "tests/scenario/World.h"

namespace Scenario {

// What went another way, a text each: the line, what was expected, what came.
std::vector<std::string> run( const Script& script, const Story& story );

}
