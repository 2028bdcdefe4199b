// Names in stores: of fleets and routers, and the tokens that keys are made of. Pure
// functions; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/net/IpGenAddr.h"

namespace Fleet {

// Is it a fleet's or a router's name: 1 to 32 letters, digits and hyphens? Without
// dots and underscores, which part names from each other.
bool isName( std::string_view text );

// The host's name up to its first dot, where that is a name; "router" otherwise.
std::string hostRouter();

// Any bytes as a token of letters, digits, '_' and '-'; another byte is '=' and two hex
// digits. Never empty: "=" stands for no bytes.
std::string token( std::string_view bytes );
// What a token was made of. Nothing if token() does not make this text.
std::optional<std::string> untoken( std::string_view text );

// An address as a token: its dots or colons are hyphens, so that the family must be
// known. The unspecified address is "any".
std::string addressToken( const Vantu::IpGenAddr& address );
// Nothing if it is no address of the family in that form.
std::optional<Vantu::IpGenAddr> addressOf( std::string_view token,
                                           Vantu::AddressFamily family );

}
