// A router's own state published beside the routes. It shows readers the engines'
// inputs, and gives the next process the neighbours.
#pragma once

#include "engine/Protocol.h"
#include "published/Status.h"

namespace Router {

// Publishes the interfaces with address and DR role, and their neighbours; those that
// are down, too. `pimStatus` is the protocol's own. False when a table refused something.
PIMSM_API bool publishLinks( Published::FamilyStatus& tables,
                             Vantu::AddressFamily family, const VrfConfig& config,
                             const Protocol& protocol,
                             const Routing::Pim::Status& pimStatus );

// Publishes RPs, access lists and settings. False when a table refused something.
PIMSM_API bool publishConfig( Published::FamilyStatus& tables,
                              Vantu::AddressFamily family,
                              const VrfConfig& config );

// What a former process published of its links, for Protocol::start(). Keeps a
// reference to the tables.
PIMSM_API Protocol::Kept keptLinks( const Published::FamilyStatus& tables );

// Takes over the neighbours that a former process published. Call it before
// anything else is published, so that each link keeps its DR.
PIMSM_API void adoptNeighbors( Protocol& protocol,
                               const Published::FamilyStatus& tables );

}
