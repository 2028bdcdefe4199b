// JSON of RFC 7951 by ietf-pim-base (RFC 9128) and our additional module
// yang/pimsm-state.yang. Event-loop thread only.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

// A VRF's network instance (RFC 8529), which holds this one member of the family's PIM
// state; none if the value is null, for unknown.
nlohmann::ordered_json yangData( const std::string& vrf,
                                 Vantu::AddressFamily family, const char* member,
                                 nlohmann::ordered_json value );

// The vrf, family, writer and yangData() of a mirror.
nlohmann::ordered_json envelope( const Mirror& mirror, const char* member,
                                 nlohmann::ordered_json value );

// An enumerator's YANG name, without the prefix that C++ needs: "prune-pending" for
// "prunePending", "not-joined" for "upNotJoined" and "up".
std::string yangName( Mox::StringView enumerator, Mox::StringView prefix = "" );

// Hundredths of a second, as a text: RFC 7951 wants that for 64-bit numbers.
std::string timeticks( double seconds );

// The time left as a timer-value-seconds16 of RFC 8294: whole seconds, or "infinity".
nlohmann::ordered_json expirationJson( double seconds );

// A document, or one line without indentation. Bytes of a name that are no UTF-8
// are replaced.
std::string jsonText( const nlohmann::ordered_json& json, int indent = -1 );

}
