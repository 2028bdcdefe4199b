#include "tests/scenario/Words.h"

#include <cctype>
#include <utility>

namespace Scenario {

Words::Words( const std::string& text ) {
   std::string word;
   int depth = 0;
   auto end = [&] {
      if ( !word.empty() ) words_.push_back( std::exchange( word, {} ) );
   };
   for ( char c : text ) {
      if ( c == '(' ) ++depth;
      if ( c == ')' ) --depth;
      const bool blank = std::isspace( static_cast<unsigned char>( c ) ) != 0;
      if ( blank || ( c == ',' && depth == 0 ) ) {
         if ( depth == 0 ) end();
         if ( c == ',' ) words_.emplace_back( "," );
      } else {
         word += c;
      }
   }
   end();
}

std::string Words::next() {
   if ( atEnd() ) throw ScriptError( "something is missing at the end" );
   return words_[at_++];
}

double Words::number() {
   const std::string word = next();
   size_t used = 0;
   double out = 0.0;
   try {
      out = std::stod( word, &used );
   } catch ( const std::exception& ) {
      used = 0;
   }
   if ( used != word.size() ) throw ScriptError( "no number: " + word );
   return out;
}

void Words::expectEnd() const {
   if ( !atEnd() ) throw ScriptError( "not understood: " + words_[at_] );
}

}
