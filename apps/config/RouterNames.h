// The programs speak the language of the router's library.
#pragma once

namespace Router {}

namespace Agent {
using namespace Router;
}
