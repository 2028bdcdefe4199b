// The words of a statement, one after the other. Text in round brackets is one
// word, without blanks; a comma is a word of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tests/scenario/Script.h"

namespace Scenario {

class Words {
 public:
   explicit Words( const std::string& text );

   bool atEnd() const { return at_ == words_.size(); }
   const std::string& peek() const {
      static const std::string none;
      return atEnd() ? none : words_[at_];
   }
   // Throws ScriptError at the end.
   std::string next();
   bool accept( const std::string& word ) {
      if ( atEnd() || words_[at_] != word ) return false;
      ++at_;
      return true;
   }
   // Both throw ScriptError if the word is no such number.
   double number();
   uint32_t whole() { return static_cast<uint32_t>( number() ); }
   // A number with an optional word s behind it.
   double seconds() {
      const double out = number();
      accept( "s" );
      return out;
   }
   // As a message tells it.
   uint16_t holdtime() {
      const double out = seconds();
      if ( out < 0 || out > 0xffff ) throw ScriptError( "no hold time" );
      return static_cast<uint16_t>( out );
   }
   // REQUIRES in a sound script: all words are used.
   void expectEnd() const;

 private:
   std::vector<std::string> words_;
   size_t at_ = 0;
};

}
