// The router library's names, as the programs use them.
#pragma once

namespace Router {}

namespace Agent {
using namespace Router;
}
