// What a store says may be anything.
#pragma once

#include <string_view>

namespace Fleet {

// Has the JSON text more levels than any value of ours? Such a document is not even to
// be destroyed: that takes stack by its depth.
bool isTooDeep( std::string_view json );

}
