#include <fmt/format.h>

#include <algorithm>

#include "apps/fleet/path/detail/Walk.h"
#include "apps/program/Printable.h"
#include "apps/show/text/Words.h"

namespace Fleet {

PathAnswer Walk::answer() {
   answer_.stream = question_.stream;
   answer_.scope = question_.scope;
   answer_.receiver = question_.receiver;
   const std::string& from = question_.from;
   if ( !from.empty() && !fabric_.find( from ) ) {
      fault( { Verdict::noSuchRouter,
               Programs::printable( from ) + " is no recorded router" },
             std::nullopt, {} );
   } else if ( question_.receiver ) {
      towards( *question_.receiver );
   } else {
      wholeTree();
   }
   if ( !from.empty() ) cut();
   conclude();
   return std::move( answer_ );
}

void Walk::fillNode( size_t at ) {
   const Stop& stop = stops_[at];
   const RouterFacts& router = fabric_.routers()[stop.router];
   Time asOf = routers_.stream( stop.router ).at;
   if ( router.agentGone() && router.table->since != 0 ) asOf = router.table->since;
   answer_.nodes[at] = { router.name, stop.view.incoming, stop.view.tree,
                         asOf,        router.stale(),     router.agentGone() };
}

void Walk::fault( const Judgement& judgement, std::optional<size_t> stop,
                  const std::set<uint32_t>& routers ) {
   if ( !judgement ) return;
   suspects_.insert( routers.begin(), routers.end() );
   Weight weight = broken;
   switch ( judgement.verdict ) {
      case Verdict::stale:
         weight = unsure;
         break;
      case Verdict::unknownHop:
      case Verdict::ambiguous:
      case Verdict::sourceSilent:
         weight = doubtful;
         break;
      default:
         break;
   }
   faults_.push_back( { judgement, weight, stop } );
}

// Keeps the asked router and what is below it.
void Walk::cut() {
   std::vector<bool> kept( stops_.size(), false );
   for ( size_t i = 0; i < stops_.size(); ++i ) {
      std::set<size_t> seen;
      std::optional<size_t> at = i;
      while ( at && seen.insert( *at ).second ) {
         if ( fabric_.routers()[stops_[*at].router].name == question_.from )
            kept[i] = true;
         at = stops_[*at].up;
      }
   }
   const bool any = std::find( kept.begin(), kept.end(), true ) != kept.end();
   if ( !any )
      return fault( { Verdict::notOnPath, Programs::printable( question_.from ) +
                                             " is not on the way" },
                    std::nullopt, {} );
   keep( kept );
   std::erase_if( faults_, [&]( const Fault& each ) {
      return each.stop && !kept[*each.stop];
   } );
}

void Walk::keep( const std::vector<bool>& kept ) {
   std::vector<size_t> place( kept.size() );
   std::vector<PathAnswer::Node> nodes;
   for ( size_t i = 0; i < kept.size(); ++i ) {
      place[i] = nodes.size();
      if ( kept[i] ) nodes.push_back( answer_.nodes[i] );
   }
   answer_.nodes = std::move( nodes );
   std::erase_if( answer_.edges, [&]( const auto& each ) {
      return !kept[each.from] || !kept[each.to];
   } );
   for ( auto& each : answer_.edges )
      each.from = place[each.from], each.to = place[each.to];
   const auto prune = [&]( auto& list ) {
      std::erase_if( list, [&]( const auto& each ) { return !kept[each.node]; } );
      for ( auto& each : list ) each.node = place[each.node];
   };
   prune( answer_.roots );
   prune( answer_.receivers );
}

void Walk::conclude() {
   if ( answer_.nodes.empty() && faults_.empty() )
      fault( { Verdict::noRoute, Show::keyText( question_.stream ) +
                                    " is no route of a recorded router" },
             std::nullopt, {} );
   for ( const auto& each : answer_.nodes ) answer_.stale |= each.stale;
   if ( !question_.receiver )
      for ( const auto& each : fabric_.routers() ) answer_.stale |= each.stale();
   const auto heaviest = std::max_element(
      faults_.begin(), faults_.end(),
      []( const Fault& a, const Fault& b ) { return a.weight < b.weight; } );
   if ( heaviest == faults_.end() ) {
      answer_.verdict = flows();
      return;
   }
   answer_.judgement = heaviest->judgement;
   answer_.verdict = sentenceOf( heaviest->judgement );
   answer_.broken = heaviest->weight != unsure;
}

std::string Walk::flows() const {
   const auto known = static_cast<size_t>(
      std::count_if( answer_.receivers.begin(), answer_.receivers.end(),
                     []( const auto& each ) { return each.known; } ) );
   const size_t unknown = answer_.receivers.size() - known;
   std::string to = question_.receiver
                       ? Vantu::valueToStrep( *question_.receiver )
                       : Show::countText( known, "link" ) + " with members";
   // One that switches trees is two nodes.
   std::set<std::string> routers;
   for ( const auto& each : answer_.nodes ) routers.insert( each.router );
   if ( unknown != 0 )
      to += " and " + Show::countText( unknown, "unknown receiver" );
   std::string out =
      fmt::format( "{} reaches {} over {}: nothing stands in the way.",
                   Show::keyText( question_.stream ), to,
                   Show::countText( routers.size(), "router" ) );
   for ( const auto& each : answer_.nodes )
      if ( each.agentGone )
         out += fmt::format( " But {} has no pimsm-agent.",
                             Programs::printable( each.router ) );
   return out;
}

}
