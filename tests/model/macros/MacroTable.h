// Every macro under test: how to ask it, what the oracle says, and of what it is a
// function: the axes of the product over which the two are compared.
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
   uint32_t slots;  // which facts it settles
   void ( *set )( World&, int );
   std::vector<int> values;
   std::vector<int> few = {};  // those that stand for all; empty for all
   bool thinned = false;       // `few` in place of all, in the full run too
};
using Axes = std::vector<Axis>;

using Value = std::variant<bool, uint32_t, Metric>;

struct Macro {
   const char* name;
   bool wc;  // asked of a (*,G) record or route
   Value ( *model )( const Model& );
   Value ( *oracle )( const Oracle& );
   Axes axes;
};

std::ostream& operator<<( std::ostream& stream, const Value& value );

const std::vector<Macro>& macros();

// The whole product: each fact by itself.
const Axes& allAxes();

// Both records of port 0, and (*,G) state around them.
World worldFor( const Macro& macro );
// Puts back what the macro's contract asks for.
void keepContract( const Macro& macro, World& world );

}
