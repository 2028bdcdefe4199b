// The register tables and the advertised (S,G) of each VRF.
#pragma once

#include <string>

#include "apps/mirror/Registers.h"

namespace Show {

// One mirror's part of `registers` and `advertised`: a heading, and a line for each
// (S,G).
std::string registersText( const Mirror& mirror, const Registers& selected );
std::string advertisedText( const Mirror& mirror, const Advertised& selected );

}
