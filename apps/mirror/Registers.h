// The register tables and the advertised (S,G) of a mirror. A copy of the moment;
// event-loop thread only.
#pragma once

#include "apps/mirror/RouteFilter.h"
#include "apps/mirror/Selected.h"

namespace Show {

// An (S,G) and the register tables that hold it.
struct RegisterRow {
   Routing::Pim::RouteKey key;
   bool registerOif = false;
   bool noRegisterOif = false;
   bool drDiscovered = false;
   bool anycastDiscovered = false;
};

// In order of group, then source.
using Registers = Selected<RegisterRow>;
using Advertised = Selected<Routing::Pim::SparseMode::AdvertisedSg>;

Registers selectRegisters( const Mirror& mirror, const RouteFilter& filter );
Advertised selectAdvertised( const Mirror& mirror, const RouteFilter& filter );

}
