#include "apps/fleet/path/detail/Walk.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/program/Printable.h"

namespace Fleet {

namespace {

bool grows( const Stream& stream ) {
   return stream.rate && stream.rate->samples.size() >= 2 &&
          stream.rate->samples[0] > 0 && stream.rate->samples[1] > 0;
}

bool stands( const Stream& stream ) {
   return stream.rate && stream.rate->samples.size() >= 2 &&
          stream.rate->samples[0] == 0 && stream.rate->samples[1] == 0;
}

}

Walk::Walk( Routers& routers, const PathQuestion& question )
   : routers_( routers ),
     fabric_( routers.fabric() ),
     question_( question ),
     judge_( fabric_, question.now ) {}

// The state below may follow the source's tree while this router still takes the shared
// one.
size_t Walk::stop( uint32_t router, Tree followed ) {
   const Stream& held = routers_.stream( router );
   Stop made{ router,
              followed == Tree::source ? sourceViewOf( held ) : viewOf( held ),
              {},
              false };
   const auto [found, fresh] =
      stopOf_.try_emplace( { router, made.view.tree }, stops_.size() );
   if ( fresh ) {
      stops_.push_back( std::move( made ) );
      answer_.nodes.emplace_back();
      fillNode( found->second );
   }
   return found->second;
}

void Walk::climb( size_t leaf ) {
   std::vector<size_t> trail{ leaf };
   while ( !stops_[trail.back()].walked ) {
      const size_t at = trail.back();
      stops_[at].walked = true;
      const auto next = step( at );
      if ( !next ) return;
      stops_[at].up = next;
      trail.push_back( *next );
   }
   const auto met = std::find( trail.begin(), trail.end() - 1, trail.back() );
   if ( met == trail.end() - 1 ) return;
   std::string circle;
   std::set<uint32_t> routers;
   for ( auto each = met; each != trail.end(); ++each ) {
      circle +=
         ( circle.empty() ? "" : ", " ) + judge_.name( stops_[*each].router );
      routers.insert( stops_[*each].router );
   }
   const Judgement loop{ Verdict::loop, circle + " follow each other in a circle" };
   if ( !answer_.edges.back().judgement ) answer_.edges.back().judgement = loop;
   fault( loop, trail.back(), routers );
   answer_.roots.push_back( { trail.back(), Kind::cut, "", loop } );
}

std::optional<size_t> Walk::step( size_t at ) {
   const uint32_t router = stops_[at].router;
   const View view = stops_[at].view;
   if ( fabric_.routers()[router].name == question_.from ) {
      root( at, Kind::asked, view.incoming );
      return std::nullopt;
   }
   if ( view.tree == Tree::none ) return std::nullopt;
   if ( view.tree == Tree::shared &&
        fabric_.routers()[router].ownsRp( rpOf( router, view ) ) )
      return atRp( at );
   return hop( at, view );
}

void Walk::root( size_t at, Kind kind, const std::string& interface,
                 const Judgement& judgement ) {
   answer_.roots.push_back( { at, kind, interface, judgement } );
   const uint32_t router = stops_[at].router;
   fault( judgement, at, { router } );
   fault( judge_.stale( router ), at, { router } );
   const bool source = kind == Kind::attached || kind == Kind::registers;
   if ( source && stands( routers_.stream( router ) ) )
      fault( { Verdict::sourceSilent,
               fmt::format( "{} has the source, and counts no packets of it",
                            judge_.name( router ) ) },
             at, { router } );
}

bool Walk::onNetwork( const Place& place, const IpGenAddr& host ) const {
   const auto& networks = fabric_.interface( place ).networks;
   return std::any_of(
      networks.begin(), networks.end(),
      [&]( const IpGenPrefix& each ) { return each.contains( host ); } );
}

// Does the way end here, at the source or for want of anybody to follow?
bool Walk::ended( size_t at, const View& view, Hop& hop ) {
   const uint32_t router = stops_[at].router;
   const auto place = fabric_.place( router, view.incoming );
   const bool here = view.tree == Tree::source && view.neighbor.isUnspecified() &&
                     place && onNetwork( *place, question_.stream.source );
   if ( view.attached || here ) {
      root( at, Kind::attached, view.incoming );
      return true;
   }
   if ( !place || view.neighbor.isUnspecified() ) {
      root( at, Kind::cut, view.incoming, unresolved( at, view ) );
      return true;
   }
   hop.below = *place;
   hop.next = view.neighbor;
   auto found = judge_.find( hop );
   if ( !found ) return false;
   const IpGenAddr rp = rpOf( router, view );
   if ( view.tree == Tree::shared && found.verdict == Verdict::unknownHop &&
        view.neighbor == rp )
      found.verdict = Verdict::rpUnknown;
   // One that took its leave has left nothing that could be its own.
   if ( view.tree == Tree::shared && found.verdict == Verdict::neighborUnknown &&
        fabric_.ownersOfRp( rp ).empty() )
      found = { Verdict::rpUnknown,
                fmt::format( "{}, and no recorded router is RP {}", found.reason,
                             text( rp ) ) };
   root( at, Kind::cut, view.incoming, found );
   return true;
}

std::optional<size_t> Walk::hop( size_t at, const View& view ) {
   Hop hop;
   if ( ended( at, view, hop ) ) return std::nullopt;
   const uint32_t router = stops_[at].router;
   const bool taken = view.tree == Tree::shared && takenOver( hop );
   const size_t up = stop( hop.above.router, view.tree );
   PathAnswer::Edge made = edge( up, at );
   made.fromInterface = nameOf( hop.above );
   made.toInterface = view.incoming;
   made.forwards = forwards( hop.above );
   made.judgement = judge_.link( hop );
   if ( !made.judgement && !taken ) made.judgement = entries( hop, view );
   if ( !made.judgement ) made.judgement = elsewhere( hop );
   if ( !made.judgement && !grows( routers_.stream( router ) ) )
      made.judgement = judge_.forwarderGone( hop.above.router );
   if ( !made.judgement )
      made.judgement = countersStill( hop.above.router, router );
   made.judgement =
      judge_.blame( std::move( made.judgement ), { hop.above.router, router } );
   fault( made.judgement, at, { hop.above.router, router } );
   const bool ends = made.judgement.verdict == Verdict::stale ||
                     stops_[up].view.tree == Tree::none;
   feeding_.insert( hop.above );
   answer_.edges.push_back( std::move( made ) );
   if ( !ends ) return up;
   stops_[at].up = up;
   if ( !stops_[up].walked ) answer_.roots.push_back( { up, Kind::cut, "", {} } );
   stops_[up].walked = true;
   return std::nullopt;
}

// The source's packets may reach the link by another router, which won the assert for
// them from the one that this router takes the shared tree from.
bool Walk::takenOver( Hop& hop ) {
   const auto& sg = stream( hop.above ).sg;
   const RouteIntf* record = sg ? sg->entry.find( nameOf( hop.above ) ) : nullptr;
   if ( record == nullptr || record->assertState != RouteIntf::loser ) return false;
   const auto winner = fabric_.owner( hop.below, record->assertWinner ).place;
   if ( !winner || !forwards( *winner ) ) return false;
   hop.above = *winner;
   hop.next = record->assertWinner;
   return true;
}

PathAnswer::Edge Walk::edge( size_t above, size_t below ) {
   PathAnswer::Edge made;
   made.from = above;
   made.to = below;
   const auto bits = [&]( size_t at ) -> std::optional<double> {
      const auto& rate = routers_.stream( stops_[at].router ).rate;
      return rate ? rate->bitsPerSecond : std::nullopt;
   };
   made.fromBits = bits( above );
   made.toBits = bits( below );
   return made;
}

Judgement Walk::entries( const Hop& hop, const View& view ) {
   const uint32_t above = hop.above.router, below = hop.below.router;
   if ( view.tree == Tree::shared )
      if ( auto found = rpDiffers( above, below, rpOf( below, view ) ) )
         return found;
   const Stream& held = stream( hop.above );
   Above end = aboveOf( held, view.tree, nameOf( hop.above ) );
   const auto& joining = view.tree == Tree::source ? held.sg : held.wc;
   end.young = joining && !judge_.old( joining->entry.created );
   return judge_.route( hop, { view.joined, judge_.old( view.created ) }, end );
}

// The others on the link.
Judgement Walk::elsewhere( const Hop& hop ) {
   const auto link = fabric_.link( hop.above );
   std::vector<std::pair<Place, const RouteIntf*>> wc, sg;
   for ( const Place& each : link ) {
      const Stream& held = stream( each );
      if ( held.wc ) wc.emplace_back( each, held.wc->entry.find( nameOf( each ) ) );
      if ( held.sg ) sg.emplace_back( each, held.sg->entry.find( nameOf( each ) ) );
   }
   if ( auto found = judge_.twoWinners( sg ) ) return found;
   if ( auto found = judge_.twoWinners( wc ) ) return found;
   if ( auto found = bothForward( link ) ) return found;
   return judge_.twoDrs( link );
}

// Without packets there is no assert that could choose one of them.
Judgement Walk::bothForward( const std::vector<Place>& link ) {
   const Place* first = nullptr;
   if ( wildcard() ) return {};
   for ( const Place& each : link ) {
      if ( !forwards( each ) || quiet( each.router ) ||
           judge_.stale( each.router ) ||
           viewOf( stream( each ) ).incoming == nameOf( each ) )
         continue;
      if ( first != nullptr )
         return { Verdict::endsDisagree,
                  fmt::format( "{} and {} both forward to their link",
                               judge_.name( *first ), judge_.name( each ) ) };
      first = &each;
   }
   return {};
}

bool Walk::forwards( const Place& place ) {
   const RouteIntf* record = recordOf( stream( place ), nameOf( place ) );
   return record != nullptr && record->forwards;
}

bool Walk::quiet( uint32_t router ) {
   return stands( routers_.stream( router ) );
}

Judgement Walk::countersStill( uint32_t above, uint32_t below ) {
   if ( !grows( routers_.stream( above ) ) || !stands( routers_.stream( below ) ) )
      return {};
   return { Verdict::countersStill,
            fmt::format( "{} counts packets, and {} counts none",
                         judge_.name( above ), judge_.name( below ) ) };
}

IpGenAddr Walk::rpOf( uint32_t router, const View& view ) const {
   if ( !view.rp.isUnspecified() ) return view.rp;
   return fabric_.routers()[router].rp( question_.stream.group );
}

Judgement Walk::rpDiffers( uint32_t above, uint32_t below,
                           const IpGenAddr& rp ) const {
   const IpGenAddr other = rpOf( above, viewOf( routers_.stream( above ) ) );
   if ( rp.isUnspecified() || other.isUnspecified() || rp == other ) return {};
   return { Verdict::rpDiffers,
            fmt::format( "{} has RP {} for the group, and {} has {}",
                         judge_.name( below ), text( rp ), judge_.name( above ),
                         text( other ) ) };
}

Judgement Walk::unresolved( size_t at, const View& view ) const {
   const uint32_t router = stops_[at].router;
   const std::string name = judge_.name( router );
   if ( !view.incoming.empty() && !fabric_.place( router, view.incoming ) )
      return { Verdict::unreadable,
               fmt::format( "{} tells nothing of its interface {}", name,
                            Programs::printable( view.incoming ) ) };
   if ( view.tree == Tree::source )
      return { Verdict::unresolvedRpf, name + " knows no way to the source" };
   const IpGenAddr rp = rpOf( router, view );
   if ( rp.isUnspecified() )
      return { Verdict::noRp, name + " has no RP for the group" };
   if ( fabric_.ownersOfRp( rp ).empty() )
      return {
         Verdict::rpUnknown,
         fmt::format( "{} knows no way to RP {}, and no recorded router is it",
                      name, text( rp ) ) };
   return { Verdict::unresolvedRpf,
            fmt::format( "{} knows no way to RP {}", name, text( rp ) ) };
}

// Here the shared tree ends. The source's packets come by its tree, or in registers.
std::optional<size_t> Walk::atRp( size_t at ) {
   if ( wildcard() ) {
      root( at, Kind::rp, "" );
      return std::nullopt;
   }
   const auto firstHops = fabric_.attached( question_.stream.source );
   if ( registered( at, firstHops ) ) return std::nullopt;
   const View source = sourceViewOf( routers_.stream( stops_[at].router ) );
   if ( source.tree == Tree::source && source.joined ) return hop( at, source );
   root( at, Kind::rp, "", unregistered( at, firstHops ) );
   return std::nullopt;
}

bool Walk::registered( size_t at, const std::vector<Place>& firstHops ) {
   const uint32_t rp = stops_[at].router;
   bool any = false;
   for ( const Place& each : firstHops ) {
      const auto& registering = stream( each ).registering;
      if ( each.router == rp || !registering || !registering->registers ) continue;
      any = true;
      const size_t first = stop( each.router, Tree::source );
      PathAnswer::Edge made = edge( first, at );
      made.registers = made.forwards = true;
      made.judgement = judge_.stale( each.router );
      if ( !made.judgement ) made.judgement = judge_.stale( rp );
      if ( !made.judgement )
         made.judgement = rpDiffers( each.router, rp, rpOf( rp, stops_[at].view ) );
      if ( !made.judgement ) made.judgement = countersStill( each.router, rp );
      made.judgement =
         judge_.blame( std::move( made.judgement ), { each.router, rp } );
      fault( made.judgement, at, { each.router, rp } );
      answer_.edges.push_back( std::move( made ) );
      stops_[at].up = first;
      if ( !stops_[first].walked ) root( first, Kind::registers, nameOf( each ) );
      stops_[first].walked = true;
   }
   return any;
}

Judgement Walk::unregistered( size_t at, const std::vector<Place>& firstHops ) {
   const std::string rp = judge_.name( stops_[at].router );
   const Stream& held = routers_.stream( stops_[at].router );
   if ( firstHops.empty() && grows( held ) )
      return { Verdict::unknownHop,
               rp + ", the RP, gets packets from a router that is not recorded" };
   if ( firstHops.empty() )
      return { Verdict::noSource,
               fmt::format( "{} is in no network of a recorded router, and RP {} "
                            "gets nothing from it",
                            text( question_.stream.source ), rp ) };
   const auto dr = std::find_if(
      firstHops.begin(), firstHops.end(),
      [&]( const Place& each ) { return fabric_.interface( each ).isDr; } );
   const Place& place = dr == firstHops.end() ? firstHops.front() : *dr;
   if ( auto found = judge_.stale( place.router ) ) return found;
   if ( auto found = judge_.down( place ) ) return found;
   suspects_.insert( place.router );
   const auto& registering = stream( place ).registering;
   const bool stopped = registering && registering->stopped;
   return judge_.blame(
      { Verdict::notRegistered,
        stopped
           ? fmt::format( "{} was told to stop registering with RP {}, which has "
                          "not joined the source's tree",
                          judge_.name( place ), rp )
           : fmt::format( "{} has the source's network, and does not register it "
                          "with RP {}",
                          judge_.name( place ), rp ) },
      { place.router } );
}

}
