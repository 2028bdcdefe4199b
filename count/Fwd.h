// Forward declarations of the (S,G) counting.
#pragma once

namespace Routing::Pim::SparseMode {

class IpAddrCollection;
class SourceCount;
class GroupCount;
class SgCountSm;

}
