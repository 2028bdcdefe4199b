// Figures of what routers told each other over the links of a bed.
#pragma once

#include "tests/netns/Decoder.h"

namespace Netns {

// Of the packets since the time, in seconds of the system's clock:
//   joins, prunes, asserts, hellos, queries   messages; of prunes those without joins,
//             for each join of a shared tree takes the prunes of its sources along
//   new-ids   hellos of an interface with another generation id than its last
// Throws Scenario::ScriptError for another word.
double overheard( const Decoder& decoder, double since, const std::string& figure );

}
