// Addresses as unsigned numbers of their family's width, in host order, for
// arithmetic on ranges and for look-ups by bits.
//
// Ip4Number and Ip6Number are two arguments for templates that serve both families.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

#include "platform/net/IpGenAddr.h"

namespace Vantu {

__extension__ typedef unsigned __int128 Uint128;

namespace Detail {

// Swaps a word between network and host order.
inline uint64_t swapped( uint64_t word ) {
   if constexpr ( std::endian::native == std::endian::big ) return word;
   return __builtin_bswap64( word );
}
inline uint64_t loadWord( const uint8_t* bytes ) {
   uint64_t word;
   std::memcpy( &word, bytes, sizeof word );
   return swapped( word );
}

}

struct Ip4Number {
   using Number = uint32_t;
   static constexpr AddressFamily family = AddressFamily::ipv4;
   static constexpr unsigned bits = 32;

   // REQUIRES: an address of the family.
   static Number of( const IpGenAddr& address ) {
      return static_cast<Number>( Detail::loadWord( address.bytes().data() ) >>
                                  32 );
   }
   static IpGenAddr address( Number number ) {
      uint64_t word = Detail::swapped( uint64_t( number ) << 32 );
      uint8_t bytes[sizeof word];
      std::memcpy( bytes, &word, sizeof word );
      return IpGenAddr::fromBytes( family, bytes );
   }

   // Returns `bits` for zero.
   static unsigned leadingZeros( Number number ) {
      return static_cast<unsigned>( std::countl_zero( number ) );
   }
   static unsigned trailingZeros( Number number ) {
      return static_cast<unsigned>( std::countr_zero( number ) );
   }
   // The lowest `count` bits set; all of them for `bits`.
   static Number ones( unsigned count ) {
      return static_cast<Number>( ( UINT64_C( 1 ) << count ) - 1 );
   }
};

struct Ip6Number {
   using Number = Uint128;
   static constexpr AddressFamily family = AddressFamily::ipv6;
   static constexpr unsigned bits = 128;

   // REQUIRES: an address of the family.
   static Number of( const IpGenAddr& address ) {
      const uint8_t* bytes = address.bytes().data();
      return Number( Detail::loadWord( bytes ) ) << 64 |
             Detail::loadWord( bytes + 8 );
   }
   static IpGenAddr address( Number number ) {
      const uint64_t words[] = {
         Detail::swapped( static_cast<uint64_t>( number >> 64 ) ),
         Detail::swapped( static_cast<uint64_t>( number ) ) };
      uint8_t bytes[sizeof words];
      std::memcpy( bytes, words, sizeof words );
      return IpGenAddr::fromBytes( family, bytes );
   }

   // Returns `bits` for zero.
   static unsigned leadingZeros( Number number ) {
      auto high = static_cast<uint64_t>( number >> 64 );
      auto low = static_cast<uint64_t>( number );
      int zeros =
         high != 0 ? std::countl_zero( high ) : 64 + std::countl_zero( low );
      return static_cast<unsigned>( zeros );
   }
   static unsigned trailingZeros( Number number ) {
      auto high = static_cast<uint64_t>( number >> 64 );
      auto low = static_cast<uint64_t>( number );
      int zeros =
         low != 0 ? std::countr_zero( low ) : 64 + std::countr_zero( high );
      return static_cast<unsigned>( zeros );
   }
   // The lowest `count` bits set; all of them for `bits`.
   static Number ones( unsigned count ) {
      return count == bits ? ~Number( 0 ) : ( Number( 1 ) << count ) - 1;
   }
};

}
