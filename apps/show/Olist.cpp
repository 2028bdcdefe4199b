#include "apps/show/Olist.h"

#include <algorithm>

#include "apps/published/Incoming.h"

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
                 { { "joins(*,G)", "joinsWc" },
                   { "pim_include(*,G)", "includeWc" },
                   { "lost_assert(*,G)", "lostAssertWc", false } } } };
   }
   std::vector<Olist> lists = {
      { "inherited_olist(S,G,rpt)",
        { { "joins(*,G)", "joinsWc", true, true },
          { "prunes(S,G,rpt)", "prunesSgRpt", false },
          { "pim_include(*,G)", "includeWc", true, true },
          { "pim_exclude(S,G)", "excludeSg", false },
          { "lost_assert(*,G)", "lostAssertWc", false, true },
          { "lost_assert(S,G,rpt)", "lostAssertSgRpt", false } } } };
   if ( !route.spTree() ) return lists;
   lists.push_back( { "inherited_olist(S,G)",
                      { { "joins(S,G)", "joinsSg" },
                        { "pim_include(S,G)", "includeSg" },
                        { "lost_assert(S,G)", "lostAssertSg", false } } } );
   return lists;
}

// The terms' values, list by list.
using Values = std::vector<std::vector<bool>>;

// What takes out right behind what adds takes out of that alone; the asserts take out
// of all.
bool isIn( const std::vector<Olist>& lists, const Values& values ) {
   bool in = false;
   for ( size_t i = 0; i < lists.size(); ++i ) {
      const std::vector<bool>& v = values[i];
      if ( v.size() == 6 ) {
         in = ( ( v[0] && !v[1] ) || ( v[2] && !v[3] ) ) && !v[4] && !v[5];
      } else {
         in = ( in || v[0] || v[1] ) && !v[2];
      }
   }
   return in;
}

bool answer( const Term& term, const Intf& intf,
             const MacroInput* replaced = nullptr ) {
   const Intf* asked = askedBy( term, intf );
   return asked != nullptr &&
          derive( *asked, term.macro, {}, replaced ).value == "true";
}

Values valuesOf( const std::vector<Olist>& lists, const Intf& intf,
                 const MacroInput* replaced = nullptr ) {
   Values values;
   for ( const Olist& list : lists ) {
      auto& row = values.emplace_back();
      for ( const Term& term : list.terms )
         row.push_back( answer( term, intf, replaced ) );
   }
   return values;
}

Values flipped( Values values, size_t list, size_t term ) {
   values[list][term] = !values[list][term];
   return values;
}

std::vector<Olist> upTo( const std::vector<Olist>& lists, size_t last ) {
   return { lists.begin(), lists.begin() + static_cast<ptrdiff_t>( last ) + 1 };
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

// The first that alone makes the difference; else the first that adds, or takes out
// what is added. Nothing that adds: the list's own doing.
void markDecider( std::vector<Olist>& lists, const Values& values ) {
   const bool in = isIn( lists, values );
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
            if ( alone && isIn( lists, flipped( values, i, k ) ) == in ) continue;
            lists[i].terms[k].decides = true;
            return;
         }
      }
   }
}

// "lost_assert(S,G) ended", of the terms that the change of a field changes: the first
// that alone would do, or all.
std::string clauseOf( const std::vector<Olist>& lists, const Values& before,
                      const Values& after ) {
   std::string all;
   const bool in = isIn( lists, before );
   for ( size_t i = 0; i < lists.size(); ++i ) {
      for ( size_t k = 0; k < lists[i].terms.size(); ++k ) {
         if ( before[i][k] == after[i][k] ) continue;
         std::string clause = lists[i].terms[k].name +
                              std::string( after[i][k] ? " held" : " ended" );
         if ( isIn( lists, flipped( before, i, k ) ) != in ) return clause;
         all += ( all.empty() ? "" : " and " ) + clause;
      }
   }
   return all;
}

}

const char* olistMacro( const Route& route ) {
   if ( route.wildCard() ) return "immediateOlistWc";
   return route.spTree() ? "inheritedOlistSg" : "inheritedOlistSgRpt";
}

bool inOlist( const Intf& intf ) {
   const Route& route = *intf.parentRoute();
   if ( route.wildCard() ) return intf.immediateOlistWc();
   return route.spTree() ? intf.inheritedOlistSg() : intf.inheritedOlistSgRpt();
}

const Intf* askedBy( const Term& term, const Intf& intf ) {
   return term.shared ? intf.wcIntf() : &intf;
}

Outgoing outgoingOf( const Mirror& mirror, const Intf& intf ) {
   const Route& route = *intf.parentRoute();
   Outgoing out;
   out.olists = listsOf( route );
   out.incoming = Published::incomingIntf( route ) == intf.intfId();
   const Conceivable conceivable( mirror );
   bool first = true;
   std::optional<bool> in;
   Values values;
   conceivable.each( intf, [&] {
      values = valuesOf( out.olists, intf );
      for ( size_t i = 0; i < out.olists.size(); ++i ) {
         Olist& list = out.olists[i];
         for ( size_t k = 0; k < list.terms.size(); ++k )
            fold( list.terms[k].holds, values[i][k], first );
         fold( list.in, isIn( upTo( out.olists, i ), values ), first );
      }
      fold( in, inOlist( intf ), first );
      first = false;
   } );
   out.forwards = out.incoming ? std::optional( false ) : in;
   if ( in && !out.incoming ) markDecider( out.olists, values );
   return out;
}

std::vector<std::string> turnsOf( const Mirror& mirror, const Intf& intf,
                                  const Outgoing& outgoing ) {
   const std::vector<Olist>& lists = outgoing.olists;
   if ( outgoing.incoming && lists.back().in == true )
      return { "the traffic came in elsewhere" };
   // What is not published has no single value that could change.
   if ( outgoing.incoming || !outgoing.forwards ||
        !Conceivable( mirror ).published() )
      return {};
   const Values values = valuesOf( lists, intf );
   std::vector<std::string> turns;
   for ( const MacroFlip& flip :
         flipsOf( intf, olistMacro( *intf.parentRoute() ) ) ) {
      MacroInput changed = flip.input;
      changed.value = flip.value;
      std::string clause =
         clauseOf( lists, values, valuesOf( lists, intf, &changed ) );
      // The neighbour that was taken away: its terms were not asked again.
      if ( clause.empty() ) clause = "the (*,G) route went";
      if ( std::find( turns.begin(), turns.end(), clause ) == turns.end() )
         turns.push_back( clause );
   }
   return turns;
}

}
