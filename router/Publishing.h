// What a router publishes of itself beside the routes, from which a reader sees what its
// engines saw, and the next process knows the neighbours.
#pragma once

#include "engine/Protocol.h"
#include "published/Status.h"

namespace Router {

// The interfaces with address and DR role, and their neighbours. `pimStatus` is the one
// that the protocol was given.
PIMSM_API void publishLinks( Published::FamilyStatus& tables,
                             const Protocol& protocol,
                             const Routing::Pim::Status& pimStatus );

// RPs, access lists and settings. The limits are the model's.
PIMSM_API void publishConfig( Published::FamilyStatus& tables,
                              Vantu::AddressFamily family, const VrfConfig& config,
                              const Routing::Pim::SparseMode::Status& model );

// The neighbours that a former process published. Before anything else is published: the
// DR of a link is the one that it was.
PIMSM_API void adoptNeighbors( Protocol& protocol,
                               const Published::FamilyStatus& tables );

}
