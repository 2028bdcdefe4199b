// Keys of multicast routes and of their downstream interfaces.
//
// A (*,G) key has the unspecified address of the group's family as its source.
// In traces a key prints as "(S, G)" and "(S, G) 'interface'".
#pragma once

#include <compare>

#include "platform/base/Record.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"

namespace Routing::Pim {

// clang-format off
#define PIMSM_ROUTE_KEY( FIELD ) \
   FIELD( Vantu::IpGenAddr, source, {} ) \
   FIELD( Vantu::IpGenAddr, group, {} )
// clang-format on

struct RouteKey {
   PIMSM_ROUTE_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const RouteKey& ) const = default;

   size_t hash() const {
      return source.hash() * 0x9e3779b97f4a7c15ULL + group.hash();
   }
};
MOX_RECORD_TEXT( RouteKey, "Routing::Pim::RouteKey", PIMSM_ROUTE_KEY )

PIMSM_API std::ostream& operator<<( std::ostream& stream, const RouteKey& key );

// clang-format off
#define PIMSM_ROUTE_INTF_KEY( FIELD ) \
   FIELD( RouteKey,      routeKey, {} ) \
   FIELD( Vantu::IntfId, intfId, {} )
// clang-format on

struct RouteIntfKey {
   PIMSM_ROUTE_INTF_KEY( MOX_RECORD_FIELD )
   auto operator<=>( const RouteIntfKey& ) const = default;

   size_t hash() const { return routeKey.hash() * 31 + intfId.hash(); }
};
MOX_RECORD_TEXT( RouteIntfKey, "Routing::Pim::RouteIntfKey", PIMSM_ROUTE_INTF_KEY )

PIMSM_API std::ostream& operator<<( std::ostream& stream, const RouteIntfKey& key );

}

template <>
struct std::hash<Routing::Pim::RouteKey> {
   size_t operator()( const Routing::Pim::RouteKey& key ) const {
      return key.hash();
   }
};
template <>
struct std::hash<Routing::Pim::RouteIntfKey> {
   size_t operator()( const Routing::Pim::RouteIntfKey& key ) const {
      return key.hash();
   }
};
