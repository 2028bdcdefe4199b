#include "apps/fleet/serve/Following.h"

#include <nlohmann/json.hpp>

#include "apps/fleet/serve/Picture.h"
#include "apps/json/YangData.h"

namespace Fleet {

Following::Following( Find find, Ring ring )
   : find_( std::move( find ) ), ring_( std::move( ring ) ) {}

void Following::add( uint64_t follower, const std::string& text,
                     const PathQuestion& question, Tell tell ) {
   Tree& tree = trees_.try_emplace( text, Tree{ question } ).first->second;
   if ( !tree.told.text.empty() ) tell( tree.told );
   tree.followers[follower] = std::move( tell );
}

void Following::remove( uint64_t follower ) {
   for ( auto& [text, tree] : trees_ ) tree.followers.erase( follower );
   std::erase_if(
      trees_, []( const auto& tree ) { return tree.second.followers.empty(); } );
}

const PathAnswer* Following::last( const std::string& text ) const {
   const auto found = trees_.find( text );
   return found == trees_.end() || !found->second.answer ? nullptr
                                                         : &*found->second.answer;
}

void Following::look( Clock::time_point now ) {
   for ( auto& [text, tree] : trees_ ) {
      try {
         look( tree, now );
      } catch ( const StoreAway& e ) {
         // The others would wait for it as long.
         for ( auto& [other, each] : trees_ ) giveUp( each, e.what(), now );
         return;
      } catch ( const std::exception& e ) {
         giveUp( tree, e.what(), now );
      }
   }
}

// What cannot be read now can be the next time.
void Following::giveUp( Tree& tree, const std::string& why,
                        Clock::time_point now ) {
   tree.next = now + doubt;
   tree.answer.reset();
   tell( tree, { {}, Show::jsonText( why ) } );
}

void Following::look( Tree& tree, Clock::time_point now ) {
   if ( !tree.bell ) tree.bell = ring_( tree.question );
   if ( tree.bell->rang() || tree.next <= now ) read( tree, now );
}

void Following::read( Tree& tree, Clock::time_point now ) {
   PathAnswer answer = find_( tree.question );
   std::string text = tellingText( answer );
   const std::string name = hexText( digestOf( text ) );
   const bool doubtful = answer.broken && name != tree.told.name;
   if ( doubtful && !std::exchange( tree.doubted, true ) ) {
      tree.next = now + doubt;
      return;
   }
   // It may break otherwise each time: what is doubted twice is told.
   tree.doubted = false;
   tree.next = now + anyway;
   tree.answer = std::move( answer );
   tell( tree, { name, std::move( text ) } );
}

void Following::tell( Tree& tree, Telling telling ) {
   if ( telling.name == tree.told.name && telling.text == tree.told.text ) return;
   tree.told = std::move( telling );
   for ( const auto& [follower, tell] : tree.followers ) tell( tree.told );
}

std::string tellingText( const PathAnswer& answer ) {
   nlohmann::ordered_json json = pathJson( answer );
   json["broken"] = answer.broken;
   json["stale"] = answer.stale;
   // Of counters that go on it would be a change each time.
   for ( size_t i = 0; i < answer.nodes.size(); ++i )
      if ( !answer.nodes[i].stale && !answer.nodes[i].agentGone )
         json["nodes"][i].erase( "as-of" );
   for ( size_t i = 0; i < answer.edges.size(); ++i ) {
      json["edges"][i]["word"] = edgeWord( answer.edges[i] );
      json["edges"][i]["rate"] = edgeRate( answer.edges[i] );
   }
   return Show::jsonText( json );
}

}
