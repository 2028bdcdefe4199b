// Why the macros of a route or of one of its interfaces answer as they do.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/mirror/Mirrors.h"

namespace Show {

// What is asked: about a route, without macro all its interfaces, or about one of them.
struct Question {
   Routing::Pim::RouteKey route;
   Vantu::IntfId intfId;  // empty: the route
   std::string macro;  // empty: what puts interfaces in the outgoing lists or not
   bool all = false;   // every step with its terms, not only the deciding ones
   // For the macros that take one. Without it they are refused.
   std::optional<Routing::Pim::SparseMode::AssertMetric> received;
   std::vector<Vantu::IntfId> failover;
};

// Reads SOURCE or "*", and GROUP. Throws ParseError; RangeError when the addresses
// are no source and group of one family.
Routing::Pim::RouteKey routeArgument( const std::string& source,
                                      const std::string& group );

// Is there what is asked about?
bool knows( const Mirror& mirror, const Question& question );

// For who does not know it anywhere: which of route and interface is not there.
std::string unknownText( const Mirrors& mirrors, const Question& question );

// A metric as the text form of assert metrics has it. Throws ParseError or RangeError.
Routing::Pim::SparseMode::AssertMetric metricArgument( const std::string& text );

// REQUIRES: knows(). Throw NameError or RangeError for a macro that is not there, not for
// this route, or without its argument.
// `now`: seconds, CLOCK_MONOTONIC.
std::string explainText( const Mirror& mirror, const Question& question,
                         double now );
nlohmann::ordered_json explainJson( const Mirror& mirror,
                                    const Question& question );

}
