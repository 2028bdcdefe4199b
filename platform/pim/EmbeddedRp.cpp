#include "platform/pim/EmbeddedRp.h"

#include <algorithm>

namespace Routing::Pim {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// The group's bytes: ff, flags and scope, the RP's last four bits, the length of its
// prefix, eight bytes of prefix, four that tell groups apart.
std::optional<IpGenAddr> embeddedRp( const IpGenAddr& group ) {
   constexpr uint8_t kFlags = 0x70;  // R, P and T (RFC 3956, 2)
   constexpr unsigned kLongest = 64;
   const auto& bytes = group.bytes();
   const bool embeds = group.family() == AddressFamily::ipv6 &&
                       group.isMulticast() && ( bytes[1] & 0xf0 ) == kFlags;
   if ( !embeds ) return std::nullopt;
   const auto none = IpGenAddr::unspecified( AddressFamily::ipv6 );
   const uint8_t id = bytes[2] & 0x0f;
   const unsigned length = bytes[3];
   if ( id == 0 || length == 0 || length > kLongest ) return none;
   std::array<uint8_t, IpGenAddr::maxBytes> rp{};
   std::copy_n( &bytes[4], ( length + 7 ) / 8, rp.begin() );
   if ( length % 8 != 0 )
      rp[length / 8] &= static_cast<uint8_t>( 0xff00 >> ( length % 8 ) );
   rp.back() = id;
   const auto address = IpGenAddr::fromBytes( AddressFamily::ipv6, rp.data() );
   return address.isMulticast() || address.isLinkLocal() ? none : address;
}

}
