// Prints on standard output.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "apps/json/YangData.h"
#include "apps/show/output/Answer.h"
#include "apps/show/reports/Why.h"

namespace Show {

using Json = nlohmann::ordered_json;

// Folded to the output's width.
void printText( const std::string& text );
// `indent` -1 prints one line.
void printJson( const Json& document, int indent = 2 );

// Prints mirrors one after the other: as text, or as JSON with each mirror's
// envelope around `member`, as one document or a line each.
class Printout {
 public:
   // `between` separates the text of two mirrors.
   Printout( const Arguments& arguments, const char* member, const char* between )
      : arguments_( arguments ), member_( member ), between_( between ) {}

   template <class Text, class ToJson>
   void add( const Mirror& mirror, Text text, ToJson json ) {
      if ( arguments_.json ) {
         document_.push_back( envelope( mirror, member_, json() ) );
      } else if ( arguments_.jsonLines ) {
         printJson( envelope( mirror, member_, json() ), -1 );
      } else {
         printText( ( first_ ? "" : between_ ) + text() );
      }
      first_ = false;
   }
   bool first() const { return first_; }
   void end() const {
      if ( arguments_.json ) printJson( document_ );
   }

 private:
   const Arguments& arguments_;
   const char* member_;
   const char* between_;
   bool first_ = true;
   Json document_ = Json::array();
};

// Why a receiver gets a group or not; without a receiver, of every interface of the
// group's routes. Looks twice, an interval apart, where that tells more.
ExitStatus printWhy( Mirrors& mirrors, const Arguments& arguments );

// The first reading of all counters.
AllRates firstRates( const Mirrors& mirrors );

}
