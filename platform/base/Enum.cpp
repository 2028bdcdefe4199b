#include "platform/base/Enum.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace Mox::Detail {

String enumText( const EnumNames& names, uint32_t value ) {
   if ( value < names.values.size() ) return String( names.values[value] );
   return unsignedText( value );
}

uint32_t enumFromName( const EnumNames& names, StringView name ) {
   auto found = std::find( names.values.begin(), names.values.end(), name );
   if ( found == names.values.end() ) {
      throw RangeError( fmt::format( "{} has no value '{}'", names.type, name ) );
   }
   return static_cast<uint32_t>( found - names.values.begin() );
}

uint32_t enumFromNumber( const EnumNames& names, uint32_t number ) {
   if ( number >= names.values.size() ) {
      throw RangeError( fmt::format( "{} has no value {}", names.type, number ) );
   }
   return number;
}

uint32_t parseEnum( const EnumNames& names, StringIter& begin, StringIter end ) {
   StringIter last = std::find_if( begin, end, []( unsigned char c ) {
      return std::isalnum( c ) == 0 && c != '_';
   } );
   if ( last == begin ) parseFailed( "an enumerator", begin, end );
   uint32_t value = enumFromName(
      names, StringView( begin, static_cast<size_t>( last - begin ) ) );
   begin = last;
   return value;
}

}
