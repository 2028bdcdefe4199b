// The register tables and the advertised (S,G) of each VRF.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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

// One mirror's part of `registers` and `advertised`: a heading, and a line for each
// (S,G).
std::string registersText( const Mirror& mirror, const Registers& selected );
std::string advertisedText( const Mirror& mirror, const Advertised& selected );

nlohmann::ordered_json registersJson( const Registers& selected );
nlohmann::ordered_json advertisedJson( const Advertised& selected );

}
