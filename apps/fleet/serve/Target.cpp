#include "apps/fleet/serve/Target.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <array>

namespace Fleet {

namespace {

std::optional<unsigned> digitOf( char digit ) {
   if ( digit >= '0' && digit <= '9' ) return digit - '0';
   if ( digit >= 'a' && digit <= 'f' ) return digit - 'a' + 10;
   if ( digit >= 'A' && digit <= 'F' ) return digit - 'A' + 10;
   return std::nullopt;
}

std::optional<std::string> decoded( std::string_view text ) {
   std::string out;
   for ( size_t i = 0; i < text.size(); ++i ) {
      unsigned char byte = text[i] == '+' ? ' ' : text[i];
      if ( byte == '%' ) {
         if ( i + 2 >= text.size() ) return std::nullopt;
         const auto high = digitOf( text[i + 1] ), low = digitOf( text[i + 2] );
         if ( !high || !low ) return std::nullopt;
         byte = static_cast<unsigned char>( *high * 16 + *low );
         i += 2;
      }
      if ( byte < 0x20 || byte == 0x7f ) return std::nullopt;
      out += static_cast<char>( byte );
   }
   return out;
}

// The address's bytes; nothing if the text is a name.
std::optional<std::string> addressOf( const std::string& text ) {
   std::array<char, sizeof( in6_addr )> bytes{};
   if ( inet_pton( AF_INET, text.c_str(), bytes.data() ) == 1 )
      return std::string( bytes.data(), sizeof( in_addr ) );
   if ( inet_pton( AF_INET6, text.c_str(), bytes.data() ) == 1 )
      return std::string( bytes.data(), bytes.size() );
   return std::nullopt;
}

bool isLoopback( const std::string& address ) {
   if ( address.size() == sizeof( in_addr ) ) return address[0] == 127;
   return address == std::string( 15, '\0' ) + '\1';
}

}

std::string Target::operator[]( const std::string& name ) const {
   const auto found = parameters.find( name );
   return found == parameters.end() ? "" : found->second;
}

std::optional<Target> parseTarget( std::string_view text ) {
   Target target;
   const size_t question = text.find( '?' );
   const auto path = decoded( text.substr( 0, question ) );
   if ( !path || !path->starts_with( '/' ) ) return std::nullopt;
   target.path = *path;
   if ( question == std::string_view::npos ) return target;
   std::string_view rest = text.substr( question + 1 );
   while ( !rest.empty() ) {
      const std::string_view part = rest.substr( 0, rest.find( '&' ) );
      rest.remove_prefix( std::min( part.size() + 1, rest.size() ) );
      if ( part.empty() ) continue;
      const size_t equals = std::min( part.find( '=' ), part.size() );
      const auto name = decoded( part.substr( 0, equals ) );
      const auto value =
         decoded( part.substr( std::min( equals + 1, part.size() ) ) );
      if ( !name || !value ||
           !target.parameters.try_emplace( *name, *value ).second )
         return std::nullopt;
   }
   return target;
}

std::string targetText( std::string_view value ) {
   std::string out;
   for ( const char each : value ) {
      const auto byte = static_cast<unsigned char>( each );
      if ( ( byte < 0x80 && std::isalnum( byte ) != 0 ) || each == '-' ||
           each == '.' || each == '_' )
         out += each;
      else
         out += fmt::format( "%{:02X}", byte );
   }
   return out;
}

bool isOwnHost( std::string_view host, const std::string& listening ) {
   std::string name( host );
   if ( name.starts_with( '[' ) ) {
      const size_t end = name.find( ']' );
      if ( end == std::string::npos ) return false;
      name = name.substr( 1, end - 1 );
   } else {
      name = name.substr( 0, name.find( ':' ) );
   }
   if ( name == "localhost" ) return true;
   const auto address = addressOf( name ), own = addressOf( listening );
   if ( !address || !own ) return false;
   const bool any = own->find_first_not_of( '\0' ) == std::string::npos;
   return any || isLoopback( *address ) || *address == *own;
}

}
