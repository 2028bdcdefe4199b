#include "platform/base/Flags.h"

#include <fmt/format.h>

namespace Mox {

String compactFlags( uint32_t word, std::span<const FlagRow> rows ) {
   if ( word == 0 ) return "0";
   String out;
   for ( size_t bit = 0; bit < rows.size(); ++bit ) {
      if ( ( ( word >> bit ) & 1 ) != 0 && rows[bit].letter != ' ' ) {
         out += rows[bit].letter;
      }
   }
   return out;
}

namespace Detail {

void flagsOutOfRange( StringView type, uint32_t limit ) {
   throw RangeError( fmt::format( "{}::value > 0x{:x} not allowed", type, limit ) );
}

String flagsText( uint32_t word, StringView fullName,
                  std::span<const FlagRow> rows ) {
   String out = fmt::format( "Value('{}', ** {{", fullName );
   for ( size_t bit = 0; bit < rows.size(); ++bit ) {
      if ( bit != 0 ) out += ", ";
      out +=
         fmt::format( "'{}': {}", rows[bit].name, ( ( word >> bit ) & 1 ) != 0 );
   }
   out += "})";
   return out;
}

uint32_t parseFlags( StringIter& begin, StringIter end, StringView fullName,
                     std::span<const FlagRow> rows ) {
   uint32_t word = 0;
   expectLiteral( begin, end, fmt::format( "Value('{}', ** {{", fullName ) );
   for ( size_t bit = 0; bit < rows.size(); ++bit ) {
      expectLiteral(
         begin, end,
         fmt::format( "{}'{}': ", bit == 0 ? "" : ", ", rows[bit].name ) );
      word |= static_cast<uint32_t>( parseBool( begin, end ) ) << bit;
   }
   expectLiteral( begin, end, "})" );
   return word;
}

}
}
