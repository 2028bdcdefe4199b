#include "apps/mirror/Olist.h"

#include <algorithm>

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Sm::Derivation;
using Sm::Intf;
using Sm::MacroFlip;
using Sm::MacroInput;
using Sm::MacroStep;

namespace {

// The names that RFC 7761 has for the macros.
const std::vector<Olist>& namedLists() {
   static const std::vector<Olist> lists = {
      { "immediate_olist(*,G)",
        "immediateOlistWc",
        { { "joins(*,G)", "joinsWc" },
          { "pim_include(*,G)", "includeWc" },
          { "lost_assert(*,G)", "lostAssertWc", false } } },
      { "inherited_olist(S,G,rpt)",
        "inheritedOlistSgRpt",
        { { "joins(*,G)", "joinsWc" },
          { "prunes(S,G,rpt)", "prunesSgRpt", false },
          { "pim_include(*,G)", "includeWc" },
          { "pim_exclude(S,G)", "excludeSg", false },
          { "lost_assert(*,G)", "lostAssertWc", false },
          { "lost_assert(S,G,rpt)", "lostAssertSgRpt", false } } },
      { "inherited_olist(S,G)",
        "inheritedOlistSg",
        { { "joins(S,G)", "joinsSg" },
          { "pim_include(S,G)", "includeSg" },
          { "lost_assert(S,G)", "lostAssertSg", false } } } };
   return lists;
}

// The first derivation of the macro, in the order of evaluation; null if it was not
// asked for.
const Derivation* find( const MacroStep& step, std::string_view macro );
const Derivation* find( const Derivation& why, std::string_view macro ) {
   if ( why.macro == macro ) return &why;
   for ( const MacroStep& step : why.steps )
      if ( const Derivation* found = find( step, macro ) ) return found;
   return nullptr;
}
const Derivation* find( const MacroStep& step, std::string_view macro ) {
   for ( const Derivation& from : step.from )
      if ( const Derivation* found = find( from, macro ) ) return found;
   return nullptr;
}

const MacroStep& deciding( const Derivation& why ) {
   return *std::find_if( why.steps.begin(), why.steps.end(),
                         []( const MacroStep& step ) { return step.decides; } );
}

bool holds( const Derivation& why ) {
   return why.value == "true";
}

// The lists that inOlist has asked for its answer.
std::vector<Olist> listsOf( const Intf& intf,
                            const MacroInput* replaced = nullptr ) {
   const Derivation why = derive( intf, "inOlist", {}, replaced );
   const MacroStep& choice = deciding( why );
   std::vector<Olist> lists;
   for ( Olist list : namedLists() ) {
      const Derivation* made = find( choice, list.macro );
      if ( made == nullptr ) continue;
      list.in = holds( *made );
      for ( Term& term : list.terms ) {
         const Derivation* set = find( *made, term.macro );
         term.holds = set != nullptr && holds( *set );
         if ( set == nullptr ) continue;
         const bool own = set->route == intf.parentRoute()->key();
         term.asked = own ? &intf : intf.wcIntf();
      }
      lists.push_back( std::move( list ) );
   }
   return lists;
}

// Would forwardDesired hold if the answer had this value?
bool forwardsGiven( const Intf& intf, const char* macro, const char* value ) {
   const MacroInput given{ intf.parentRoute()->key(), intf.intfId(), macro, value };
   return answerGiven( intf, "forwardDesired", { &given, 1 } ) == "true";
}

// By the present role.
Outgoing outgoingNow( const Intf& intf ) {
   return { listsOf( intf ), !forwardsGiven( intf, "inOlist", "true" ),
            intf.forwardDesired() };
}

void doubt( std::optional<bool>& known, std::optional<bool> other ) {
   if ( known != other ) known.reset();
}

// What the two differ in is unknown.
void doubt( Outgoing& known, const Outgoing& other ) {
   doubt( known.forwards, other.forwards );
   for ( size_t i = 0; i < known.olists.size(); ++i ) {
      Olist& list = known.olists[i];
      doubt( list.in, other.olists[i].in );
      for ( size_t k = 0; k < list.terms.size(); ++k )
         doubt( list.terms[k].holds, other.olists[i].terms[k].holds );
   }
}

// Would the interface be in its list with these terms, the one with the other value?
bool isIn( const Intf& intf, const std::vector<Olist>& lists,
           const Term* other = nullptr ) {
   std::vector<MacroInput> given;
   for ( const Olist& list : lists ) {
      for ( const Term& term : list.terms ) {
         if ( term.asked == nullptr ) continue;
         const bool value = *term.holds != ( &term == other );
         given.push_back( { term.asked->parentRoute()->key(), intf.intfId(),
                            term.macro, value ? "true" : "false" } );
      }
   }
   return answerGiven( intf, "inOlist", given ) == "true";
}

bool anyAdds( const std::vector<Olist>& lists ) {
   for ( const Olist& list : lists ) {
      for ( const Term& term : list.terms )
         if ( term.adds && *term.holds ) return true;
   }
   return false;
}

// Marks the first term that alone makes the difference. Otherwise the first term
// that adds, or that removes what is added. Without an adding term the list itself
// decides. `now`: the lists of one role.
void markDecider( std::vector<Olist>& lists, const std::vector<Olist>& now,
                  const Intf& intf ) {
   const bool in = isIn( intf, now );
   if ( !in && !anyAdds( now ) ) {
      lists.back().decides = true;
      return;
   }
   for ( bool alone : { true, false } ) {
      for ( size_t i = lists.size(); i-- > 0; ) {
         for ( size_t k = 0; k < lists[i].terms.size(); ++k ) {
            Term& term = lists[i].terms[k];
            if ( term.holds != true || term.adds != in ) continue;
            if ( alone && isIn( intf, now, &now[i].terms[k] ) == in ) continue;
            term.decides = true;
            return;
         }
      }
   }
}

// "lost_assert(S,G) ended": of the terms that an input's change affects, the first
// that alone would suffice, or all.
std::string termsClause( const Intf& intf, const std::vector<Olist>& before,
                         const std::vector<Olist>& after ) {
   std::string all;
   const bool in = isIn( intf, before );
   for ( size_t i = 0; i < before.size(); ++i ) {
      for ( size_t k = 0; k < before[i].terms.size(); ++k ) {
         const Term& term = before[i].terms[k];
         const bool then = *after[i].terms[k].holds;
         if ( *term.holds == then ) continue;
         const std::string clause =
            term.name + std::string( then ? " held" : " ended" );
         if ( isIn( intf, before, &term ) != in ) return clause;
         all += ( all.empty() ? "" : " and " ) + clause;
      }
   }
   return all;
}

std::string clauseOf( const Intf& intf, const std::vector<Olist>& before,
                      const MacroFlip& flip ) {
   MacroInput changed = flip.input;
   changed.value = flip.value;
   if ( changed.field == "spTree" )
      return changed.value == "true" ? "SPTbit(S,G) was set"
                                     : "SPTbit(S,G) was cleared";
   // A neighbour can only be removed.
   if ( changed.field == "wc" || changed.field == "wcIntf" )
      return "the (*,G) route went";
   const std::vector<Olist> after = listsOf( intf, &changed );
   if ( after.size() == before.size() ) return termsClause( intf, before, after );
   const bool more = after.size() > before.size();
   if ( changed.field == "upJoinState" )
      return more ? "the source was joined upstream" : "its upstream join ended";
   return more ? "both trees came in by one interface"
               : "the trees came in by different interfaces";
}

}

Outgoing outgoingOf( const Mirror& mirror, const Intf& intf ) {
   std::optional<Outgoing> out;
   Outgoing now;
   Conceivable( mirror ).each( intf, [&] {
      now = outgoingNow( intf );
      if ( !out ) out = now;
      doubt( *out, now );
   } );
   if ( out->forwards && !out->incoming )
      markDecider( out->olists, now.olists, intf );
   return *out;
}

std::vector<std::string> turnsOf( const Mirror& mirror, const Intf& intf,
                                  const Outgoing& outgoing ) {
   if ( outgoing.incoming ) {
      const auto elsewhere = Conceivable( mirror ).known( intf, [&] {
         return forwardsGiven( intf, "incomingIntfIsHere", "false" );
      } );
      if ( elsewhere != true ) return {};
      return { "the traffic came in elsewhere" };
   }
   // Unpublished input has no single value that could change.
   if ( !outgoing.forwards || !Conceivable( mirror ).published() ) return {};
   std::vector<std::string> turns;
   for ( const MacroFlip& flip : flipsOf( intf, "inOlist" ) ) {
      std::string clause = clauseOf( intf, outgoing.olists, flip );
      if ( std::find( turns.begin(), turns.end(), clause ) == turns.end() )
         turns.push_back( std::move( clause ) );
   }
   return turns;
}

}
