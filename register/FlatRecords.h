// The flat forms of the register tables' values.
#pragma once

#include "platform/pim/FlatForms.h"
#include "register/AdvertisedSg.h"
#include "register/InternalRouteKey.h"

namespace Brane {

BRANE_FLAT_RECORD( Routing::Pim::SparseMode::InternalRouteKey, "InternalRouteKey",
                   PIMSM_INTERNAL_ROUTE_KEY )
BRANE_FLAT_RECORD( Routing::Pim::SparseMode::AdvertisedSg, "AdvertisedSg",
                   PIMSM_ADVERTISED_SG )

static_assert(
   sizeof( FlatForm<Routing::Pim::SparseMode::InternalRouteKey>::Bytes ) == 40 );
static_assert( sizeof( FlatForm<Routing::Pim::SparseMode::AdvertisedSg>::Bytes ) ==
               64 );

}
