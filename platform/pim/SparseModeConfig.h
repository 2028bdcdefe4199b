// The PIM-SM configuration of one VRF, as far as the library reads it.
//
// Written by whoever reads the configuration. Event-loop thread only.
#pragma once

#include "platform/entity/Attribute.h"

namespace Routing::Pim::SparseMode {

// The VRF's name is deliberately plain text: a name too long for L3::VrfName throws
// only where a trace prints it.
// clang-format off
#define PIMSM_SPARSE_MODE_CONFIG_ATTRIBUTES( A ) \
   A( Fixed, vrfName,   VrfName,   Mox::String, , "of the VRF" ) \
   A( Value, ssmFilter, SsmFilter, Mox::String, {}, "access list of the SSM groups; empty: the default range; .no-ssm-range: none" ) \
   A( Value, frrFilter, FrrFilter, Mox::String, {}, "access list of the groups with fast reroute; empty: none" )
// clang-format on

class PIMSM_API Config : public Mox::Entity {
 public:
   MOX_ENTITY( Config, PIMSM_SPARSE_MODE_CONFIG_ATTRIBUTES )

   explicit Config( Mox::StringView vrfName ) : vrfName_( vrfName ) {}

 protected:
   ~Config() override = default;
};

}
