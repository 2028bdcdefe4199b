#include "apps/program/Printable.h"

#include <cstdio>

namespace Programs {

namespace {

constexpr unsigned char kC1Lead = 0xc2;  // of U+0080 to U+00BF in UTF-8

bool isControl( unsigned char byte ) {
   return byte < ' ' || byte == 0x7f;
}

}

std::string printable( std::string_view text ) {
   std::string out;
   const auto escape = [&]( unsigned char byte ) {
      char escaped[5];
      std::snprintf( escaped, sizeof escaped, "\\x%02x", byte );
      out += escaped;
   };
   for ( size_t i = 0; i < text.size(); ++i ) {
      const auto byte = static_cast<unsigned char>( text[i] );
      const auto next =
         static_cast<unsigned char>( i + 1 < text.size() ? text[i + 1] : 0 );
      if ( byte == kC1Lead && next >= 0x80 && next < 0xa0 ) {
         escape( byte );
         escape( next );
         ++i;
      } else if ( isControl( byte ) ) {
         escape( byte );
      } else {
         out += text[i];
      }
   }
   return out;
}

}
