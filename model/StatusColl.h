// The root of the route model: one Status a VRF.
//
// Created by statusCollFactory(). Event-loop thread only.
#pragma once

#include "model/Status.h"

namespace Routing::Pim::SparseMode {

using VrfStatusMap = Mox::HashedMap<L3::VrfName, Status>;

// clang-format off
#define PIMSM_STATUS_COLL_ATTRIBUTES( A ) \
   A( Map, vrfStatus, VrfStatus, VrfStatusMap, , "by VRF name" )
// clang-format on

class PIMSM_API StatusColl : public Mox::Entity {
 public:
   MOX_ENTITY( StatusColl, PIMSM_STATUS_COLL_ATTRIBUTES )

 protected:
   ~StatusColl() override = default;

 private:
   Mox::Ptr<Status> newVrfStatus( const L3::VrfName& vrfName ) {
      return statusFactory( vrfName );
   }
};

PIMSM_API Mox::Ptr<StatusColl> statusCollFactory();

}
