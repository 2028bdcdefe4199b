#include "apps/fleet/serve/detail/SvgText.h"

#include <algorithm>

#include "apps/program/Printable.h"

namespace Fleet {

namespace {

constexpr size_t kLongest = 30;  // letters of a line

// How long the character is that begins there; 0: it is none that XML may have.
size_t lengthAt( const std::string& line, size_t at ) {
   const auto lead = static_cast<unsigned char>( line[at] );
   if ( lead < 0x80 ) return 1;
   const size_t length = lead < 0xc0 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
   if ( length == 0 || at + length > line.size() ) return 0;
   uint32_t code = lead & ( 0x7fU >> length );
   for ( size_t i = at + 1; i < at + length; ++i ) {
      if ( ( line[i] & 0xc0 ) != 0x80 ) return 0;
      code = code << 6U | ( line[i] & 0x3fU );
   }
   constexpr uint32_t least[] = { 0x80, 0x800, 0x10000 };
   const bool surrogate = code >= 0xd800 && code < 0xe000;
   const bool none = code == 0xfffe || code == 0xffff || code > 0x10ffff;
   return code < least[length - 2] || surrogate || none ? 0 : length;
}

// One wrong byte would make the whole picture unreadable.
std::string wellFormed( const std::string& line ) {
   std::string out;
   for ( size_t at = 0; at < line.size(); ) {
      const size_t length = lengthAt( line, at );
      out += length == 0 ? "?" : line.substr( at, length );
      at += std::max<size_t>( length, 1 );
   }
   return out;
}

}

size_t letters( const std::string& line ) {
   return static_cast<size_t>( std::count_if(
      line.begin(), line.end(), []( char c ) { return ( c & 0xc0 ) != 0x80; } ) );
}

std::string shortened( const std::string& given ) {
   const std::string line = wellFormed( Programs::printable( given ) );
   if ( letters( line ) <= kLongest ) return line;
   size_t left = kLongest - 1, end = 0;
   while ( end < line.size() && ( left > 0 || ( line[end] & 0xc0 ) == 0x80 ) )
      if ( ( line[end++] & 0xc0 ) != 0x80 ) --left;
   return line.substr( 0, end ) + "…";
}

std::string escaped( const std::string& line ) {
   std::string out;
   for ( const char each : wellFormed( Programs::printable( line ) ) ) {
      switch ( each ) {
         case '&':
            out += "&amp;";
            break;
         case '<':
            out += "&lt;";
            break;
         case '>':
            out += "&gt;";
            break;
         case '"':
            out += "&quot;";
            break;
         case '\'':
            out += "&#39;";
            break;
         default:
            out += each;
      }
   }
   return out;
}

}
