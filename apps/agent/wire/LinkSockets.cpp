#include "apps/agent/wire/LinkSockets.h"

#include <linux/filter.h>
#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "packet/Encode.h"

namespace Agent {
namespace {

using Router::Outgoing;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr int kNetworkControl = 0xc0;  // class selector 6
constexpr int kSendBuffer = 1 << 20;   // bytes; the kernel may grant less
// RFC 2113: every router looks at the packet.
constexpr uint8_t kRouterAlert4[] = { 0x94, 0x04, 0x00, 0x00 };
// RFC 2711, of MLD: next header and length, the option, padding.
constexpr uint8_t kRouterAlert6[] = { 0, 0, 0x05, 0x02, 0, 0, 0x01, 0 };
constexpr const char* kGroups4[] = { "224.0.0.13", "224.0.0.2", "224.0.0.22" };
constexpr const char* kGroups6[] = { "ff02::d", "ff02::2", "ff02::16" };

[[noreturn]] void fail( const char* what ) {
   throw std::system_error( errno, std::generic_category(), what );
}

template <class Value>
void set( int socket, int level, int option, const Value& value,
          const char* what ) {
   if ( setsockopt( socket, level, option, &value, sizeof value ) != 0 )
      fail( what );
}

int openRaw( AddressFamily family, int protocol ) {
   return socket( family == AddressFamily::ipv4 ? AF_INET : AF_INET6,
                  SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol );
}

// Nothing queues that nobody reads.
void hearNothing( int socket ) {
   sock_filter none{ BPF_RET | BPF_K, 0, 0, 0 };
   const sock_fprog program{ 1, &none };
   set( socket, SOL_SOCKET, SO_ATTACH_FILTER, program, "socket filter" );
}

void setCommon( int socket, AddressFamily family ) {
   hearNothing( socket );
   set( socket, SOL_SOCKET, SO_SNDBUF, kSendBuffer, "send buffer" );
   if ( family == AddressFamily::ipv4 ) {
      set( socket, IPPROTO_IP, IP_TOS, kNetworkControl, "type of service" );
   } else {
      set( socket, IPPROTO_IPV6, IPV6_TCLASS, kNetworkControl, "traffic class" );
   }
}

void setLink( int socket, AddressFamily family, const std::string& device ) {
   if ( setsockopt( socket, SOL_SOCKET, SO_BINDTODEVICE, device.c_str(),
                    static_cast<socklen_t>( device.size() + 1 ) ) != 0 )
      fail( "binding to the interface" );
   if ( family == AddressFamily::ipv4 ) {
      set( socket, IPPROTO_IP, IP_MULTICAST_TTL, 1, "TTL" );
      set( socket, IPPROTO_IP, IP_MULTICAST_LOOP, 0, "loop" );
   } else {
      set( socket, IPPROTO_IPV6, IPV6_MULTICAST_HOPS, 1, "hop limit" );
      set( socket, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, 0, "loop" );
   }
}

sockaddr_storage socketAddress( const IpGenAddr& address, uint32_t index,
                                socklen_t& size ) {
   sockaddr_storage out{};
   if ( address.family() == AddressFamily::ipv4 ) {
      auto& in = reinterpret_cast<sockaddr_in&>( out );
      in.sin_family = AF_INET;
      std::memcpy( &in.sin_addr, address.bytes().data(), sizeof in.sin_addr );
      size = sizeof in;
   } else {
      auto& in = reinterpret_cast<sockaddr_in6&>( out );
      in.sin6_family = AF_INET6;
      in.sin6_scope_id = index;
      std::memcpy( &in.sin6_addr, address.bytes().data(), sizeof in.sin6_addr );
      size = sizeof in;
   }
   return out;
}

void join( int socket, AddressFamily family, uint32_t index ) {
   const bool ipv4 = family == AddressFamily::ipv4;
   for ( const char* group : ipv4 ? kGroups4 : kGroups6 ) {
      group_req request{};
      socklen_t size = 0;
      request.gr_interface = index;
      request.gr_group = socketAddress( IpGenAddr( group ), 0, size );
      set( socket, ipv4 ? int( IPPROTO_IP ) : int( IPPROTO_IPV6 ), MCAST_JOIN_GROUP,
           request, "membership" );
   }
}

void setMembership( int socket, AddressFamily family ) {
   if ( family == AddressFamily::ipv4 )
      return set( socket, IPPROTO_IP, IP_OPTIONS, kRouterAlert4, "router alert" );
   set( socket, IPPROTO_IPV6, IPV6_HOPOPTS, kRouterAlert6, "router alert" );
   icmp6_filter none;
   ICMP6_FILTER_SETBLOCKALL( &none );
   set( socket, IPPROTO_ICMPV6, ICMP6_FILTER, none, "ICMPv6 filter" );
}

std::vector<uint8_t> payload( const Outgoing& out ) {
   if ( const auto* pim = std::get_if<Router::PimMessage>( &out.message ) )
      return Router::encodePim( *pim, out.source, out.destination );
   return Router::encodeMembership(
      std::get<Router::MembershipMessage>( out.message ), out.source,
      out.destination );
}

// The control message that sets the source and the interface of a packet.
class PacketInfo {
 public:
   PacketInfo( msghdr& envelope, const IpGenAddr& source, uint32_t index ) {
      envelope.msg_control = bytes_;
      if ( source.family() == AddressFamily::ipv4 ) {
         in_pktinfo info{};
         info.ipi_ifindex = static_cast<int>( index );
         std::memcpy( &info.ipi_spec_dst, source.bytes().data(),
                      sizeof info.ipi_spec_dst );
         put( envelope, IPPROTO_IP, IP_PKTINFO, info );
      } else {
         in6_pktinfo info{};
         info.ipi6_ifindex = index;
         std::memcpy( &info.ipi6_addr, source.bytes().data(),
                      sizeof info.ipi6_addr );
         put( envelope, IPPROTO_IPV6, IPV6_PKTINFO, info );
      }
   }

 private:
   template <class Info>
   void put( msghdr& envelope, int level, int type, const Info& info ) {
      envelope.msg_controllen = CMSG_SPACE( sizeof info );
      cmsghdr* header = CMSG_FIRSTHDR( &envelope );
      header->cmsg_level = level;
      header->cmsg_type = type;
      header->cmsg_len = CMSG_LEN( sizeof info );
      std::memcpy( CMSG_DATA( header ), &info, sizeof info );
   }

   alignas( cmsghdr ) char bytes_[CMSG_SPACE( sizeof( in6_pktinfo ) )] = {};
};

}

// Deliberately without the kernel's checksum in IPv6 where no interface is given: that
// of a register does not cover it whole (RFC 7761, 4.9.3).
LinkSockets::LinkSockets( AddressFamily family, const std::string& device,
                          uint32_t index )
   : index_( index ), pim_( openRaw( family, Router::pimProtocol ), "PIM socket" ) {
   setCommon( pim_.value(), family );
   if ( index != 0 ) openLink( family, device );
}

void LinkSockets::openLink( AddressFamily family, const std::string& device ) {
   const bool ipv4 = family == AddressFamily::ipv4;
   membership_.emplace(
      openRaw( family, ipv4 ? int( IPPROTO_IGMP ) : int( IPPROTO_ICMPV6 ) ),
      "membership socket" );
   setCommon( membership_->value(), family );
   setLink( pim_.value(), family, device );
   setLink( membership_->value(), family, device );
   setMembership( membership_->value(), family );
   if ( !ipv4 ) set( pim_.value(), IPPROTO_IPV6, IPV6_CHECKSUM, 2, "checksum" );
   join( pim_.value(), family, index_ );
}

void LinkSockets::send( const Outgoing& out ) {
   const bool pim = std::holds_alternative<Router::PimMessage>( out.message );
   std::vector<uint8_t> bytes = payload( out );
   socklen_t size = 0;
   sockaddr_storage to = socketAddress( out.destination, index_, size );
   iovec part = { bytes.data(), bytes.size() };
   msghdr envelope{};
   envelope.msg_name = &to;
   envelope.msg_namelen = size;
   envelope.msg_iov = &part;
   envelope.msg_iovlen = 1;
   const PacketInfo info( envelope, out.source, index_ );
   if ( sendmsg( ( pim ? pim_ : *membership_ ).value(), &envelope, 0 ) < 0 )
      fail( "send" );
}

}
