#include "apps/mirror/Olist.h"

#include <algorithm>

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Sm::Intf;
using Sm::MacroFlip;
using Sm::MacroInput;
using Sm::Route;

namespace {

std::vector<Olist> listsOf( const Route& route ) {
   if ( route.wildCard() ) {
      return { { "immediate_olist(*,G)",
                 "immediateOlistWc",
                 { { "joins(*,G)", "joinsWc" },
                   { "pim_include(*,G)", "includeWc" },
                   { "lost_assert(*,G)", "lostAssertWc", false } } } };
   }
   std::vector<Olist> lists = {
      { "inherited_olist(S,G,rpt)",
        "inheritedOlistSgRpt",
        { { "joins(*,G)", "joinsWc", true, true },
          { "prunes(S,G,rpt)", "prunesSgRpt", false },
          { "pim_include(*,G)", "includeWc", true, true },
          { "pim_exclude(S,G)", "excludeSg", false },
          { "lost_assert(*,G)", "lostAssertWc", false, true },
          { "lost_assert(S,G,rpt)", "lostAssertSgRpt", false } } } };
   if ( !route.spTree() ) return lists;
   lists.push_back( { "inherited_olist(S,G)",
                      "inheritedOlistSg",
                      { { "joins(S,G)", "joinsSg" },
                        { "pim_include(S,G)", "includeSg" },
                        { "lost_assert(S,G)", "lostAssertSg", false } } } );
   return lists;
}

// The terms' values, one vector a list.
using Values = std::vector<std::vector<bool>>;

// One interface of a route, and its lists' answers for other values.
class Asked {
 public:
   Asked( const std::vector<Olist>& lists, const Intf& intf )
      : lists_( lists ), intf_( intf ) {}

   // Would the list hold the interface if the terms of it and of the lists before
   // it had these values? Its macro decides.
   bool isIn( const Values& values, size_t list ) const {
      std::vector<MacroInput> given;
      for ( size_t i = 0; i <= list; ++i ) {
         for ( size_t k = 0; k < lists_[i].terms.size(); ++k ) {
            const Term& term = lists_[i].terms[k];
            const Intf* asked = askedBy( term, intf_ );
            if ( asked == nullptr ) continue;
            given.push_back( { asked->parentRoute()->key(), asked->intfId(),
                               term.macro, values[i][k] ? "true" : "false" } );
         }
      }
      return answerGiven( intf_, lists_[list].macro, given ) == "true";
   }
   bool isIn( const Values& values ) const {
      return isIn( values, lists_.size() - 1 );
   }

   Values values( const MacroInput* replaced = nullptr ) const {
      Values values;
      for ( const Olist& list : lists_ ) {
         auto& row = values.emplace_back();
         for ( const Term& term : list.terms )
            row.push_back( holds( term, replaced ) );
      }
      return values;
   }

 private:
   bool holds( const Term& term, const MacroInput* replaced ) const {
      const Intf* asked = askedBy( term, intf_ );
      return asked != nullptr &&
             derive( *asked, term.macro, {}, replaced ).value == "true";
   }

   const std::vector<Olist>& lists_;
   const Intf& intf_;
};

Values flipped( Values values, size_t list, size_t term ) {
   values[list][term] = !values[list][term];
   return values;
}

void fold( std::optional<bool>& known, bool value, bool first ) {
   if ( first ) {
      known = value;
   } else if ( known != value ) {
      known.reset();
   }
}

bool anyAdds( const std::vector<Olist>& lists, const Values& values ) {
   for ( size_t i = 0; i < lists.size(); ++i ) {
      for ( size_t k = 0; k < lists[i].terms.size(); ++k )
         if ( lists[i].terms[k].adds && values[i][k] ) return true;
   }
   return false;
}

// Marks the first term that alone makes the difference. Otherwise the first term
// that adds, or that removes what is added. Without an adding term the list itself
// decides.
void markDecider( std::vector<Olist>& lists, const Values& values,
                  const Asked& asked ) {
   const bool in = asked.isIn( values );
   if ( !in && !anyAdds( lists, values ) ) {
      lists.back().decides = true;
      return;
   }
   auto candidate = [&]( size_t i, size_t k ) {
      const Term& term = lists[i].terms[k];
      return term.holds && values[i][k] && term.adds == in;
   };
   for ( bool alone : { true, false } ) {
      for ( size_t i = lists.size(); i-- > 0; ) {
         for ( size_t k = 0; k < lists[i].terms.size(); ++k ) {
            if ( !candidate( i, k ) ) continue;
            if ( alone && asked.isIn( flipped( values, i, k ) ) == in ) continue;
            lists[i].terms[k].decides = true;
            return;
         }
      }
   }
}

// "lost_assert(S,G) ended": of the terms that a field's change affects, the first
// that alone would suffice, or all.
std::string clauseOf( const std::vector<Olist>& lists, const Values& before,
                      const Values& after, const Asked& asked ) {
   std::string all;
   const bool in = asked.isIn( before );
   for ( size_t i = 0; i < lists.size(); ++i ) {
      for ( size_t k = 0; k < lists[i].terms.size(); ++k ) {
         if ( before[i][k] == after[i][k] ) continue;
         std::string clause = lists[i].terms[k].name +
                              std::string( after[i][k] ? " held" : " ended" );
         if ( asked.isIn( flipped( before, i, k ) ) != in ) return clause;
         all += ( all.empty() ? "" : " and " ) + clause;
      }
   }
   return all;
}

}

const Intf* askedBy( const Term& term, const Intf& intf ) {
   return term.shared ? intf.wcIntf() : &intf;
}

Outgoing outgoingOf( const Mirror& mirror, const Intf& intf ) {
   const Route& route = *intf.parentRoute();
   Outgoing out;
   out.olists = listsOf( route );
   out.incoming = route.incomingIntf() == intf.intfId();
   const Conceivable conceivable( mirror );
   const Asked asked( out.olists, intf );
   bool first = true;
   std::optional<bool> in;
   Values values;
   conceivable.each( intf, [&] {
      values = asked.values();
      for ( size_t i = 0; i < out.olists.size(); ++i ) {
         Olist& list = out.olists[i];
         for ( size_t k = 0; k < list.terms.size(); ++k )
            fold( list.terms[k].holds, values[i][k], first );
         fold( list.in, asked.isIn( values, i ), first );
      }
      fold( in, intf.inOlist(), first );
      first = false;
   } );
   out.forwards = out.incoming ? std::optional( false ) : in;
   if ( in && !out.incoming ) markDecider( out.olists, values, asked );
   return out;
}

std::vector<std::string> turnsOf( const Mirror& mirror, const Intf& intf,
                                  const Outgoing& outgoing ) {
   const std::vector<Olist>& lists = outgoing.olists;
   if ( outgoing.incoming && lists.back().in == true )
      return { "the traffic came in elsewhere" };
   // Unpublished input has no single value that could change.
   if ( outgoing.incoming || !outgoing.forwards ||
        !Conceivable( mirror ).published() )
      return {};
   const Asked asked( lists, intf );
   const Values values = asked.values();
   std::vector<std::string> turns;
   for ( const MacroFlip& flip : flipsOf( intf, lists.back().macro ) ) {
      MacroInput changed = flip.input;
      changed.value = flip.value;
      std::string clause =
         clauseOf( lists, values, asked.values( &changed ), asked );
      // The neighbour was removed, so its terms were not evaluated.
      if ( clause.empty() ) clause = "the (*,G) route went";
      if ( std::find( turns.begin(), turns.end(), clause ) == turns.end() )
         turns.push_back( clause );
   }
   return turns;
}

}
