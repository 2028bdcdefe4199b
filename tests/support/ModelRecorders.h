// Observers of the model's entities that write down every notification.
#pragma once

#include "tests/support/Recorder.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {

using Mox::Test::Heard;

PIMSM_TEST_RECORDER( StatusRecorder, Status, PIMSM_STATUS_ATTRIBUTES )
PIMSM_TEST_RECORDER( SourceRecorder, Source, PIMSM_SOURCE_ATTRIBUTES )
PIMSM_TEST_RECORDER( RouteRecorder, Route, PIMSM_ROUTE_ATTRIBUTES )
PIMSM_TEST_RECORDER( UpstreamRecorder, UpstreamInfo, PIMSM_UPSTREAM_ATTRIBUTES )
PIMSM_TEST_RECORDER( IntfRecorder, Intf, PIMSM_INTF_ATTRIBUTES )

}
