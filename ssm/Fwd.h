// Forward declarations of the SSM group range.
#pragma once

namespace Routing::Pim::SparseMode {

class SsmGroupInfo;
class SsmGroupSm;
class SsmJoinPruneFilter;

}
