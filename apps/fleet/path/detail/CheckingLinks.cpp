#include <fmt/format.h>

#include <algorithm>

#include "apps/fleet/path/detail/Checking.h"
#include "apps/program/Printable.h"

namespace Fleet {

namespace {

bool overlap( const IpGenPrefix& a, const IpGenPrefix& b ) {
   return a.isNone() || b.isNone() || a.contains( b ) || b.contains( a );
}

std::string rpText( const IpGenAddr& rp, RpRange::Rule rule ) {
   return rule == RpRange::embedded ? "that of the address"
                                    : Vantu::valueToStrep( rp );
}

// The groups as prefixes, so that sets are compared; as they are told where what a list
// permits is not.
std::vector<std::string> groupsOf( const RpRange& range ) {
   std::vector<std::string> all;
   if ( range.permitted ) {
      for ( const IpGenPrefix& each : *range.permitted )
         all.push_back( Vantu::valueToStrep( each ) );
      return all;
   }
   if ( range.text != "ff3x::/32" ) return { range.text };
   for ( int scope = 0; scope < 16; ++scope )
      all.push_back( fmt::format( "ff3{:x}::/32", scope ) );
   return all;
}

}

void Checking::links() {
   std::set<Place> seen;
   std::set<std::pair<uint32_t, uint32_t>> pairs;
   for ( uint32_t router = 0; router < fabric_.routers().size(); ++router ) {
      const auto& interfaces = fabric_.routers()[router].links.interfaces;
      for ( uint32_t i = 0; i < interfaces.size(); ++i ) {
         const Place place{ router, i };
         const auto all = fabric_.link( place );
         if ( !stale( router ) ) hearing( place );
         if ( !seen.insert( place ).second ) continue;
         seen.insert( all.begin(), all.end() );
         link( place, all );
         for ( const Place& a : all )
            for ( const Place& b : all )
               if ( a.router < b.router ) pairs.emplace( a.router, b.router );
      }
   }
   for ( const auto& [a, b] : pairs ) {
      if ( stale( a ) || stale( b ) ) continue;
      ranges( a, b, false );
      ranges( a, b, true );
   }
}

void Checking::link( const Place& place, const std::vector<Place>& all ) {
   if ( auto found = judge_.twoDrs( all ) ) {
      auto& added = add( found, place, std::nullopt );
      for ( const Place& each : all ) added.routers.insert( each.router );
   }
   hellos( all );
}

// Those that it hears must hear it.
void Checking::hearing( const Place& place ) {
   const Interface& is = fabric_.interface( place );
   for ( const Neighbor& each : fabric_.router( place ).links.neighbors ) {
      if ( each.interface != is.name ) continue;
      const auto other = fabric_.owner( place, each.address ).place;
      if ( !other || stale( other->router ) || fabric_.names( *other, place ) )
         continue;
      if ( judge_.gone( other->router ) || judge_.gone( place.router ) ) continue;
      Judgement judgement = judge_.down( *other );
      if ( !judgement )
         judgement = {
            Verdict::neighborUnknown,
            fmt::format( "{} knows no neighbour {}, which hears it",
                         judge_.name( *other ), judge_.name( place.router ) ) };
      add( judgement, place, other );
   }
}

// One router without the option, or without the T bit, takes it from all of the link.
void Checking::hellos( const std::vector<Place>& all ) {
   struct Said {
      Place place;
      bool delay, tracks;
   };
   std::optional<Said> first;
   for ( const Place& place : all ) {
      if ( stale( place.router ) ) continue;
      for ( const Neighbor& each : fabric_.router( place ).links.neighbors ) {
         const auto sender = fabric_.owner( place, each.address ).place;
         const bool here = each.interface == fabric_.interface( place ).name;
         if ( !here || !each.lanPruneDelay || !sender ) continue;
         const Said said{ *sender, *each.lanPruneDelay, each.tracks };
         if ( !first ) first = said;
         const bool same =
            said.delay == first->delay && said.tracks == first->tracks;
         if ( same ) continue;
         const bool more = said.delay == first->delay ? said.tracks : said.delay;
         const Place& has = more ? said.place : first->place;
         const Place& lacks = more ? first->place : said.place;
         auto& added = add(
            { Verdict::hellosDiffer,
              fmt::format(
                 "{} says hello with {}, and {} without", judge_.name( has ),
                 said.delay == first->delay ? "the T bit" : "a LAN prune delay",
                 judge_.name( lacks ) ) },
            has, lacks );
         added.routers.insert( place.router );
         return;
      }
   }
}

// What one has and the other has not, or has otherwise; of source-specific ranges, which
// have no RP, the first.
void Checking::ranges( uint32_t a, uint32_t b, bool sourceSpecific ) {
   std::map<std::string, std::pair<std::string, std::string>> said;
   for ( const uint32_t router : { a, b } )
      for ( const RpRange& each : fabric_.routers()[router].rps ) {
         const bool asked =
            ( each.rule == RpRange::sourceSpecific ) == sourceSpecific &&
            overlap( each.groups, question_.groups );
         if ( !asked ) continue;
         for ( const std::string& groups : groupsOf( each ) ) {
            auto& both = said[groups];
            ( router == a ? both.first : both.second ) =
               sourceSpecific ? "it" : rpText( each.rp, each.rule );
         }
      }
   for ( const auto& [groups, both] : said ) {
      const auto& [one, other] = both;
      if ( one == other ) continue;
      const std::string range = Programs::printable( groups );
      const auto rp = []( const std::string& is ) {
         return is.empty() ? "no RP" : "RP " + is;
      };
      const std::string text =
         sourceSpecific
            ? fmt::format( "{} holds {} for source-specific, and {} does not",
                           judge_.name( one.empty() ? b : a ), range,
                           judge_.name( one.empty() ? a : b ) )
            : fmt::format( "{} has {} for {}, and {} has {}", judge_.name( a ),
                           rp( one ), range, judge_.name( b ), rp( other ) );
      found_.push_back(
         { { sourceSpecific ? Verdict::rangesDiffer : Verdict::rpDiffers, text },
           a,
           {},
           Place{ b, UINT32_MAX },
           {},
           0,
           { a, b } } );
      if ( sourceSpecific ) return;
   }
}

}
