// Routes as text: one line a route, one line an interface.
#pragma once

#include <string>

#include "apps/mirror/Rates.h"
#include "apps/mirror/RouteFilter.h"
#include "apps/show/text/Words.h"

namespace Show {

struct RouteForm {
   bool detail = false;           // every field
   bool oneline = false;          // a line a route, its outgoing interfaces in it
   std::string sort = "group";    // or "packets", "rate": most first
   const Rates* rates = nullptr;  // null: no counters
   bool rated = false;            // are there two readings of them?
};

// One mirror's part of `routes`. `now`: seconds, CLOCK_MONOTONIC.
std::string routesText( const Mirror& mirror, const RouteFilter& filter,
                        const RouteForm& form, double now );

// Widths that fit the keys and the names of interfaces.
struct Columns {
   size_t key = 0;
   size_t intf = 0;
};
Columns columnsFor( const std::vector<const Route*>& routes,
                    const RouteFilter& filter );

// One line each. `startsHere`: see Rps.
std::string routeLine( const Route& route, const Columns& columns, double now,
                       bool startsHere = false );
std::string intfLine( const Intf& intf, const Columns& columns, double now );

// The heading alone: "vrf default ipv4: 2 of 1284 routes, agent running".
std::string routesHeading( const Mirror& mirror, size_t matching );

}
