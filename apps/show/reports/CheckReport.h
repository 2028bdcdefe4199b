// What in the tables contradicts itself, or leaves traffic without a way.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/mirror/RouteFilter.h"

namespace Show {

struct Finding {
   // "forward-differs": an interface's record against its outgoing list by the macros,
   // where those are known; "no-route": an interface's record without its route's;
   // "impossible-address": a route that nothing can be sent along;
   // "unresolved-rpf": a route without a way to its source or RP; "unverifiable":
   // records whose checksum, place or bytes are wrong; "unreadable": a whole table.
   const char* kind;
   Routing::Pim::RouteKey key;  // none for the last two
   Vantu::IntfId intfId;        // empty: the route as a whole
   std::string text;
};

struct Checked {
   size_t routes = 0;
   size_t intfs = 0;
   size_t undecided = 0;  // interfaces whose list is not known
   std::vector<Finding> findings;
};

// Routes and interfaces that match; all records of all tables.
Checked check( const Mirror& mirror, const RouteFilter& filter );
// Adds what is found of the tables of the agent's process.
void checkProcess( const Published::ProcessStatus& process, Checked& checked );

std::string checkText( const Mirror& mirror, const Checked& checked );
nlohmann::ordered_json checkJson( const Checked& checked );

}
