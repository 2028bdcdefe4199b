#include "apps/mfib/TooBig.h"

#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace Forwarding {
namespace {

using Router::Bytes;
using Vantu::IpGenAddr;

constexpr uint32_t kLeastMtu = 1280;    // of any link (RFC 8200, 5)
constexpr uint32_t kRegister = 40 + 8;  // the outer header and the register's
constexpr size_t kMostTold = 10000;     // in an interval

sockaddr_in6 socketAddress( const IpGenAddr& address ) {
   sockaddr_in6 out{};
   out.sin6_family = AF_INET6;
   std::memcpy( &out.sin6_addr, address.bytes().data(), sizeof out.sin6_addr );
   return out;
}

// By the kernel's route, with what it has learned of the path; 0: not known.
uint32_t pathMtu( const IpGenAddr& to ) {
   const Mox::Loop::Fd probe( socket( AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0 ),
                              "path MTU" );
   sockaddr_in6 address = socketAddress( to );
   address.sin6_port = htons( 9 );  // nothing is sent
   int mtu = 0;
   socklen_t size = sizeof mtu;
   if ( connect( probe.value(), reinterpret_cast<sockaddr*>( &address ),
                 sizeof address ) != 0 ||
        getsockopt( probe.value(), IPPROTO_IPV6, IPV6_MTU, &mtu, &size ) != 0 )
      return 0;
   return static_cast<uint32_t>( std::max( mtu, 0 ) );
}

}

TooBig::TooBig( SharedFd socket ) : socket_( std::move( socket ) ) {
   icmp6_filter none;
   ICMP6_FILTER_SETBLOCKALL( &none );
   setsockopt( socket_->value(), IPPROTO_ICMPV6, ICMP6_FILTER, &none, sizeof none );
}

// Where the path leaves less than each link takes, the source cannot help.
bool TooBig::check( const Routing::Pim::RouteKey& key, Bytes packet,
                    const IpGenAddr& own, const IpGenAddr& rp, double now ) {
   if ( packet.size() <= kLeastMtu ) return false;
   if ( now >= since_ + interval ) {
      since_ = now;
      rooms_.clear();
      told_.clear();
   }
   const uint32_t room = roomTo( rp );
   if ( room < kLeastMtu || packet.size() <= room || told_.size() >= kMostTold )
      return false;
   return told_.insert( key ).second && tell( key.source, packet, own, room );
}

uint32_t TooBig::roomTo( const IpGenAddr& rp ) {
   const auto [found, isNew] = rooms_.try_emplace( rp, 0 );
   if ( isNew ) found->second = std::max( pathMtu( rp ), kRegister ) - kRegister;
   return found->second;
}

// The kernel fills in the checksum.
bool TooBig::tell( const IpGenAddr& to, Bytes packet, const IpGenAddr& own,
                   uint32_t mtu ) const {
   icmp6_hdr header{};
   header.icmp6_type = ICMP6_PACKET_TOO_BIG;
   header.icmp6_mtu = htonl( mtu );
   const Bytes part = packet.first(
      std::min<size_t>( packet.size(), kLeastMtu - 40 - sizeof header ) );
   iovec parts[] = { { &header, sizeof header },
                     { const_cast<uint8_t*>( part.data() ), part.size() } };
   sockaddr_in6 address = socketAddress( to );
   in6_pktinfo info{};
   std::memcpy( &info.ipi6_addr, own.bytes().data(), sizeof info.ipi6_addr );
   alignas( cmsghdr ) char control[CMSG_SPACE( sizeof info )] = {};
   msghdr message{};
   message.msg_name = &address;
   message.msg_namelen = sizeof address;
   message.msg_iov = parts;
   message.msg_iovlen = std::size( parts );
   message.msg_control = control;
   message.msg_controllen = sizeof control;
   cmsghdr* at = CMSG_FIRSTHDR( &message );
   at->cmsg_level = IPPROTO_IPV6;
   at->cmsg_type = IPV6_PKTINFO;
   at->cmsg_len = CMSG_LEN( sizeof info );
   std::memcpy( CMSG_DATA( at ), &info, sizeof info );
   return sendmsg( socket_->value(), &message, MSG_DONTWAIT ) >= 0;
}

}
