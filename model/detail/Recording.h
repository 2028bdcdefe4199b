// Evaluates a macro with an input replaced, or records its steps (see Rule.h).
#pragma once

#include <algorithm>
#include <optional>
#include <set>
#include <tuple>

#include "model/Derivation.h"
#include "model/detail/RouteRules.h"

namespace Routing::Pim::SparseMode::Detail {

// Names the input's owner as MacroInput does. A PIM interface is named by its id.
inline MacroInput inputOf( const Intf& intf, const char* field ) {
   const Route* route = intf.parentRoute();
   return {
      route != nullptr ? route->key() : RouteKey(), intf.intfId(), field, {} };
}
inline MacroInput inputOf( const Route& route, const char* field ) {
   return { route.key(), {}, field, {} };
}
inline MacroInput inputOf( const Vantu::IntfId& pimIntf, const char* field ) {
   return { {}, pimIntf, field, {} };
}

template <class T>
T parsed( const Mox::String& text ) {
   return Mox::stringToValue<T>( text );
}
// The type's own parser asserts on an incomplete text.
template <>
inline AssertMetric parsed( const Mox::String& text ) {
   if ( !hasMetricItems( text ) )
      throw Mox::ParseError( "an assert metric is expected, not " + text );
   return Mox::stringToValue<AssertMetric>( text );
}

// Evaluates with some inputs or answers replaced.
class Replacing {
 public:
   static constexpr bool records = false;
   static constexpr bool traces = false;
   static constexpr bool replaces = true;
   using Bool = bool;
   template <class T>
   using Read = T;

   explicit Replacing( std::span<const MacroInput> replaced )
      : replaced_( replaced ) {}

   template <class Subject, class T>
   T input( const Subject& subject, const char* field, const T& stored ) const {
      const MacroInput* other = replacement( subject, field );
      return other != nullptr ? parsed<T>( other->value ) : stored;
   }

   // The answer given for the macro; nothing where it is to be evaluated.
   template <class T, class Subject>
   std::optional<T> answer( const Subject& subject, const char* macro ) const {
      const MacroInput* given = replacement( subject, macro );
      if ( given == nullptr ) return std::nullopt;
      return parsed<T>( given->value );
   }

   template <class Subject, class T>
   const T* neighbor( const Subject& subject, const char* field,
                      const T* found ) const {
      if ( found == nullptr ) return found;
      const MacroInput* other = replacement( subject, field );
      return other == nullptr || parsed<bool>( other->value ) ? found : nullptr;
   }

 private:
   template <class Subject>
   const MacroInput* replacement( const Subject& subject,
                                  const char* field ) const {
      for ( const MacroInput& each : replaced_ ) {
         if ( each.field != field ) continue;
         MacroInput here = inputOf( subject, field );
         if ( here.route == each.route && here.intfId == each.intfId ) return &each;
      }
      return nullptr;
   }

   std::span<const MacroInput> replaced_;
};

// A truth value whose && and || evaluate both sides, so that each term is recorded.
class FullBool {
 public:
   FullBool( bool value ) : value_( value ) {}
   explicit operator bool() const { return value_; }
   friend FullBool operator!( FullBool a ) { return !a.value_; }
   friend FullBool operator&&( FullBool a, FullBool b ) {
      return a.value_ && b.value_;
   }
   friend FullBool operator||( FullBool a, FullBool b ) {
      return a.value_ || b.value_;
   }

 private:
   bool value_;
};

template <class T>
Mox::String answerText( const T& value ) {
   using Mox::valueToStrep;
   return valueToStrep( value );
}
inline Mox::String answerText( FullBool value ) {
   return answerText( static_cast<bool>( value ) );
}

// The values that a field might have instead of `stored`, as texts; see flipsOf().
// `asked` is the interface of the whole question; empty when it is about a route.
using Texts = std::vector<Mox::String>;
Texts alternatives( const Intf& subject, Intf::JoinState stored,
                    Vantu::IntfId asked );
Texts alternatives( const Intf& subject, Intf::RptState stored,
                    Vantu::IntfId asked );
Texts alternatives( const Intf& subject, const AssertMetric& stored,
                    Vantu::IntfId asked );
Texts alternatives( const Route& subject, UpJoinState stored, Vantu::IntfId asked );
Texts alternatives( const Route& subject, const Routing::Pim::Rpf& stored,
                    Vantu::IntfId asked );
Texts alternatives( const Route& subject, const Vantu::IntfId& stored,
                    Vantu::IntfId asked );
Texts alternatives( const Route& subject, Route::IifSwitchState stored,
                    Vantu::IntfId asked );
Texts alternatives( const Vantu::IntfId& subject, const IntfAddr& stored,
                    Vantu::IntfId asked );
template <class Subject>
Texts alternatives( const Subject&, bool stored, Vantu::IntfId ) {
   return { answerText( !stored ) };
}

// A step's source text without the parts that only the compiler needs.
Mox::String words( Mox::StringView source );

// The state of one recording.
struct Record {
   struct Read {
      MacroInput input;
      Texts alternatives;
   };

   Vantu::IntfId asked;  // the interface in question; empty: a route

   // The list for the next finished derivation, and the open one, which takes
   // inputs. Null outside of any rule.
   std::vector<Derivation>* finished = nullptr;
   Derivation* open = nullptr;

   std::vector<Derivation> roots;
   // All inputs read, each once, in order; only where `alternatives` is set.
   bool alternatives = false;
   std::vector<Read> inputs;
   std::set<std::tuple<RouteKey, Vantu::IntfId, Mox::StringView>> known;
};

// One rule being recorded; see RULE in Rule.h.
template <class T>
class RecordedRule {
 public:
   RecordedRule( Record& record, const char* macro, const MacroInput& about )
      : record_( record ),
        outerFinished_( record.finished ),
        outerOpen_( record.open ) {
      derivation_.macro = macro;
      derivation_.route = about.route;
      derivation_.intfId = about.intfId;
      record_.finished = &asked_;
      record_.open = &derivation_;
   }
   ~RecordedRule() {
      record_.finished = outerFinished_;
      record_.open = outerOpen_;
   }
   RecordedRule( const RecordedRule& ) = delete;
   RecordedRule& operator=( const RecordedRule& ) = delete;

   template <class Condition, class Outcome>
   void step( bool wanted, const char* conditionText, const char* outcomeText,
              const Condition& condition, const Outcome& outcome ) {
      MacroStep step;
      step.condition = words( conditionText );
      step.wanted = wanted;
      step.holds = static_cast<bool>( condition() );
      step.outcome = words( outcomeText );
      if ( step.holds == wanted && !answer_ ) {
         step.decides = true;
         answer_.emplace( outcome() );
         step.value = answerText( *answer_ );
      }
      add( std::move( step ) );
   }

   template <class Outcome>
   T result( const char* outcomeText, const Outcome& outcome ) {
      MacroStep step;
      step.outcome = words( outcomeText );
      step.decides = !answer_;
      T last = outcome();
      step.value = answerText( last );
      if ( step.decides ) answer_.emplace( last );
      add( std::move( step ) );
      derivation_.value = answerText( *answer_ );
      outerFinished_->push_back( std::move( derivation_ ) );
      return *answer_;
   }

 private:
   void add( MacroStep step ) {
      step.from = std::move( asked_ );
      asked_.clear();
      derivation_.steps.push_back( std::move( step ) );
   }

   Record& record_;
   std::vector<Derivation>* outerFinished_;
   Derivation* outerOpen_;
   Derivation derivation_;
   std::vector<Derivation> asked_;  // since the last step
   std::optional<T> answer_;
};

// Evaluates and records; also with one input replaced.
class Recording {
 public:
   static constexpr bool records = true;
   static constexpr bool traces = false;
   static constexpr bool replaces = false;
   using Bool = FullBool;
   template <class T>
   using Read = T;

   Recording( Record& record, const MacroInput* replaced )
      : replacing_( replaced != nullptr ? std::span<const MacroInput>( replaced, 1 )
                                        : std::span<const MacroInput>() ),
        record_( &record ) {}

   template <class Subject, class T>
   T input( const Subject& subject, const char* field, const T& stored ) const {
      T value = replacing_.input( subject, field, stored );
      note( subject, field, answerText( value ),
            [&] { return alternatives( subject, stored, record_->asked ); } );
      return value;
   }

   template <class Subject, class T>
   const T* neighbor( const Subject& subject, const char* field,
                      const T* found ) const {
      const T* there = replacing_.neighbor( subject, field, found );
      note( subject, field, answerText( there != nullptr ),
            [&] { return found != nullptr ? Texts{ "false" } : Texts{}; } );
      return there;
   }

   template <class T, class Subject>
   RecordedRule<T> rule( const char* macro, const Subject& about ) const {
      return { *record_, macro, inputOf( about, "" ) };
   }

 private:
   template <class Subject, class Others>
   void note( const Subject& subject, const char* field, Mox::String value,
              const Others& others ) const {
      MacroInput input = inputOf( subject, field );
      input.value = std::move( value );
      if ( record_->open != nullptr ) {
         auto& own = record_->open->inputs;
         if ( std::find( own.begin(), own.end(), input ) == own.end() )
            own.push_back( input );
      }
      if ( !record_->alternatives ||
           !record_->known.emplace( input.route, input.intfId, field ).second )
         return;
      record_->inputs.push_back( { std::move( input ), others() } );
   }

   Replacing replacing_;
   Record* record_;
};

}
