// Routes as text: one line a route, one line an interface.
#pragma once

#include <string>

#include "apps/show/RouteFilter.h"

namespace Show {

// One mirror's part of `routes`. `now`: seconds, CLOCK_MONOTONIC.
std::string routesText( const Mirror& mirror, const RouteFilter& filter,
                        bool detail, double now );

// The heading alone: "vrf default ipv4: 2 of 1284 routes, agent running".
std::string routesHeading( const Mirror& mirror, size_t matching );

}
