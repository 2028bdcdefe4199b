// Routes as text: one line a route, one line an interface.
#pragma once

#include <string>

#include "apps/show/RouteFilter.h"

namespace Show {

// One mirror's part of `routes`. `now`: seconds, CLOCK_MONOTONIC.
std::string routesText( const Mirror& mirror, const RouteFilter& filter,
                        bool detail, double now );

// One line each, the key and the name filled up to their widths.
std::string routeLine( const Routing::Pim::SparseMode::Route& route,
                       size_t keyWidth, double now );
std::string intfLine( const Routing::Pim::SparseMode::Intf& intf, size_t nameWidth,
                      double now );

// The heading alone: "vrf default ipv4: 2 of 1284 routes, agent running".
std::string routesHeading( const Mirror& mirror, size_t matching );

}
