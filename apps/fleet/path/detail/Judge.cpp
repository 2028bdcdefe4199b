#include "apps/fleet/path/detail/Judge.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/mirror/Events.h"
#include "apps/program/Printable.h"

namespace Fleet {

namespace {

// Joins are sent again each 60 s, where the link is not configured otherwise, of which
// nothing is recorded: after two of these the upper router must know.
constexpr Time kRefresh = 60'000;  // ms

}

std::string Judge::name( uint32_t router ) const {
   return Programs::printable( fabric_.routers()[router].name );
}

std::string Judge::name( const Place& place ) const {
   return name( place.router ) + ' ' +
          Programs::printable( fabric_.interface( place ).name );
}

std::string Judge::named( const Place& at, const IpGenAddr& address ) const {
   if ( address.isUnspecified() ) return "nobody";
   if ( fabric_.interface( at ).has( address ) )
      return text( address ) + " (" + name( at.router ) + ')';
   const auto owner = fabric_.owner( at, address ).place;
   return owner ? text( address ) + " (" + name( owner->router ) + ')'
                : text( address );
}

Judgement Judge::find( Hop& hop ) const {
   const Owner owner = fabric_.owner( hop.below, hop.next );
   if ( owner.place ) {
      hop.above = *owner.place;
      return {};
   }
   if ( owner.rivals.empty() ) {
      if ( auto found = down( hop.below ) ) return found;
      if ( fabric_.neighbor( hop.below, hop.next ) == nullptr )
         return { Verdict::neighborUnknown,
                  fmt::format( "{} follows {}, which is no neighbour there",
                               name( hop.below ), text( hop.next ) ) };
      return {
         Verdict::unknownHop,
         fmt::format( "{} follows {}, and no recorded router has that address",
                      name( hop.below ), text( hop.next ) ) };
   }
   std::string who;
   for ( const Place& each : owner.rivals )
      who += ( who.empty() ? "" : ", " ) + name( each );
   return { Verdict::ambiguous,
            fmt::format( "{} follows {}, which several have: {}", name( hop.below ),
                         text( hop.next ), who ) };
}

bool Judge::old( Time created ) const {
   return created != 0 && now_ - created > 2 * kRefresh;
}

Judgement Judge::stale( uint32_t router ) const {
   const RouterFacts& facts = fabric_.routers()[router];
   if ( !facts.lives )
      return { Verdict::stale, name( router ) + " is recorded by nobody now" };
   if ( facts.incomplete() )
      return { Verdict::stale, name( router ) +
                                  " is not recorded whole: its recorder still "
                                  "brings the store to the truth" };
   return {};
}

Judgement Judge::down( const Place& place ) const {
   const Interface& is = fabric_.interface( place );
   if ( !is.isDown() ) return {};
   return { Verdict::interfaceDown,
            name( place ) +
               ( is.state == Interface::down ? " is down" : " has no carrier" ) };
}

Judgement Judge::gone( uint32_t router ) const {
   const RouterFacts& facts = fabric_.routers()[router];
   if ( !facts.agentGone() ) return {};
   std::string since;
   if ( facts.table->since != 0 )
      since = " since " + Show::utcText( facts.table->since );
   return { Verdict::agentGone, name( router ) + " has no pimsm-agent" + since };
}

Judgement Judge::forwarderGone( uint32_t router ) const {
   if ( !fabric_.routers()[router].forwarderGone() ) return {};
   return { Verdict::forwarderGone, name( router ) + " has no pimsm-mfib now" };
}

Judgement Judge::blame( Judgement found,
                        const std::vector<uint32_t>& routers ) const {
   if ( !found || found.verdict <= Verdict::agentGone ) return found;
   for ( const uint32_t each : routers ) {
      Judgement cause = gone( each );
      if ( !cause ) continue;
      cause.reason += ", and " + found.reason;
      return cause;
   }
   return found;
}

Judgement Judge::link( const Hop& hop ) const {
   for ( const Place& each : { hop.above, hop.below } ) {
      if ( auto found = stale( each.router ) ) return found;
      if ( auto found = down( each ) ) return found;
   }
   const auto deaf = [&]( const Place& at, const Place& other,
                          const char* though ) {
      return Judgement{ Verdict::neighborUnknown,
                        fmt::format( "{} knows no neighbour {}{}", name( at ),
                                     name( other.router ), though ) };
   };
   const bool up = fabric_.neighbor( hop.below, hop.next ) != nullptr;
   const bool down = fabric_.names( hop.above, hop.below );
   if ( !up ) return deaf( hop.below, hop.above, down ? ", which hears it" : "" );
   if ( down ) return {};
   // Heard, but elsewhere: these two interfaces are on different links.
   const auto count =
      static_cast<uint32_t>( fabric_.router( hop.above ).links.interfaces.size() );
   const bool local = fabric_.interface( hop.below ).address.isLinkLocal();
   for ( uint32_t i = 0; !local && i < count; ++i ) {
      const Place other{ hop.above.router, i };
      if ( fabric_.names( other, hop.below ) )
         return {
            Verdict::wrongRpf,
            fmt::format( "{} follows {}, but is on the link of {}",
                         name( hop.below ), name( hop.above ), name( other ) ) };
   }
   return deaf( hop.above, hop.below, ", which hears it" );
}

Judgement Judge::join( const Hop& hop, const Below& below,
                       const Above& above ) const {
   if ( !below.joined )
      return { Verdict::notJoined,
               fmt::format( "{} has not joined towards {}",
                            name( hop.below.router ), name( hop.above.router ) ) };
   if ( above.joined || above.member ) return {};
   if ( !below.old || above.young )
      return { Verdict::notJoined,
               fmt::format( "{} has no join of {} yet", name( hop.above ),
                            name( hop.below.router ) ) };
   return { Verdict::endsDisagree,
            fmt::format( "{} has no join, though {} has been joined for long",
                         name( hop.above ), name( hop.below.router ) ) };
}

Judgement Judge::route( const Hop& hop, const Below& below,
                        const Above& above ) const {
   if ( !above.route )
      return { Verdict::noRoute,
               fmt::format( "{} has no route that the one of {} could follow",
                            name( hop.above.router ), name( hop.below.router ) ) };
   // What comes in by the link itself needs nobody to forward it there.
   if ( above.incoming ) return {};
   if ( auto found = join( hop, below, above ) ) return found;
   if ( above.assertState == RouteIntf::loser )
      return { Verdict::wrongRpf,
               fmt::format( "{} lost the assert to {}, and {} still joins {}",
                            name( hop.above ), named( hop.above, above.winner ),
                            name( hop.below.router ), text( hop.next ) ) };
   if ( above.forwards ) return {};
   const char* why = reasonText( above.reason );
   return {
      Verdict::notForwarding,
      fmt::format( "{} does not forward{}{}", name( hop.above ), *why ? ": " : "",
                   *why           ? why
                   : above.stands ? ""
                                  : ": its route does not name it" ) };
}

Judgement Judge::twoDrs( const std::vector<Place>& link ) const {
   const Place* first = nullptr;
   for ( const Place& each : link ) {
      const bool counts =
         !fabric_.router( each ).stale() && !fabric_.router( each ).agentGone() &&
         !fabric_.interface( each ).isDown() && fabric_.interface( each ).isDr;
      if ( !counts ) continue;
      if ( first != nullptr )
         return { Verdict::endsDisagree,
                  fmt::format( "{} and {} both say to be DR on their link",
                               name( *first ), name( each ) ) };
      first = &each;
   }
   return {};
}

Judgement Judge::twoWinners(
   const std::vector<std::pair<Place, const RouteIntf*>>& records ) const {
   const auto winnerOf = [&]( const Place& at, const RouteIntf& is ) {
      if ( is.assertState == RouteIntf::winner ) return std::optional( at );
      return fabric_.owner( at, is.assertWinner ).place;
   };
   const Place* told = nullptr;
   std::optional<Place> first;
   for ( const auto& [place, record] : records ) {
      if ( record == nullptr || record->assertState == RouteIntf::noInfo ) continue;
      if ( fabric_.router( place ).stale() ) continue;
      const auto winner = winnerOf( place, *record );
      if ( !winner ) continue;
      if ( first && *first != *winner )
         return {
            Verdict::endsDisagree,
            fmt::format( "{} takes {} for the assert's winner, and {} takes {}",
                         name( *told ), name( first->router ), name( place ),
                         name( winner->router ) ) };
      first = winner;
      told = &place;
   }
   return {};
}

}
