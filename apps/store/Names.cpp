#include "apps/store/Names.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>

#include "platform/base/Error.h"

namespace Fleet {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

namespace {

bool isPlain( char letter ) {
   return std::isalnum( static_cast<unsigned char>( letter ) ) != 0 ||
          letter == '_' || letter == '-';
}

bool isHost( char letter ) {
   return letter != '_' && isPlain( letter );
}

// The character that parts an address of the family.
char partOf( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? '.' : ':';
}

}

bool isName( std::string_view text ) {
   constexpr size_t kLongest = 32;
   return !text.empty() && text.size() <= kLongest &&
          std::all_of( text.begin(), text.end(), isHost );
}

std::string hostRouter() {
   std::array<char, 256> name{};
   if ( gethostname( name.data(), name.size() - 1 ) != 0 ) return "router";
   const std::string_view host( name.data() );
   const std::string first( host.substr( 0, host.find( '.' ) ) );
   return isName( first ) ? first : "router";
}

std::string token( std::string_view bytes ) {
   if ( bytes.empty() ) return "=";
   std::string out;
   for ( const char each : bytes )
      out += isPlain( each )
                ? std::string( 1, each )
                : fmt::format( "={:02x}", static_cast<unsigned char>( each ) );
   return out;
}

std::optional<std::string> untoken( std::string_view text ) {
   std::string out;
   for ( size_t i = 0; i < text.size() && text != "="; ++i ) {
      if ( text[i] != '=' ) {
         out += text[i];
         continue;
      }
      unsigned byte = 0;
      const std::string_view hex = text.substr( i + 1, 2 );
      const auto end = hex.data() + hex.size();
      if ( hex.size() != 2 ||
           std::from_chars( hex.data(), end, byte, 16 ).ptr != end )
         return std::nullopt;
      out += static_cast<char>( byte );
      i += 2;
   }
   if ( token( out ) != text ) return std::nullopt;
   return out;
}

std::string addressToken( const IpGenAddr& address ) {
   if ( address.isUnspecified() ) return "any";
   std::string text = Vantu::valueToStrep( address );
   std::replace( text.begin(), text.end(), partOf( address.family() ), '-' );
   return token( text );  // an IPv6 address may hold dots
}

std::optional<IpGenAddr> addressOf( std::string_view text, AddressFamily family ) {
   if ( text == "any" ) return IpGenAddr::unspecified( family );
   auto bytes = untoken( text );
   if ( !bytes ) return std::nullopt;
   std::replace( bytes->begin(), bytes->end(), '-', partOf( family ) );
   try {
      const IpGenAddr address( *bytes );
      if ( address.family() == family && addressToken( address ) == text )
         return address;
   } catch ( const Mox::Error& ) {
      // No address at all.
   }
   return std::nullopt;
}

}
