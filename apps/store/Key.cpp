#include "apps/store/Key.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <vector>

#include "apps/store/Names.h"

namespace Fleet {

namespace {

constexpr std::array<const char*, 8> kKinds = {
   "recorder", "table", "links", "rps", "route", "register", "rates", "top" };

std::vector<std::string_view> partsOf( std::string_view text ) {
   std::vector<std::string_view> parts;
   for ( size_t at = 0; at <= text.size(); ) {
      const size_t end = std::min( text.find( '.', at ), text.size() );
      parts.push_back( text.substr( at, end - at ) );
      at = end + 1;
   }
   return parts;
}

std::string streamText( const RouteKey& stream ) {
   return addressToken( stream.group ) + '.' + addressToken( stream.source );
}

// The last parts of a key, which are all but its kind and scope.
bool parseRest( Key& key, const std::vector<std::string_view>& rest ) {
   const AddressFamily family = key.scope.family;
   if ( key.kind == Key::rates ) {
      key.page =
         rest.size() == 1
            ? static_cast<uint32_t>( hexOf( rest[0] ).value_or( Key::pages ) )
            : Key::pages;
      return key.page < Key::pages;
   }
   if ( key.kind != Key::route && key.kind != Key::registers ) return rest.empty();
   if ( rest.size() != 2 ) return false;
   const auto group = addressOf( rest[0], family );
   const auto source = addressOf( rest[1], family );
   if ( !group || !source ) return false;
   key.stream = { *source, *group };
   return true;
}

// FNV-1a, of 64 bits.
uint64_t hashOf( std::string_view bytes ) {
   uint64_t hash = 0xcbf29ce484222325ULL;
   for ( const char each : bytes )
      hash = ( hash ^ static_cast<unsigned char>( each ) ) * 0x100000001b3ULL;
   return hash;
}

}

std::string keyPrefix( Key::Kind kind ) {
   return std::string( kKinds[kind] ) + '.';
}

std::string keyPrefix( Key::Kind kind, const Scope& scope ) {
   return fmt::format( "{}.{}.{}.", kKinds[kind], token( scope.vrf ),
                       scope.family == AddressFamily::ipv4 ? 4 : 6 );
}

std::string keyPrefix( Key::Kind kind, const Scope& scope,
                       const Vantu::IpGenAddr& group ) {
   return keyPrefix( kind, scope ) + addressToken( group ) + '.';
}

std::string keyText( const Key& key ) {
   if ( key.kind == Key::recorder ) return kKinds[key.kind];
   std::string text = keyPrefix( key.kind, key.scope );
   if ( key.kind == Key::route || key.kind == Key::registers )
      return text + streamText( key.stream );
   if ( key.kind == Key::rates ) return text + fmt::format( "{:02x}", key.page );
   text.pop_back();
   return text;
}

std::optional<Key> parseKey( std::string_view text ) {
   const auto parts = partsOf( text );
   Key key;
   size_t kind = 0;
   while ( kind < kKinds.size() && parts[0] != kKinds[kind] ) ++kind;
   if ( kind == kKinds.size() ) return std::nullopt;
   key.kind = static_cast<Key::Kind>( kind );
   if ( key.kind == Key::recorder )
      return parts.size() == 1 ? std::optional( key ) : std::nullopt;
   const auto vrf = parts.size() > 2 ? untoken( parts[1] ) : std::nullopt;
   if ( !vrf || ( parts[2] != "4" && parts[2] != "6" ) ) return std::nullopt;
   key.scope = { *vrf,
                 parts[2] == "4" ? AddressFamily::ipv4 : AddressFamily::ipv6 };
   if ( !parseRest( key, { parts.begin() + 3, parts.end() } ) ||
        keyText( key ) != text )
      return std::nullopt;
   return key;
}

uint32_t pageOf( const RouteKey& stream ) {
   const uint64_t hash = hashOf( streamText( stream ) );
   return static_cast<uint32_t>( ( hash ^ hash >> 32 ) % Key::pages );
}

std::string hexText( uint64_t number ) {
   return fmt::format( "{:016x}", number );
}

std::optional<uint64_t> hexOf( std::string_view text ) {
   constexpr size_t kDigits = 16;
   uint64_t number = 0;
   const auto end = text.data() + text.size();
   const auto result = std::from_chars( text.data(), end, number, 16 );
   if ( text.empty() || text.size() > kDigits || result.ptr != end )
      return std::nullopt;
   return number;
}

// Eight bytes at a time would be faster; a value's text takes far longer to make.
uint64_t digestOf( std::string_view value ) {
   return hashOf( value );
}

}
