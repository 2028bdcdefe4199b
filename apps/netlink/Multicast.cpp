#include "apps/netlink/Multicast.h"

#include <algorithm>

namespace Netlink {

namespace {

// The kernel's threshold for an interface that the entry does not send out of.
constexpr unsigned kNoThreshold = 255;

std::vector<uint32_t> readNexthops( Bytes list ) {
   std::vector<uint32_t> indexes;
   while ( auto hop = valueOf<rtnexthop>( list ) ) {
      if ( hop->rtnh_len < sizeof *hop || hop->rtnh_len > list.size() ) break;
      if ( hop->rtnh_hops < kNoThreshold && hop->rtnh_ifindex > 0 )
         indexes.push_back( static_cast<uint32_t>( hop->rtnh_ifindex ) );
      list = list.subspan(
         std::min<size_t>( list.size(), RTNH_ALIGN( hop->rtnh_len ) ) );
   }
   return indexes;
}

}

std::optional<MulticastEntry> multicastEntry( const Message& message,
                                              Vantu::AddressFamily family ) {
   const auto* body = message.body<rtmsg>();
   if ( message.type() != RTM_NEWROUTE || body == nullptr ||
        body->rtm_type != RTN_MULTICAST ||
        ( body->rtm_flags & RTNH_F_UNRESOLVED ) != 0 ||
        familyOf( body->rtm_family ) != family )
      return std::nullopt;
   const Attributes attributes = message.attributes<rtmsg>();
   const auto group = attributes.address( RTA_DST, family );
   if ( !group || !group->isMulticast() ) return std::nullopt;
   return MulticastEntry{
      attributes.value<uint32_t>( RTA_TABLE ).value_or( body->rtm_table ),
      attributes.address( RTA_SRC, family )
         .value_or( Vantu::IpGenAddr::unspecified( family ) ),
      *group, attributes.value<uint32_t>( RTA_IIF ).value_or( 0 ),
      readNexthops( attributes.find( RTA_MULTIPATH ).value_or( Bytes() ) ) };
}

}
