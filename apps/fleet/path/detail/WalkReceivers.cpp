#include <fmt/format.h>

#include <algorithm>

#include "apps/fleet/path/detail/Walk.h"

namespace Fleet {

void Walk::towards( const IpGenAddr& receiver ) {
   const auto places = fabric_.attached( receiver );
   if ( places.empty() )
      return fault( { Verdict::noSuchNetwork,
                      text( receiver ) + " is in no network of a recorded router" },
                    std::nullopt, {} );
   if ( fabric_.clash( places ) ) {
      std::string who;
      for ( const Place& each : places )
         who += ( who.empty() ? "" : ", " ) + judge_.name( each );
      return fault(
         { Verdict::ambiguous,
           text( receiver ) + " is in a network of several links: " + who },
         std::nullopt, {} );
   }
   const auto link = fabric_.link( places.front() );
   const auto source =
      std::find_if( places.begin(), places.end(), [&]( const Place& each ) {
         return !wildcard() && onNetwork( each, question_.stream.source );
      } );
   if ( source == places.end() ) return deliver( link );
   // Both are on one link: no router is needed.
   const size_t at = stop( source->router, Tree::none );
   root( at, Kind::attached, nameOf( *source ) );
   answer_.receivers.push_back( { at,
                                  nameOf( *source ),
                                  true,
                                  memberOn( stream( *source ), nameOf( *source ) ),
                                  fabric_.interface( *source ).isDr,
                                  {} } );
}

// The routers that have members, then those that forward to somebody: where nobody
// follows, it ends.
void Walk::wholeTree() {
   std::vector<uint32_t> taking;
   std::set<uint32_t> followed;
   for ( uint32_t router = 0; router < fabric_.routers().size(); ++router ) {
      const Stream& held = routers_.stream( router );
      const View view = viewOf( held );
      const auto& interfaces = interfacesOf( held );
      // Who joins the shared tree may have pruned this source from it.
      const bool takes =
         ( view.tree == Tree::source && view.joined ) ||
         std::any_of( interfaces.begin(), interfaces.end(),
                      []( const auto& is ) { return is.forwards; } );
      if ( !takes ) continue;
      taking.push_back( router );
      const auto place = fabric_.place( router, view.incoming );
      if ( !place ) continue;
      if ( const auto above = fabric_.owner( *place, view.neighbor ).place )
         followed.insert( above->router );
   }
   for ( uint32_t router = 0; router < fabric_.routers().size(); ++router ) {
      const auto count =
         static_cast<uint32_t>( fabric_.routers()[router].links.interfaces.size() );
      for ( uint32_t i = 0; i < count; ++i ) {
         const Place place{ router, i };
         if ( memberOn( stream( place ), nameOf( place ) ) )
            deliver( fabric_.link( place ) );
      }
   }
   for ( const bool middle : { false, true } )
      for ( const uint32_t router : taking )
         if ( ( followed.count( router ) != 0 ) == middle )
            climb( stop( router, Tree::none ) );
   ends();
}

void Walk::ends() {
   // Making stops adds none here: each stands already.
   for ( size_t at = 0; at < stops_.size(); ++at ) {
      const uint32_t router = stops_[at].router;
      for ( const RouteIntf& each : interfacesOf( routers_.stream( router ) ) ) {
         const auto place = fabric_.place( router, each.name );
         if ( !each.forwards || !place || delivered_.count( *place ) != 0 ||
              !feeding_.insert( *place ).second )
            continue;
         const Judgement found = surplus( *place );
         answer_.receivers.push_back( { at, each.name, false, false,
                                        fabric_.interface( *place ).isDr, found } );
         fault( found, at, { router } );
      }
   }
}

// A join that none of the routers there can have sent.
Judgement Walk::surplus( const Place& place ) {
   const Stream& held = stream( place );
   const auto joined = [&]( const std::optional<Route>& route ) {
      const RouteIntf* is = route ? route->entry.find( nameOf( place ) ) : nullptr;
      // Who lost an assert keeps joins until they expire.
      return is != nullptr && is->joined && !is->pruning &&
             is->assertState != RouteIntf::loser;
   };
   if ( !joined( held.sg ) && !joined( held.wc ) ) return {};
   const auto sends = [&]( const Place& other ) {
      for ( const auto* route : { &stream( other ).sg, &stream( other ).wc } )
         if ( *route && ( *route )->entry.joined &&
              ( ( *route )->entry.incoming == nameOf( other ) ||
                ( *route )->entry.rpfInterface == nameOf( other ) ) )
            return true;
      return false;
   };
   bool any = false;
   for ( const Neighbor& each : fabric_.router( place ).links.neighbors ) {
      if ( each.interface != nameOf( place ) ) continue;
      const auto other = fabric_.owner( place, each.address ).place;
      const bool known = other && !fabric_.router( *other ).stale() &&
                         !fabric_.router( *other ).agentGone();
      if ( !known || sends( *other ) ) return {};
      any = true;
   }
   if ( !any ) return {};
   return { Verdict::endsDisagree,
            judge_.name( place ) + " holds a join that no router there sends" };
}

void Walk::deliver( const std::vector<Place>& link ) {
   if ( delivered_.count( link.front() ) != 0 ) return;
   delivered_.insert( link.begin(), link.end() );
   Judgement judgement;
   const Place place = deliverer( link, judgement );
   const size_t at = stop( place.router, Tree::none );
   const bool member =
      std::any_of( link.begin(), link.end(), [&]( const Place& each ) {
         return memberOn( stream( each ), nameOf( each ) );
      } );
   answer_.receivers.push_back( { at, nameOf( place ), true, member,
                                  fabric_.interface( place ).isDr, judgement } );
   std::set<uint32_t> routers;
   for ( const Place& each : link ) routers.insert( each.router );
   fault( judgement, at, routers );
   climb( at );
}

// Who puts the packets onto the link, or should.
Place Walk::deliverer( const std::vector<Place>& link, Judgement& judgement ) {
   const Place chosen = responsible( link );
   const auto any = [&]( const auto& test ) -> std::optional<Place> {
      if ( test( chosen ) ) return chosen;
      const auto found = std::find_if( link.begin(), link.end(), test );
      return found == link.end() ? std::nullopt : std::optional( *found );
   };
   if ( const auto found =
           any( [&]( const Place& each ) { return forwards( each ); } ) ) {
      judgement = judge_.stale( found->router );
      if ( !judgement ) judgement = judge_.down( *found );
      if ( !judgement ) judgement = bothForward( link );
      if ( !judgement ) judgement = judge_.twoDrs( link );
      if ( !judgement ) judgement = judge_.forwarderGone( found->router );
      return *found;
   }
   // Who takes it from the link itself makes somebody forward it there.
   if ( const auto found = any( [&]( const Place& each ) {
           const View view = viewOf( stream( each ) );
           return view.incoming == nameOf( each ) &&
                  ( view.joined || view.attached );
        } ) )
      return *found;
   judgement = judge_.blame( undelivered( link, chosen ), { chosen.router } );
   return chosen;
}

// The assert's winner, the DR, or whoever knows a member.
Place Walk::responsible( const std::vector<Place>& link ) {
   const auto winner = [&]( const Place& each ) {
      const RouteIntf* record = recordOf( stream( each ), nameOf( each ) );
      return record != nullptr && record->assertState == RouteIntf::winner;
   };
   const auto dr = [&]( const Place& each ) {
      return fabric_.interface( each ).isDr && !fabric_.router( each ).agentGone();
   };
   const auto named = [&]( const Place& each ) {
      return std::any_of( link.begin(), link.end(), [&]( const Place& other ) {
         return fabric_.interface( each ).has( fabric_.interface( other ).dr );
      } );
   };
   const auto member = [&]( const Place& each ) {
      return memberOn( stream( each ), nameOf( each ) );
   };
   auto found = std::find_if( link.begin(), link.end(), winner );
   if ( found == link.end() ) found = std::find_if( link.begin(), link.end(), dr );
   if ( found == link.end() )
      found = std::find_if( link.begin(), link.end(), named );
   if ( found == link.end() )
      found = std::find_if( link.begin(), link.end(), member );
   return found == link.end() ? link.front() : *found;
}

Judgement Walk::undelivered( const std::vector<Place>& link, const Place& place ) {
   if ( auto found = judge_.stale( place.router ) ) return found;
   if ( auto found = judge_.down( place ) ) return found;
   const std::string name = judge_.name( place );
   const Interface& is = fabric_.interface( place );
   const bool known = is.isDr || is.dr.isUnspecified() || is.has( is.dr ) ||
                      fabric_.owner( place, is.dr ).place;
   if ( !known )
      return { Verdict::unknownHop,
               fmt::format( "{} sees {} as DR, which no recorded router has", name,
                            text( is.dr ) ) };
   const auto member =
      std::find_if( link.begin(), link.end(), [&]( const Place& each ) {
         return memberOn( stream( each ), nameOf( each ) );
      } );
   if ( member == link.end() )
      return { Verdict::noMember, name + " knows no host that asks for it" };
   const Stream& held = stream( place );
   if ( viewOf( held ).tree == Tree::none )
      return {
         Verdict::noRoute,
         fmt::format( "{}, which should forward, has no route of it, though {} "
                      "knows a member",
                      name, judge_.name( *member ) ) };
   const RouteIntf* record = recordOf( held, nameOf( place ) );
   const std::string why = record == nullptr ? "its route does not name it"
                                             : reasonText( record->reason );
   return { Verdict::notForwarding, fmt::format( "{} does not forward{}{}", name,
                                                 why.empty() ? "" : ": ", why ) };
}

}
