// Explains the macros' answers about a route or one of its interfaces.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/mirror/Mirrors.h"

namespace Show {

// The question: a route (without a macro, all its interfaces), or one interface.
struct Question {
   Routing::Pim::RouteKey route;
   Vantu::IntfId intfId;  // empty: the route
   std::string macro;     // empty: the outgoing lists
   bool all = false;      // every step with its terms, not only the deciding ones
   // For the macros that take one; they are refused without it.
   std::optional<Routing::Pim::SparseMode::AssertMetric> received;
   std::vector<Vantu::IntfId> failover;
};

// Reads SOURCE or "*", and GROUP. Throws ParseError, or RangeError when the
// addresses are no source and group of one family.
Routing::Pim::RouteKey routeArgument( const std::string& source,
                                      const std::string& group );

// Does the route or interface in question exist?
bool knows( const Mirror& mirror, const Question& question );

// The message when no mirror has it: whether the route or the interface is missing.
std::string unknownText( const Mirrors& mirrors, const Question& question );

// Parses an assert metric's text form. Throws ParseError or RangeError.
Routing::Pim::SparseMode::AssertMetric metricArgument( const std::string& text );

// REQUIRES: knows(). Throw NameError or RangeError for a macro that does not exist,
// does not suit the route, or lacks its argument. `now`: seconds, CLOCK_MONOTONIC.
std::string explainText( const Mirror& mirror, const Question& question,
                         double now );
nlohmann::ordered_json explainJson( const Mirror& mirror,
                                    const Question& question );

}
