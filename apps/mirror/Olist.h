// The reasons why an interface is in a route's outgoing lists or not, in the terms
// of RFC 7761, 4.1.6, by the protocol macros.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/mirror/Conceivable.h"
#include "model/Derivation.h"

namespace Show {

// A set that an outgoing list is made of. Only the list's macro knows how; a Term
// gives the set's name and its place in the report.
struct Term {
   const char* name;   // "joins(*,G)"
   const char* macro;  // by Derivation.h's name
   bool adds = true;   // false: the term removes
   // The record that was asked; null: the (*,G) route has none of the interface.
   const Routing::Pim::SparseMode::Intf* asked = nullptr;
   std::optional<bool> holds = std::nullopt;  // nothing: unknown
   bool decides = false;
};

struct Olist {
   const char* name;   // "inherited_olist(S,G)"
   const char* macro;  // by Derivation.h's name
   std::vector<Term> terms;
   std::optional<bool> in = std::nullopt;
   bool decides = false;  // no term decides: no term adds the interface
};

struct Outgoing {
   std::vector<Olist> olists;  // each contains the one before it
   bool incoming = false;  // the traffic's own incoming interface never forwards
   std::optional<bool> forwards;  // nothing: unknown
};

// By the derivation of inOlist. REQUIRES: the interface has a route, both of the
// mirror.
Outgoing outgoingOf( const Mirror& mirror,
                     const Routing::Pim::SparseMode::Intf& intf );

// The single changes that would reverse the answer, each as a clause:
// "lost_assert(S,G) ended". Empty if the answer is unknown. `outgoing` is
// outgoingOf() the interface.
std::vector<std::string> turnsOf( const Mirror& mirror,
                                  const Routing::Pim::SparseMode::Intf& intf,
                                  const Outgoing& outgoing );

}
