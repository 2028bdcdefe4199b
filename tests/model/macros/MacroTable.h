// Every macro under test: its call, the oracle's answer, and its axes, over whose
// product the two are compared.
#pragma once

#include <ostream>
#include <variant>
#include <vector>

#include "tests/model/macros/Model.h"
#include "tests/model/macros/Oracle.h"

namespace Routing::Pim::SparseMode::Test {

// One fact of a World that varies.
struct Axis {
   const char* name;
   uint32_t slots;  // the facts that it sets
   void ( *set )( World&, int );
   std::vector<int> values;
   std::vector<int> few = {};  // the representatives; empty: all
   bool thinned = false;       // `few` in place of all, in the full run too
};
using Axes = std::vector<Axis>;

using Value = std::variant<bool, uint32_t, Metric>;

struct Macro {
   const char* name;
   bool wc;  // for a (*,G) record or route
   Value ( *model )( const Model& );
   Value ( *oracle )( const Oracle& );
   Axes axes;
};

std::ostream& operator<<( std::ostream& stream, const Value& value );

const std::vector<Macro>& macros();

// The whole product: each fact by itself.
const Axes& allAxes();

// Both records of port 0, with (*,G) state around them.
World worldFor( const Macro& macro );
// Restores the conditions of the macro's contract.
void keepContract( const Macro& macro, World& world );

}
