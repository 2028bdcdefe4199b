#include "apps/mfib/RegisterSocket.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>

#include "apps/netlink/Message.h"
#include "packet/Checksum.h"
#include "packet/Encode.h"

namespace Forwarding {
namespace {

using Router::Bytes;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr int kRegisterBuffer = 8 << 20;  // bytes
constexpr size_t kHeader4 = 20, kHeader6 = 40;
constexpr size_t kTtl4 = 8, kChecksum4 = 10, kHopLimit6 = 7;

// The packet as this router passes it on; nothing where its TTL is over.
std::optional<std::vector<uint8_t>> passedOn( Bytes packet, bool ipv4 ) {
   std::vector<uint8_t> out( packet.begin(), packet.end() );
   uint8_t& ttl = out[ipv4 ? kTtl4 : kHopLimit6];
   if ( ttl < 2 ) return std::nullopt;
   --ttl;
   if ( !ipv4 ) return out;
   const size_t header = ( out[0] & 0x0fU ) * 4;
   if ( header < kHeader4 || header > out.size() ) return std::nullopt;
   out[kChecksum4] = out[kChecksum4 + 1] = 0;
   Router::Checksum checksum;
   checksum.add( Bytes( out ).first( header ) );
   out[kChecksum4] = static_cast<uint8_t>( checksum.value() >> 8 );
   out[kChecksum4 + 1] = static_cast<uint8_t>( checksum.value() );
   return out;
}

// The traffic class, with its congestion bits.
int trafficClass( Bytes packet, bool ipv4 ) {
   return ipv4 ? packet[1] : ( packet[0] & 0x0f ) << 4 | packet[1] >> 4;
}

template <class Info>
void add( msghdr& message, cmsghdr*& at, int level, int type, const Info& info ) {
   at = at == nullptr ? CMSG_FIRSTHDR( &message ) : CMSG_NXTHDR( &message, at );
   at->cmsg_level = level;
   at->cmsg_type = type;
   at->cmsg_len = CMSG_LEN( sizeof info );
   std::memcpy( CMSG_DATA( at ), &info, sizeof info );
}

}

SharedFd openRawSocket( AddressFamily family, int protocol ) {
   const int fd = socket( Netlink::systemFamily( family ),
                          SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocol );
   if ( fd < 0 )
      throw std::system_error( errno, std::generic_category(), "raw socket" );
   if ( setsockopt( fd, SOL_SOCKET, SO_RCVBUFFORCE, &kRegisterBuffer,
                    sizeof kRegisterBuffer ) != 0 )
      setsockopt( fd, SOL_SOCKET, SO_RCVBUF, &kRegisterBuffer,
                  sizeof kRegisterBuffer );
   return std::make_shared<Mox::Loop::Fd>( fd, "raw socket" );
}

int RegisterSocket::send( Bytes packet, const IpGenAddr& source,
                          const IpGenAddr& rp ) const {
   const bool ipv4 = family_ == AddressFamily::ipv4;
   if ( packet.size() < ( ipv4 ? kHeader4 : kHeader6 ) ) return EMSGSIZE;
   const auto inner = passedOn( packet, ipv4 );
   return inner ? pass( *inner, source, rp ) : ETIMEDOUT;
}

int RegisterSocket::pass( Bytes packet, const IpGenAddr& source,
                          const IpGenAddr& rp ) const {
   const bool ipv4 = family_ == AddressFamily::ipv4;
   Router::PimRegister content;
   content.packet = packet;
   std::vector<uint8_t> bytes =
      encodePim( Router::pimMessage( std::move( content ) ), source, rp );

   sockaddr_storage to{};
   socklen_t toSize = 0;
   alignas( cmsghdr ) char control[128] = {};
   iovec data{ bytes.data(), bytes.size() };
   msghdr message{};
   message.msg_iov = &data;
   message.msg_iovlen = 1;
   message.msg_control = control;
   message.msg_controllen = sizeof control;
   cmsghdr* at = nullptr;
   const int tos = trafficClass( packet, ipv4 );
   size_t used = CMSG_SPACE( sizeof tos );
   if ( ipv4 ) {
      auto& address = reinterpret_cast<sockaddr_in&>( to );
      address.sin_family = AF_INET;
      std::memcpy( &address.sin_addr, rp.bytes().data(), sizeof address.sin_addr );
      toSize = sizeof address;
      in_pktinfo info{};
      std::memcpy( &info.ipi_spec_dst, source.bytes().data(),
                   sizeof info.ipi_spec_dst );
      add( message, at, IPPROTO_IP, IP_PKTINFO, info );
      add( message, at, IPPROTO_IP, IP_TOS, tos );
      used += CMSG_SPACE( sizeof info );
   } else {
      auto& address = reinterpret_cast<sockaddr_in6&>( to );
      address.sin6_family = AF_INET6;
      std::memcpy( &address.sin6_addr, rp.bytes().data(),
                   sizeof address.sin6_addr );
      toSize = sizeof address;
      in6_pktinfo info{};
      std::memcpy( &info.ipi6_addr, source.bytes().data(), sizeof info.ipi6_addr );
      add( message, at, IPPROTO_IPV6, IPV6_PKTINFO, info );
      add( message, at, IPPROTO_IPV6, IPV6_TCLASS, tos );
      used += CMSG_SPACE( sizeof info );
   }
   message.msg_controllen = used;
   message.msg_name = &to;
   message.msg_namelen = toSize;
   return sendmsg( socket_->value(), &message, 0 ) < 0 ? errno : 0;
}

}
