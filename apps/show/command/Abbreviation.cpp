#include "apps/show/command/Abbreviation.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "apps/program/Ending.h"

namespace Show {

namespace {

// The number of letters to insert, remove or exchange to make one word of the other.
size_t distance( std::string_view a, std::string_view b ) {
   std::vector<size_t> row( b.size() + 1 );
   std::iota( row.begin(), row.end(), size_t( 0 ) );
   for ( size_t i = 0; i < a.size(); ++i ) {
      size_t diagonal = std::exchange( row[0], i + 1 );
      for ( size_t k = 0; k < b.size(); ++k ) {
         const size_t exchanged = diagonal + ( a[i] == b[k] ? 0 : 1 );
         diagonal = row[k + 1];
         row[k + 1] = std::min( { exchanged, row[k] + 1, diagonal + 1 } );
      }
   }
   return row[b.size()];
}

[[noreturn]] void refuse( const std::string& word, const std::string& why ) {
   throw Programs::WrongUsage( word + ": " + why + "; see --help" );
}

}

std::string commandOf( const std::string& word,
                       const std::vector<std::string_view>& commands ) {
   std::string begun;
   size_t count = 0;
   for ( const std::string_view each : commands ) {
      if ( each == word ) return word;
      if ( each.substr( 0, word.size() ) != word ) continue;
      begun += ( count++ == 0 ? "" : ", " ) + std::string( each );
   }
   if ( count == 1 ) return begun;
   if ( count > 1 ) refuse( word, "may be any of " + begun );
   const auto nearest = std::min_element(
      commands.begin(), commands.end(), [&]( const auto& a, const auto& b ) {
         return distance( word, a ) < distance( word, b );
      } );
   refuse( word, "no such command; the nearest is " + std::string( *nearest ) );
}

}
