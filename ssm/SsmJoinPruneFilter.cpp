#include "ssm/SsmJoinPruneFilter.h"

namespace Routing::Pim::SparseMode {

SsmJoinPruneFilter::SsmJoinPruneFilter( Mox::Ptr<const Config> config,
                                        Mox::Ptr<const SsmGroupInfo> ssmGroupInfo )
   : config_( std::move( config ) ), ssmGroupInfo_( std::move( ssmGroupInfo ) ) {
   MOX_ASSERT( config_ != nullptr );
   MOX_ASSERT( ssmGroupInfo_ != nullptr );
}

SsmJoinPruneFilter::~SsmJoinPruneFilter() = default;

}
