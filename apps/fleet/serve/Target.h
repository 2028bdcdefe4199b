// What a request asks for: "/api/path?group=239.1.2.3&source=*". Pure; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace Fleet {

struct Target {
   std::string path = {};
   std::map<std::string, std::string> parameters = {};

   // Empty where there is none.
   std::string operator[]( const std::string& name ) const;
};

// Nothing if it is malformed, has control characters, or names a parameter twice.
std::optional<Target> parseTarget( std::string_view text );

// A name or value as a part of a target: "a b" is "a%20b".
std::string targetText( std::string_view value );

// May a browser's page at that `Host` see the answers? Only a name can be made to mean
// another address by whoever owns it, so all but "localhost" are refused, as are addresses
// that are neither this host's loopback nor the one that is listened at ("::1",
// "0.0.0.0").
bool isOwnHost( std::string_view host, const std::string& listening );

}
