// Which routers of a great tree are drawn. Pure; any thread.
#pragma once

#include <vector>

#include "apps/fleet/path/Path.h"

namespace Fleet {

// For each node, the node that stands for it: itself if it is drawn. At most `most` are,
// and those beyond it that have nobody above. Drawn first are those on the way to what is
// not as it should be, then the others, the upper ones first; so whoever is drawn has
// somebody drawn above, and what stands for others breaks nowhere below while there is
// room.
std::vector<size_t> folded( const PathAnswer& answer, size_t most );

}
