#include "apps/netlink/Message.h"

#include <libmnl/libmnl.h>

#include <algorithm>

namespace Netlink {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

std::optional<Bytes> Attributes::find( uint16_t type ) const {
   Bytes rest = bytes_;
   while ( rest.size() <= INT32_MAX ) {
      const auto* attribute = reinterpret_cast<const nlattr*>( rest.data() );
      if ( !mnl_attr_ok( attribute, static_cast<int>( rest.size() ) ) ) break;
      if ( mnl_attr_get_type( attribute ) == type ) {
         return Bytes(
            static_cast<const uint8_t*>( mnl_attr_get_payload( attribute ) ),
            mnl_attr_get_payload_len( attribute ) );
      }
      // The last attribute's padding may be missing.
      rest = rest.subspan(
         std::min<size_t>( rest.size(), MNL_ALIGN( attribute->nla_len ) ) );
   }
   return std::nullopt;
}

std::optional<IpGenAddr> Attributes::address( uint16_t type,
                                              AddressFamily family ) const {
   std::optional<Bytes> bytes = find( type );
   size_t size =
      family == AddressFamily::ipv4 ? sizeof( in_addr ) : sizeof( in6_addr );
   if ( !bytes || bytes->size() != size ) return std::nullopt;
   return IpGenAddr::fromBytes( family, bytes->data() );
}

std::optional<Mox::StringView> Attributes::text( uint16_t type ) const {
   std::optional<Bytes> bytes = find( type );
   if ( !bytes ) return std::nullopt;
   Mox::StringView text( reinterpret_cast<const char*>( bytes->data() ),
                         bytes->size() );
   return text.substr( 0, text.find( '\0' ) );
}

Attributes Attributes::nested( uint16_t type ) const {
   return Attributes( find( type ).value_or( Bytes() ) );
}

std::optional<AddressFamily> familyOf( int systemFamily ) {
   // Multicast forwarding uses families of its own.
   if ( systemFamily == AF_INET || systemFamily == RTNL_FAMILY_IPMR )
      return AddressFamily::ipv4;
   if ( systemFamily == AF_INET6 || systemFamily == RTNL_FAMILY_IP6MR )
      return AddressFamily::ipv6;
   return std::nullopt;
}

int systemFamily( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? AF_INET : AF_INET6;
}

}
