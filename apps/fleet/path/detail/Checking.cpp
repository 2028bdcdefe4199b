#include "apps/fleet/path/detail/Checking.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/base/Error.h"

namespace Fleet {

Checking::Checking( Reader& reader, const Routers& routers,
                    const CheckQuestion& question )
   : reader_( reader ),
     routers_( routers ),
     fabric_( routers.fabric() ),
     question_( question ),
     judge_( fabric_, question.now ) {}

std::vector<Checking::Found> Checking::run( const Chosen* chosen ) {
   links();
   for ( uint32_t router = 0; router < fabric_.routers().size(); ++router ) {
      if ( auto is = judge_.stale( router ) ) {
         found_.push_back( { is, router, {}, {}, {}, 0, { router } } );
         continue;
      }
      // Told once: what follows from it is not told of each route.
      if ( auto is = judge_.gone( router ) )
         found_.push_back( { is, router, {}, {}, {}, 0, { router } } );
      if ( auto is = judge_.forwarderGone( router ) )
         found_.push_back( { is, router, {}, {}, {}, 0, { router } } );
      routes( router, chosen );
   }
   const auto upOrder = []( const Up& a, const Up& b ) {
      return std::tie( a.stream, a.above, a.below ) <
             std::tie( b.stream, b.above, b.below );
   };
   const auto downOrder = []( const Down& a, const Down& b ) {
      return std::tie( a.stream, a.place ) < std::tie( b.stream, b.place );
   };
   std::sort( ups_.begin(), ups_.end(), upOrder );
   std::sort( downs_.begin(), downs_.end(), downOrder );
   judgeUps();
   judgeSurplus();
   judgeAsserts();
   judgeLoops();
   return std::move( found_ );
}

Checking::Found& Checking::add( const Judgement& judgement, const Place& place,
                                const std::optional<Place>& other ) {
   Found found{ judgement, place.router,    place.interface, other, {},
                0,         { place.router } };
   if ( other ) found.routers.insert( other->router );
   found_.push_back( std::move( found ) );
   return found_.back();
}

uint32_t Checking::numberOf( const RouteKey& key ) {
   const auto [found, fresh] =
      number_.try_emplace( key, static_cast<uint32_t>( streams_.size() ) );
   if ( fresh ) streams_.push_back( key );
   return found->second;
}

void Checking::routes( uint32_t router, const Chosen* chosen ) {
   const std::string& name = fabric_.routers()[router].name;
   if ( chosen != nullptr ) {
      const auto wanted = chosen->find( router );
      if ( wanted == chosen->end() ) return;
      std::vector<std::string> keys;
      for ( const RouteKey& each : wanted->second )
         keys.push_back( keyText( { Key::route, question_.scope, each, 0 } ) );
      for ( const auto& [key, value] : reader_.values( name, keys ) )
         take( router, parseKey( key )->stream, value );
      return;
   }
   const IpGenPrefix& groups = question_.groups;
   const bool one = !groups.isNone() &&
                    groups.length() == Vantu::addressBits( question_.scope.family );
   const std::string prefix =
      one ? keyPrefix( Key::route, question_.scope, groups.address() )
          : keyPrefix( Key::route, question_.scope );
   try {
      reader_.each( name, prefix, [&]( const std::string& key, const auto& value ) {
         const auto parsed = parseKey( key );
         if ( !parsed || parsed->kind != Key::route ) return;
         if ( groups.isNone() || groups.contains( parsed->stream.group ) )
            take( router, parsed->stream, value );
      } );
   } catch ( const Mox::Error& error ) {
      found_.push_back(
         { { Verdict::unreadable,
             judge_.name( router ) + " cannot be read: " + error.what() },
           router,
           {},
           {},
           {},
           0,
           { router } } );
   }
}

void Checking::take( uint32_t router, const RouteKey& key,
                     const std::string& value ) {
   Stream held;
   const bool wildcard = key.source.isUnspecified();
   try {
      ( wildcard ? held.wc : held.sg ) = routeFacts( value, key );
   } catch ( const Mox::ParseError& error ) {
      found_.push_back( { { Verdict::unreadable,
                            fmt::format( "{} has a route that cannot be read: {}",
                                         judge_.name( router ), error.what() ) },
                          router,
                          {},
                          {},
                          key,
                          1,
                          { router } } );
      return;
   }
   const View view = viewOf( held );
   const uint32_t stream = numberOf( key );
   takeDown( router, stream, held, view );
   const auto& interfaces = interfacesOf( held );
   // Without its SPT bit an (S,G) route may forward what the shared tree brings.
   const bool own = wildcard || held.sg->entry.spt || held.sg->entry.sourceSpecific;
   const bool wanted =
      view.joined ||
      ( own && std::any_of( interfaces.begin(), interfaces.end(),
                            []( const auto& is ) { return is.forwards; } ) );
   const RouterFacts& facts = fabric_.routers()[router];
   const IpGenAddr rp = view.rp.isUnspecified() ? facts.rp( key.group ) : view.rp;
   const bool ends = view.attached || ( wildcard && facts.ownsRp( rp ) );
   if ( wanted && !ends ) takeUp( router, key, view );
}

void Checking::takeUp( uint32_t router, const RouteKey& key, const View& view ) {
   const auto place = fabric_.place( router, view.incoming );
   if ( !place ) return;
   // A source on the link itself; or a way that is not known: the router tells of that.
   if ( view.neighbor.isUnspecified() ) return;
   const uint32_t at = next( *place, view.neighbor, key );
   ++nexts_[at].streams;
   if ( !nexts_[at].found ) return;
   ups_.push_back( { numberOf( key ), *place, nexts_[at].hop.above, at, view.joined,
                     judge_.old( view.created ) } );
}

// The link is judged once for all routes that go that way.
uint32_t Checking::next( const Place& place, const IpGenAddr& neighbor,
                         const RouteKey& key ) {
   const auto [at, fresh] = nextOf_.try_emplace(
      { place, neighbor }, static_cast<uint32_t>( nexts_.size() ) );
   if ( !fresh ) return at->second;
   Next made{ { place, neighbor, {} }, {}, false, 0, key };
   made.judgement = judge_.find( made.hop );
   if ( !made.judgement ) {
      made.found = true;
      made.judgement = judge_.link( made.hop );
   } else if ( made.judgement.verdict == Verdict::unknownHop ) {
      made.judgement = {};  // the tree goes on where nobody records
   }
   nexts_.push_back( std::move( made ) );
   return at->second;
}

void Checking::takeDown( uint32_t router, uint32_t stream, const Stream& held,
                         const View& view ) {
   const size_t before = downs_.size();
   const bool young = !judge_.old( ( held.sg ? held.sg : held.wc )->entry.created );
   const auto keep = [&]( const std::string& interface ) {
      const auto place = fabric_.place( router, interface );
      if ( !place ) return;
      downs_.push_back(
         { stream, *place,
           aboveOf( held, held.sg ? Tree::source : Tree::shared, interface ) } );
      downs_.back().above.young = young;
   };
   for ( const RouteIntf& each : interfacesOf( held ) ) {
      const bool says = each.joined || each.member || each.forwards ||
                        each.assertState != RouteIntf::noInfo;
      if ( says && each.name != view.incoming ) keep( each.name );
   }
   keep( view.incoming );
   if ( downs_.size() != before ) return;
   // It has a route, be it of no interface.
   Down none{ stream, { router, UINT32_MAX }, {} };
   none.above.young = young;
   downs_.push_back( none );
}

const Checking::Down* Checking::down( uint32_t stream, const Place& place ) const {
   const auto found =
      std::lower_bound( downs_.begin(), downs_.end(), std::tie( stream, place ),
                        []( const Down& a, const auto& b ) {
                           return std::tie( a.stream, a.place ) < b;
                        } );
   const bool is =
      found != downs_.end() && found->stream == stream && found->place == place;
   return is ? &*found : nullptr;
}

// Any record of the router's route; null: it has none.
const Checking::Down* Checking::routeAt( uint32_t stream, uint32_t router ) const {
   const Place first{ router, 0 };
   const auto found =
      std::lower_bound( downs_.begin(), downs_.end(), std::tie( stream, first ),
                        []( const Down& a, const auto& b ) {
                           return std::tie( a.stream, a.place ) < b;
                        } );
   const bool is = found != downs_.end() && found->stream == stream &&
                   found->place.router == router;
   return is ? &*found : nullptr;
}

void Checking::judgeUps() {
   for ( const Next& each : nexts_ ) {
      if ( !each.judgement || each.judgement.verdict == Verdict::stale ) continue;
      const auto other =
         each.found ? std::optional( each.hop.above ) : std::nullopt;
      if ( other && judge_.gone( other->router ) ) continue;
      // The link itself may have been found already.
      const auto same =
         std::find_if( found_.begin(), found_.end(), [&]( const Found& known ) {
            return known.judgement.reason == each.judgement.reason;
         } );
      Found& found = same == found_.end()
                        ? add( each.judgement, each.hop.below, other )
                        : *same;
      found.stream = each.first;
      found.streams += each.streams;
      found.ofLink = true;
   }
   for ( const Up& each : ups_ )
      if ( !nexts_[each.hop].judgement ) judgeUp( each );
}

void Checking::judgeUp( const Up& up ) {
   const Down* end = down( up.stream, up.above );
   Above above;
   if ( end != nullptr ) {
      above = end->above;
   } else if ( const Down* any = routeAt( up.stream, up.above.router ) ) {
      above.route = true;
      above.young = any->above.young;
   }
   const Judgement judgement =
      judge_.route( nexts_[up.hop].hop, { up.joined, up.old }, above );
   const bool explained =
      judge_.gone( up.above.router ) || judge_.gone( up.below.router );
   if ( !judgement || explained ) return;
   Found& found = add( judgement, up.below, up.above );
   found.stream = streams_[up.stream];
   found.streams = 1;
}

// Are all who are heard there recorded, so that their joins are known?
bool Checking::allKnown( const Place& place ) const {
   bool any = false;
   for ( const Neighbor& each : fabric_.router( place ).links.neighbors ) {
      if ( each.interface != fabric_.interface( place ).name ) continue;
      const auto other = fabric_.owner( place, each.address ).place;
      if ( !other || stale( other->router ) || judge_.gone( other->router ) ||
           !fabric_.names( *other, place ) )
         return false;
      any = true;
   }
   return any;
}

void Checking::judgeSurplus() {
   for ( const Down& each : downs_ ) {
      // Who lost an assert keeps joins until they expire.
      if ( !each.above.joined || each.above.pruning ||
           each.above.assertState == RouteIntf::loser )
         continue;
      const auto up = std::lower_bound( ups_.begin(), ups_.end(),
                                        std::tie( each.stream, each.place ),
                                        []( const Up& a, const auto& b ) {
                                           return std::tie( a.stream, a.above ) < b;
                                        } );
      const bool sent =
         up != ups_.end() && up->stream == each.stream && up->above == each.place;
      if ( sent || !allKnown( each.place ) ) continue;
      Found& found = add(
         { Verdict::endsDisagree,
           judge_.name( each.place ) + " holds a join that no router there sends" },
         each.place, std::nullopt );
      found.stream = streams_[each.stream];
      found.streams = 1;
      for ( const Place& other : fabric_.link( each.place ) )
         found.routers.insert( other.router );
   }
}

void Checking::judgeAsserts() {
   using Group =
      std::pair<uint32_t, Place>;  // a stream and a link, by its first place
   std::map<Group, std::vector<const Down*>> groups;
   std::map<Place, Place> first;
   for ( const Down& each : downs_ ) {
      if ( each.above.assertState == RouteIntf::noInfo ) continue;
      const auto [link, fresh] = first.try_emplace( each.place );
      if ( fresh ) link->second = fabric_.link( each.place ).front();
      groups[{ each.stream, link->second }].push_back( &each );
   }
   for ( const auto& [group, members] : groups ) {
      std::deque<RouteIntf> records;
      std::vector<std::pair<Place, const RouteIntf*>> told;
      for ( const Down* each : members ) {
         RouteIntf& record = records.emplace_back();
         record.assertState = each->above.assertState;
         record.assertWinner = each->above.winner;
         told.emplace_back( each->place, &record );
      }
      const Judgement judgement = judge_.twoWinners( told );
      if ( !judgement ) continue;
      Found& found = add( judgement, told.front().first, std::nullopt );
      found.stream = streams_[group.first];
      found.streams = 1;
      for ( const auto& [place, record] : told )
         found.routers.insert( place.router );
   }
}

// Each router has one way up, so that a circle is met by following it.
void Checking::judgeLoops() {
   for ( size_t from = 0, to = 0; from < ups_.size(); from = to ) {
      std::map<uint32_t, const Up*> up;
      for ( to = from; to < ups_.size() && ups_[to].stream == ups_[from].stream;
            ++to )
         up[ups_[to].below.router] = &ups_[to];
      std::set<uint32_t> done;
      for ( const auto& [router, start] : up ) {
         std::vector<const Up*> trail;
         std::set<uint32_t> here;
         uint32_t at = router;
         while ( up.count( at ) != 0 && done.count( at ) == 0 &&
                 here.insert( at ).second ) {
            trail.push_back( up[at] );
            at = up[at]->above.router;
         }
         if ( here.count( at ) != 0 ) {
            const auto met = std::find_if(
               trail.begin(), trail.end(),
               [&]( const Up* each ) { return each->below.router == at; } );
            circle( { met, trail.end() } );
         }
         done.insert( here.begin(), here.end() );
      }
   }
}

void Checking::circle( const std::vector<const Up*>& members ) {
   std::string who;
   for ( const Up* each : members ) who += judge_.name( each->below.router ) + ", ";
   who += judge_.name( members.front()->below.router );
   Found& found = add( { Verdict::loop, who + " follow each other in a circle" },
                       members.front()->below, std::nullopt );
   found.stream = streams_[members.front()->stream];
   found.streams = 1;
   for ( const Up* each : members ) found.routers.insert( each->below.router );
}

}
