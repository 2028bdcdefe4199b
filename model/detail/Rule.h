// The macros in which the protocol macros are written as rules.
//
// A protocol macro is written once, as the steps of its rule, in a class template
// over Q, which evaluates it:
//
//    Bool includeWc() const {
//       RULE( Bool );
//       FALSE_UNLESS( localReceiverInclude() );
//       TRUE_IF( winnerIsMe() );
//       FALSE_IF( lostAssertWc() );
//       RESULT( iAmDr() );
//    }
//
// For Plain, every step is a bare early return and every input the stored field. A
// recording Q (Recording.h) evaluates and notes each step, also those behind the
// deciding one. So a rule must not rely on an earlier step for its safety: an
// absent neighbour is asked through a function that has an answer for its absence.
// Conditions are of type Bool, whose && and || then evaluate both sides.
#pragma once

#include "platform/entity/Attribute.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode::Detail {

// Evaluates for the answer alone.
struct Plain {
   static constexpr bool records = false;
   static constexpr bool traces = true;
   static constexpr bool replaces = false;
   using Bool = bool;

   template <class T>
   using Read = Mox::In<T>;

   // A stored field of an entity.
   template <class Subject, class T>
   Read<T> input( const Subject&, const char*, const T& stored ) const {
      return stored;
   }
   // A neighbour; null when it is absent.
   template <class Subject, class T>
   const T* neighbor( const Subject&, const char*, const T* found ) const {
      return found;
   }
};

}

// Opens each rule; T is its result's type. The rule is named by the function, its
// subject is subject().
#define RULE( T )                                                        \
   const char* ruleName_ = __func__;                                     \
   if constexpr ( Q::replaces ) {                                        \
      if ( auto given_ = q_.template answer<T>( subject(), ruleName_ ) ) \
         return *given_;                                                 \
   }                                                                     \
   auto rule_ = [&] {                                                    \
      if constexpr ( Q::records )                                        \
         return q_.template rule<T>( ruleName_, subject() );             \
      else                                                               \
         return 0;                                                       \
   }();                                                                  \
   static_cast<void>( rule_ ), static_cast<void>( ruleName_ )

#define RULE_STEP( wanted, condition, outcome )                   \
   if constexpr ( Q::records )                                    \
      rule_.step(                                                 \
         wanted, #condition, #outcome, [&] { return condition; }, \
         [&] { return outcome; } );                               \
   else if ( static_cast<bool>( condition ) == wanted )           \
   return outcome

#define RESULT_IF( condition, outcome ) RULE_STEP( true, condition, outcome )
#define TRUE_IF( condition ) RULE_STEP( true, condition, true )
#define FALSE_IF( condition ) RULE_STEP( true, condition, false )
#define FALSE_UNLESS( condition ) RULE_STEP( false, condition, false )

#define RESULT( outcome )                                       \
   if constexpr ( Q::records )                                  \
      return rule_.result( #outcome, [&] { return outcome; } ); \
   else                                                         \
      return outcome

// The whole of a rule that only reads fields: it has no words to report.
#define FACT( outcome )                                   \
   if constexpr ( Q::records )                            \
      return rule_.result( "", [&] { return outcome; } ); \
   else                                                   \
      return outcome

#define RULE_TRACE( ... ) \
   if constexpr ( Q::traces ) MOX_TRACE( Mox::defaultTraceFacility, 8, __VA_ARGS__ )
