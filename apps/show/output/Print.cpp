#include "apps/show/output/Print.h"

#include <iostream>

#include "apps/json/YangData.h"
#include "apps/show/text/Fold.h"

namespace Show {

using Json = nlohmann::ordered_json;

void printText( const std::string& text ) {
   std::cout << folded( text, outputWidth() );
}

void printJson( const Json& document, int indent ) {
   std::cout << jsonText( document, indent ) << '\n';
}

}
