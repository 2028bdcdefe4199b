// How a protocol macro comes to its answer, for tools that explain it.
//
//    Derivation why = derive( *intf, "inheritedOlistSg" );
//    for ( const MacroFlip& flip : flipsOf( *intf, "inheritedOlistSg" ) ) ...
//
// The rules that run are those of the macros themselves, so that the two cannot
// disagree; but every step of a rule is evaluated and told, those behind the deciding
// one too. Nothing is changed and nothing is traced. Event-loop thread only.
//
// All functions throw NameError for a macro that is not in intfMacroNames() or
// routeMacroNames(), and
// RangeError where an (S,G) macro is asked about a wildCard route that it asserts.
#pragma once

#include <span>
#include <vector>

#include "model/IntfCollection.h"
#include "model/Route.h"

namespace Routing::Pim::SparseMode {

// A field that a rule reads, or a neighbour that may be absent: "wc", "wcIntf",
// "pimIntf", "umh", "umhFrr", whose value says whether it is there.
struct MacroInput {
   RouteKey route;        // whose; the default key: the PIM interface itself
   Vantu::IntfId intfId;  // empty: the route itself
   Mox::String field;     // "joinState", "spTree", ...
   Mox::String value;     // in the field's text form

   bool operator==( const MacroInput& ) const = default;
};

struct Derivation;

// One step of a rule: if the condition is as wanted, the outcome is the answer. The
// last step of a rule has no condition, and where a rule only looks at fields no
// words. "w" is the record of the same interface in the (*,G) route.
struct MacroStep {
   Mox::String condition;  // in the rule's words: "localReceiverInclude"
   bool wanted = true;     // false: the step decides unless the condition holds
   bool holds = true;      // the condition
   Mox::String outcome;    // in the rule's words: "false", "iAmDr"
   Mox::String value;      // the outcome as text; empty where it was not needed
   bool decides = false;   // the first step whose condition is as wanted
   std::vector<Derivation>
      from;  // macros asked for condition and outcome, in order
};

// A macro's answer with the steps that led to it.
struct Derivation {
   Mox::String macro;
   RouteKey route;        // about what it was asked
   Vantu::IntfId intfId;  // empty: about the route
   Mox::String value;     // the answer as text: "true", "[S] 192.0.2.2 [110/20]"
   std::vector<MacroStep> steps;
   std::vector<MacroInput> inputs;  // read by this rule itself, each once
};

// What those macros are given that take an argument.
struct MacroArguments {
   AssertMetric received;                              // of an assert message
   const IntfCollection* fastFailoverIntfs = nullptr;  // null: an empty one
};

// One input whose change alone changes the answer.
struct MacroFlip {
   MacroInput input;    // as it is
   Mox::String value;   // what it would have to be
   Mox::String answer;  // the macro's then
};

PIMSM_API const std::vector<Mox::StringView>& intfMacroNames();
PIMSM_API const std::vector<Mox::StringView>& routeMacroNames();

// The derivation; with `replaced`, as if that input had its value. An input that the
// rules do not read changes nothing, and a neighbour can only be taken away. Throws
// ParseError or RangeError when the value is none of the field's.
PIMSM_API Derivation derive( const Intf& intf, Mox::StringView macro,
                             const MacroArguments& arguments = {},
                             const MacroInput* replaced = nullptr );
PIMSM_API Derivation derive( const Route& route, Mox::StringView macro,
                             const MacroArguments& arguments = {},
                             const MacroInput* replaced = nullptr );

// The answer as text if each of these had its value: inputs, or what macros of an
// interface answer, whose name is then the field. What the rules ask neither of changes
// nothing.
PIMSM_API Mox::String answerGiven( const Intf& intf, Mox::StringView macro,
                                   std::span<const MacroInput> given );

// Every single change of an input that would change the answer, in the order in
// which the rules read them. Tried are: the other value of a bool and of an
// enumeration; no winner, this router or a better one as the assert winner; no RPF,
// that of the route's other tree, or this interface as RPF interface; no own
// address; no neighbour.
PIMSM_API std::vector<MacroFlip> flipsOf( const Intf& intf, Mox::StringView macro,
                                          const MacroArguments& arguments = {} );
PIMSM_API std::vector<MacroFlip> flipsOf( const Route& route, Mox::StringView macro,
                                          const MacroArguments& arguments = {} );

}
