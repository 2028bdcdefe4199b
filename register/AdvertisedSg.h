// An (S,G) that this router advertises to other RPs: element of AdvertisedSgStatus.
//
// The table's key is `key` alone; ordering, equality and hash deliberately use all
// three fields.
#pragma once

#include "platform/pim/RouteKey.h"

namespace Routing::Pim::SparseMode {

// clang-format off
#define PIMSM_ADVERTISED_SG( FIELD ) \
   FIELD( Routing::Pim::RouteKey, key,               {} ) \
   FIELD( Vantu::IpGenAddr,       rp,                {} ) /* advertised for it */ \
   FIELD( bool,                   anycastDiscovered, false ) /* from a peer */
// clang-format on

struct PIMSM_API AdvertisedSg {
   PIMSM_ADVERTISED_SG( MOX_RECORD_FIELD )

   bool operator==( const AdvertisedSg& ) const = default;
   // By key, then rp, then the flag, false first.
   bool operator<( const AdvertisedSg& other ) const;
   // True for the default value.
   bool operator!() const { return *this == AdvertisedSg(); }
   // The exclusive-or of the three addresses' hashes and the flag.
   size_t hash() const;
};
MOX_RECORD_TEXT( AdvertisedSg, "Routing::Pim::SparseMode::AdvertisedSg",
                 PIMSM_ADVERTISED_SG )
MOX_STREAM_TEXT( AdvertisedSg )

}

template <>
struct std::hash<Routing::Pim::SparseMode::AdvertisedSg> {
   size_t operator()( const Routing::Pim::SparseMode::AdvertisedSg& value ) const {
      return value.hash();
   }
};
