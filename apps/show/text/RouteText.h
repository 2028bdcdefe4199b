// Routes as text: one line a route, one line an interface.
#pragma once

#include <string>

#include "apps/mirror/RouteFilter.h"
#include "apps/show/text/Words.h"

namespace Show {

// One mirror's part of `routes`. `now`: seconds, CLOCK_MONOTONIC.
std::string routesText( const Mirror& mirror, const RouteFilter& filter,
                        bool detail, double now );

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
