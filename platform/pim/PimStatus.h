// The PIM interface status of one VRF: which interfaces speak PIM, their addresses,
// and whether this router is the designated router there (RFC 7761, 4.3.2).
//
// Written by the agent's hello engine; the model only reads it. Event-loop thread.
#pragma once

#include "platform/base/Record.h"
#include "platform/entity/Attribute.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenAddr.h"

namespace Routing::Pim {

// clang-format off
#define PIMSM_INTF_ADDR( FIELD ) \
   FIELD( Vantu::IpGenAddr, address,      {} ) \
   FIELD( uint8_t,          prefixLength, 0 )
// clang-format on

// An interface's own address with the length of its subnet's prefix.
struct IntfAddr {
   PIMSM_INTF_ADDR( MOX_RECORD_FIELD )
   bool operator==( const IntfAddr& ) const = default;
};
MOX_RECORD_TEXT( IntfAddr, "Routing::Pim::IntfAddr", PIMSM_INTF_ADDR )
MOX_STREAM_TEXT( IntfAddr )

// clang-format off
#define PIMSM_PIM_INTF_ATTRIBUTES( A ) \
   A( Fixed, intfId, IntfId, Vantu::IntfId, ,      "key" ) \
   A( Value, addr,   Addr,   IntfAddr,      {},    "primary address" ) \
   A( Value, iAmDr,  IAmDr,  bool,          false, "designated router here" )
// clang-format on

class PIMSM_API Intf : public Mox::Entity {
 public:
   MOX_ENTITY( Intf, PIMSM_PIM_INTF_ATTRIBUTES )

   explicit Intf( Vantu::IntfId intfId ) : intfId_( intfId ) {}
   const Vantu::IntfId& mapKey() const { return intfId_; }

 protected:
   ~Intf() override = default;
};

using IntfMap = Mox::HashedMap<Vantu::IntfId, Intf>;

// clang-format off
#define PIMSM_PIM_STATUS_ATTRIBUTES( A ) \
   A( Map, intf, Intf, IntfMap, , "interfaces that speak PIM" )
// clang-format on

class PIMSM_API Status : public Mox::Entity {
 public:
   MOX_ENTITY( Status, PIMSM_PIM_STATUS_ATTRIBUTES )

 protected:
   ~Status() override = default;

 private:
   Mox::Ptr<Pim::Intf> newIntf( Vantu::IntfId intfId ) {
      return new Pim::Intf( intfId );
   }
};

}
