#include "apps/show/output/Print.h"

#include <iostream>

#include "apps/json/YangData.h"
#include "apps/show/text/Fold.h"

namespace Show {

void printText( const std::string& text ) {
   std::cout << folded( text, outputWidth() );
}

void printJson( const Json& document, int indent ) {
   std::cout << jsonText( document, indent ) << '\n';
}

AllRates firstRates( const Mirrors& mirrors ) {
   AllRates rates;
   for ( const auto& mirror : mirrors.all() )
      rates.try_emplace( mirror.get(), *mirror );
   return rates;
}

}
