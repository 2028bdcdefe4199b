// Bytes as text.
#pragma once

#include <sstream>
#include <string>

#include "packet/Writer.h"

namespace Router {

using ByteVector = std::vector<uint8_t>;

// "8100 0005 =10.0.0.1 @10.0.0.1 #239.1.1.1 7%10.0.0.1": digits in pairs, and addresses: plain,
// and encoded (RFC 7761, 4.9.1) as unicast, as group and as source with those flags.
inline ByteVector hex( const std::string& text ) {
   Writer out;
   std::istringstream words( text );
   for ( std::string word; words >> word; ) {
      const size_t mark = word.find_first_of( "=@#%" );
      if ( mark == std::string::npos ) {
         for ( size_t at = 0; at < word.size(); at += 2 )
            out.u8( std::stoul( word.substr( at, 2 ), nullptr, 16 ) );
         continue;
      }
      const Vantu::IpGenAddr address( Mox::StringView( word ).substr( mark + 1 ) );
      const unsigned bits = Vantu::addressBits( address.family() );
      if ( word[mark] != '=' ) out.u8( bits == 32 ? 1 : 2 ).u8( 0 );
      if ( word[mark] == '#' ) out.u8( 0 ).u8( bits );
      if ( word[mark] == '%' ) out.u8( word[0] - '0' ).u8( bits );
      out.bytes( Bytes( address.bytes() ).first( bits / 8 ) );
   }
   return out.take();
}

}
