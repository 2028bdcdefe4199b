// The steps by which a protocol macro gets its answer, for tools that explain it.
//
//    Derivation why = derive( *intf, "inheritedOlistSg" );
//    for ( const MacroFlip& flip : flipsOf( *intf, "inheritedOlistSg" ) ) ...
//
// The macros' own rules run, so that explanation and macro cannot disagree. Every
// step of a rule is evaluated and reported, also those behind the deciding one.
// Nothing is changed and nothing is traced. Event-loop thread only.
//
// All functions throw NameError for a macro that is neither in intfMacroNames() nor
// in routeMacroNames(), and RangeError for an (S,G) macro of a wildCard route where
// the macro asserts.
#pragma once

#include <span>
#include <vector>

#include "model/IntfCollection.h"
#include "model/Route.h"

namespace Routing::Pim::SparseMode {

// A field that a rule reads, or a neighbour that may be absent: "wc", "wcIntf",
// "pimIntf", "umh", "umhFrr". A neighbour's value says whether it is there.
struct MacroInput {
   RouteKey route;        // the field's owner; the default key: the PIM interface
   Vantu::IntfId intfId;  // empty: the field is the route's
   Mox::String field;     // "joinState", "spTree", ...
   Mox::String value;     // in the field's text form

   bool operator==( const MacroInput& ) const = default;
};

struct Derivation;

// One step of a rule: if the condition is as wanted, the outcome is the answer. The
// last step has no condition. A rule that only reads fields has no words. "w" is
// the record of the same interface in the (*,G) route.
struct MacroStep {
   Mox::String condition;  // in the rule's words: "localReceiverInclude"
   bool wanted = true;     // false: the step decides unless the condition holds
   bool holds = true;      // does the condition hold?
   Mox::String outcome;    // in the rule's words: "false", "iAmDr"
   Mox::String value;      // the outcome as text; empty where it was not needed
   bool decides = false;   // the first step whose condition is as wanted
   std::vector<Derivation>
      from;  // macros asked for condition and outcome, in order
};

// A macro's answer with the steps that led to it.
struct Derivation {
   Mox::String macro;
   RouteKey route;        // the route in question
   Vantu::IntfId intfId;  // the interface in question; empty: the route
   Mox::String value;     // the answer as text: "true", "[S] 192.0.2.2 [110/20]"
   std::vector<MacroStep> steps;
   std::vector<MacroInput> inputs;  // read by this rule itself, each once
};

// The arguments of the macros that take any.
struct MacroArguments {
   AssertMetric received;                              // of an assert message
   const IntfCollection* fastFailoverIntfs = nullptr;  // null: an empty one
};

// A single input change that changes the answer.
struct MacroFlip {
   MacroInput input;    // as it is now
   Mox::String value;   // the changed value
   Mox::String answer;  // the macro's answer then
};

PIMSM_API const std::vector<Mox::StringView>& intfMacroNames();
PIMSM_API const std::vector<Mox::StringView>& routeMacroNames();

// Derives the macro's answer; with `replaced`, as if that input had its value. An
// input that the rules do not read changes nothing, and a neighbour can only be
// removed. Throws ParseError or RangeError when the value does not fit the field.
PIMSM_API Derivation derive( const Intf& intf, Mox::StringView macro,
                             const MacroArguments& arguments = {},
                             const MacroInput* replaced = nullptr );
PIMSM_API Derivation derive( const Route& route, Mox::StringView macro,
                             const MacroArguments& arguments = {},
                             const MacroInput* replaced = nullptr );

// The answer as text if each of these had its value. `given` holds inputs, and
// answers of an interface's macros under the macro's name as field. Entries that
// the rules do not read change nothing.
PIMSM_API Mox::String answerGiven( const Intf& intf, Mox::StringView macro,
                                   std::span<const MacroInput> given );

// Every single change of an input that would change the answer, in the order in
// which the rules read them. It tries: the other values of a bool or an
// enumeration; no winner, this router or a better one as the assert winner; no RPF,
// that of the route's other tree, or this interface as RPF interface; no own
// address; no neighbour.
PIMSM_API std::vector<MacroFlip> flipsOf( const Intf& intf, Mox::StringView macro,
                                          const MacroArguments& arguments = {} );
PIMSM_API std::vector<MacroFlip> flipsOf( const Route& route, Mox::StringView macro,
                                          const MacroArguments& arguments = {} );

}
