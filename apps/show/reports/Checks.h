// The parts of `check` that compare more than one record. Each adds what it finds.
#pragma once

#include "apps/show/reports/CheckReport.h"
#include "apps/show/reports/Facts.h"

namespace Show {

// What was seen within this time still holds.
constexpr double kRecent = 15.0;  // s

// The links: two designated routers or none, members that nobody serves, and what hosts
// and routers have asked for lately and were refused. What the configuration bars is no
// finding.
void checkLinks( const Mirror& mirror, const RouteFilter& filter,
                 const Evidence& evidence, Checked& checked );

// "pimsm-show explain 192.0.2.1 239.1.2.3 eth1"; without an interface, of all.
std::string explainCall( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                         const char* options = "" );

// The kernel's entries, where this host is the agent's.
void checkEntries( const Facts& facts, const RouteFilter& filter,
                   Checked& checked );

}
