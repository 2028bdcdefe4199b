// Forward declarations of the fast-reroute filter.
#pragma once

namespace Routing::Pim::SparseMode {

class FrrFilterStatus;
class FrrFilterSm;

}
