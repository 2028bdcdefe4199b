// An IPv4 or IPv6 address with its family.
//
// A flat value of 20 bytes that means the same in every process: it stands in the
// records of shared tables. Bytes that the family does not use are zero.
//
// Order: IPv4 before IPv6, then by the bytes. Equality is strict: 0.0.0.0 and ::
// differ, and an IPv4-mapped IPv6 address is IPv6. Text: bare, as of RFC 5952.
#pragma once

#include <netinet/in.h>

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <type_traits>

#include "platform/base/Assert.h"
#include "platform/base/Export.h"
#include "platform/base/Text.h"
#include "platform/net/AddressFamily.h"

namespace Vantu {

class PIMSM_API IpGenAddr {
 public:
   static constexpr size_t maxBytes = 16;

   // IPv4 0.0.0.0.
   constexpr IpGenAddr() = default;
   explicit IpGenAddr( const in_addr& address );
   explicit IpGenAddr( const in6_addr& address );
   // Reads the whole text. Throws ParseError.
   explicit IpGenAddr( Mox::StringView text );

   // 0.0.0.0 or ::. Any other family gives its own zero address, which equals
   // neither and serves only for comparison.
   static IpGenAddr unspecified( AddressFamily family ) {
      IpGenAddr address;
      address.family_[0] = static_cast<uint8_t>( family );
      return address;
   }

   // From bytes in network order, 4 or 16 as the family says.
   // REQUIRES: a family of the two.
   static IpGenAddr fromBytes( AddressFamily family, const uint8_t* bytes ) {
      MOX_ASSERT_TEXT( addressBits( family ) != 0, "Unsupported address family" );
      IpGenAddr address = unspecified( family );
      std::memcpy( address.bytes_.data(), bytes,
                   family == AddressFamily::ipv6 ? maxBytes : sizeof( in_addr ) );
      return address;
   }

   AddressFamily family() const { return static_cast<AddressFamily>( family_[0] ); }

   // All 16 bytes in network order; an IPv4 address takes the first four.
   const std::array<uint8_t, maxBytes>& bytes() const { return bytes_; }

   // True for 0.0.0.0 and ::.
   bool isUnspecified() const { return ( word( 0 ) | word( 8 ) ) == 0; }

   // 224.0.0.0/4, ff00::/8.
   bool isMulticast() const {
      return family() == AddressFamily::ipv4 ? ( bytes_[0] & 0xf0 ) == 0xe0
                                             : bytes_[0] == 0xff;
   }

   // Never routed: 224.0.0.0/24 (RFC 5771), and IPv6 groups of reserved, interface-local or
   // link-local scope, whatever their flags (RFC 4291, 2.7).
   bool isLinkLocalMulticast() const;

   // 169.254.0.0/16, fe80::/10.
   bool isLinkLocal() const;

   // Equal in every process. Both halves of each product are folded in, so that
   // neighbouring addresses differ in the low bits as well.
   size_t hash() const {
      constexpr uint64_t kFirst = UINT64_C( 0x9e3779b97f4a7c15 );
      constexpr uint64_t kSecond = UINT64_C( 0xd6e8feb86659fd93 );
      uint64_t mixed = word( 0 ) ^ ( ( word( 8 ) + family_[0] ) * kFirst );
      mixed = ( mixed ^ ( mixed >> 32 ) ) * kSecond;
      mixed = ( mixed ^ ( mixed >> 32 ) ) * kFirst;
      return mixed ^ ( mixed >> 32 );
   }

   friend bool operator==( const IpGenAddr& a, const IpGenAddr& b ) {
      // Not the arrays, which a compiler calls memcmp for.
      return a.word( 0 ) == b.word( 0 ) && a.word( 8 ) == b.word( 8 ) &&
             a.family_[0] == b.family_[0];
   }
   friend std::strong_ordering operator<=>( const IpGenAddr& a,
                                            const IpGenAddr& b ) {
      if ( a.family_[0] != b.family_[0] ) return a.family_[0] <=> b.family_[0];
      return std::memcmp( a.bytes_.data(), b.bytes_.data(), maxBytes ) <=> 0;
   }

 private:
   uint64_t word( size_t offset ) const {
      uint64_t value = 0;
      std::memcpy( &value, bytes_.data() + offset, sizeof value );
      return value;
   }

   alignas( 4 ) std::array<uint8_t, maxBytes> bytes_{};
   std::array<uint8_t, 4> family_{};  // the number and three zeros
};

static_assert( sizeof( IpGenAddr ) == 20 && alignof( IpGenAddr ) == 4 );
static_assert( std::is_trivially_copyable_v<IpGenAddr> &&
               std::has_unique_object_representations_v<IpGenAddr> );

// A family other than the two prints as "family<number>", which is not read back.
PIMSM_API Mox::String valueToStrep( const IpGenAddr& address );
// Reads only characters that an address may have. Throws ParseError.
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                IpGenAddr& out );
PIMSM_API std::ostream& operator<<( std::ostream& stream,
                                    const IpGenAddr& address );

inline size_t hash_value( const IpGenAddr& address ) {
   return address.hash();
}

}

template <>
struct std::hash<Vantu::IpGenAddr> {
   size_t operator()( const Vantu::IpGenAddr& address ) const noexcept {
      return address.hash();
   }
};
