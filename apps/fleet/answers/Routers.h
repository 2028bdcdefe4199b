// The routers that a question is put to, and whether their state can be relied on.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/store/Store.h"

namespace Fleet {

struct Router {
   std::string name;
   bool lives = false;     // a recorder keeps it up to date
   bool complete = false;  // its state is whole
   std::string recorder;   // the recorder's own words, JSON; empty: never complete
   std::string problem;    // why it cannot be read; else empty
   bool format = false;    // this program is too old for it
   bool usable() const { return problem.empty() && lives && complete; }
};

// All routers, or the one of that name. Throws StoreMissing if there is no store or none
// of that name in it.
std::vector<Router> routersOf( Reader& reader, const std::string& name );

// One line on why its answers may be old: "r2: nobody records it now; this is its last
// state".
// Empty for a usable one.
std::string doubtText( const Router& router );

// VRFs and families that the user asks for.
struct Wanted {
   std::string vrf = "all";
   uint32_t ipVersion = 0;  // 4 or 6; 0: both
   bool matches( const Scope& scope ) const;
};

// JSON of a store's value; null if it is none.
nlohmann::ordered_json parsedValue( const std::string& text );
// A member that is text; else empty.
std::string textMember( const nlohmann::ordered_json& json, const char* name );

// `routers`: who records whom, how many routes, and since when; text and JSON.
std::string routersText( Reader& reader, const std::vector<Router>& routers );
nlohmann::ordered_json routersJson( Reader& reader,
                                    const std::vector<Router>& routers );

}
