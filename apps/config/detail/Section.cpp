#include "apps/config/detail/Section.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/program/Printable.h"

namespace Agent {

// The node of an empty file has no place.
void Place::fail( const std::string& text, const std::string& missing ) const {
   int line = std::max( node.Mark().line, 0 ) + 1;
   throw NodeError(
      fmt::format( "{}:{}: {}", *file, line, Programs::printable( text ) ), node,
      missing );
}

std::string Place::text( const std::string& what ) const {
   if ( !node.IsScalar() ) fail( what + ": expected a single value" );
   return node.Scalar();
}

std::vector<Place> Place::list( const std::string& what ) const {
   if ( node.IsNull() ) return {};
   if ( !node.IsSequence() ) fail( what + ": expected a list" );
   std::vector<Place> out;
   for ( const YAML::Node& member : node ) out.push_back( at( member ) );
   return out;
}

Section::Section( Place place, std::string what )
   : place_( std::move( place ) ), what_( std::move( what ) ) {
   if ( !place_.node.IsMap() ) place_.fail( what_ + ": expected keys and values" );
   std::set<std::string> seen;
   for ( const auto& entry : place_.node ) {
      std::string key = place_.at( entry.first ).text( what_ );
      if ( !seen.insert( key ).second ) {
         place_.at( entry.first )
            .fail( fmt::format( "{}: key '{}' comes twice", what_, key ) );
      }
   }
}

std::optional<Place> Section::take( const std::string& key ) {
   taken_.insert( key );
   for ( const auto& entry : place_.node ) {
      if ( entry.first.Scalar() == key ) return place_.at( entry.second );
   }
   return {};
}

Place Section::require( const std::string& key ) {
   std::optional<Place> found = take( key );
   if ( !found )
      place_.fail( fmt::format( "{}: key '{}' is missing", what_, key ), key );
   return *found;
}

std::vector<Place> Section::list( const std::string& key ) {
   std::optional<Place> found = take( key );
   return found ? found->list( key ) : std::vector<Place>();
}

void Section::finish() const {
   for ( const auto& entry : place_.node ) {
      if ( taken_.count( entry.first.Scalar() ) == 0 ) {
         place_.at( entry.first )
            .fail(
               fmt::format( "{}: unknown key '{}'", what_, entry.first.Scalar() ) );
      }
   }
}

}
