// JSON of RFC 7951 after ietf-pim-base (RFC 9128) and, for what that lacks, our module
// yang/pimsm-state.yang. Event-loop thread only.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

// One mirror's vrf, family, writer and data. The data are the VRF's network instance
// (RFC 8529); of the address family's PIM state it holds this one member.
nlohmann::ordered_json envelope( const Mirror& mirror, const char* member,
                                 nlohmann::ordered_json value );

// An enumerator as YANG has it, without the prefix that C++ needs: "prune-pending" for
// "prunePending", "not-joined" for "upNotJoined" and "up".
std::string yangName( Mox::StringView enumerator, Mox::StringView prefix = "" );

// In hundredths of a second, as RFC 7951 has numbers of 64 bits: a text.
std::string timeticks( double seconds );

// A document, or a line where nothing is indented. Bytes of a name that are no UTF-8 are
// replaced.
std::string jsonText( const nlohmann::ordered_json& json, int indent = -1 );

}
