// Why an interface is in a route's outgoing lists or not, in the terms of RFC 7761,
// 4.1.6, as the protocol macros have them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/mirror/Conceivable.h"
#include "model/Derivation.h"

namespace Show {

// A set that an outgoing list is put together of. How, the list's macro alone knows; what
// stands here is what people call them, and in which order they are told.
struct Term {
   const char* name;     // "joins(*,G)"
   const char* macro;    // as Derivation.h has it
   bool adds = true;     // otherwise it takes out
   bool shared = false;  // asked of the interface's (*,G) record
   std::optional<bool> holds = std::nullopt;  // nothing: the tables do not tell
   bool decides = false;
};

struct Olist {
   const char* name;   // "inherited_olist(S,G)"
   const char* macro;  // as Derivation.h has it
   std::vector<Term> terms;
   std::optional<bool> in = std::nullopt;
   bool decides = false;  // no term does: nothing asks for the interface
};

struct Outgoing {
   std::vector<Olist> olists;  // each holds the one before it
   bool incoming = false;      // the traffic comes in here, and never goes out
   // By the macros; nothing where the tables do not tell.
   std::optional<bool> forwards;
};

// REQUIRES: the interface has a route, both of the mirror.
Outgoing outgoingOf( const Mirror& mirror,
                     const Routing::Pim::SparseMode::Intf& intf );

// What single change would give the other answer, each as a clause: "lost_assert(S,G)
// ended". Empty where the answer is not known. `outgoing` is outgoingOf() the interface.
std::vector<std::string> turnsOf( const Mirror& mirror,
                                  const Routing::Pim::SparseMode::Intf& intf,
                                  const Outgoing& outgoing );

// May be null: no (*,G) record of the interface.
const Routing::Pim::SparseMode::Intf* askedBy(
   const Term& term, const Routing::Pim::SparseMode::Intf& intf );

}
