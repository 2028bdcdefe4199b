// Finds contradictions in the tables, and traffic without a path.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/mirror/RouteFilter.h"
#include "apps/show/reports/Why.h"

namespace Show {

struct Finding {
   // "forward-differs": an interface's record contradicts its outgoing list by the
   // macros, where those are known; "no-route": an interface's record without its
   // route's; "impossible-address": a route that no packet can have;
   // "unresolved-rpf": a route without a path to its source or RP; "unverifiable":
   // records with a wrong checksum, place or bytes; "unreadable": a whole table. For
   // "two-drs", "two-forwarders", "no-dr", "unserved" and "refused" see Checks.h, for
   // "entry-differs" KernelEntries.h. Others are causes of Why.h that hold whether or
   // not a source sends.
   std::string kind;
   Routing::Pim::RouteKey key;  // unset for the last two
   Vantu::IntfId intfId;        // empty: the route as a whole
   std::string text;            // what contradicts what
   std::string see = {};        // the command that tells more; empty: none does
};

struct Checked {
   size_t routes = 0;
   size_t intfs = 0;
   size_t undecided = 0;  // interfaces whose list is unknown
   std::vector<Finding> findings;
};

// Checks the matching routes and interfaces, and all records of all tables.
Checked check( const Mirror& mirror, const RouteFilter& filter,
               const Evidence& evidence = {} );
// Adds the findings in the tables of the agent's process.
void checkProcess( const Published::ProcessStatus& process, Checked& checked );

std::string checkText( const Mirror& mirror, const Checked& checked );
nlohmann::ordered_json checkJson( const Checked& checked );

}
