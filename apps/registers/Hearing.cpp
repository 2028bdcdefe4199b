#include "apps/registers/Hearing.h"

#include <linux/filter.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "packet/Pim.h"

namespace Registers {
namespace {

using Router::Bytes;
using Router::IpPacket;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr size_t kMost = 65536;  // bytes of a packet
constexpr uint32_t kAll = 0xffffffff;
constexpr uint32_t kRegister = 0x21, kStop = 0x22;  // version and type
constexpr uint32_t kNullFlag = 0x40000000;

// Moves to the PIM header: IPv4 sockets show the IP header, too.
sock_filter header( AddressFamily family ) {
   if ( family == AddressFamily::ipv4 )
      return BPF_STMT( BPF_LDX | BPF_B | BPF_MSH, 0 );
   return BPF_STMT( BPF_LDX | BPF_IMM, 0 );
}

std::vector<sock_filter> program( AddressFamily family, Wanted wanted ) {
   const sock_filter first = BPF_STMT( BPF_LD | BPF_B | BPF_IND, 0 );
   const sock_filter take = BPF_STMT( BPF_RET | BPF_K, kAll );
   const sock_filter drop = BPF_STMT( BPF_RET | BPF_K, 0 );
   switch ( wanted ) {
      case Wanted::messages:
         return { header( family ),
                  first,
                  BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, kRegister, 1, 0 ),
                  BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, kStop, 0, 1 ),
                  take,
                  drop };
      case Wanted::data:
         return { header( family ),
                  first,
                  BPF_JUMP( BPF_JMP | BPF_JEQ | BPF_K, kRegister, 0, 3 ),
                  BPF_STMT( BPF_LD | BPF_W | BPF_IND, 4 ),
                  BPF_JUMP( BPF_JMP | BPF_JSET | BPF_K, kNullFlag, 1, 0 ),
                  take,
                  drop };
      case Wanted::nothing:
         break;
   }
   return { drop };
}

// The packet's destination; the unspecified address where the kernel does not tell.
IpGenAddr destinationOf( msghdr& message ) {
   for ( cmsghdr* at = CMSG_FIRSTHDR( &message ); at != nullptr;
         at = CMSG_NXTHDR( &message, at ) ) {
      if ( at->cmsg_level != IPPROTO_IPV6 || at->cmsg_type != IPV6_PKTINFO )
         continue;
      in6_pktinfo info{};
      std::memcpy( &info, CMSG_DATA( at ), sizeof info );
      return IpGenAddr::fromBytes(
         AddressFamily::ipv6, reinterpret_cast<const uint8_t*>( &info.ipi6_addr ) );
   }
   return IpGenAddr::unspecified( AddressFamily::ipv6 );
}

}

Hearing::Hearing( AddressFamily family, int socket )
   : family_( family ), socket_( socket ) {
   wantedIs( Wanted::nothing );
   const int on = 1;
   if ( family == AddressFamily::ipv6 )
      setsockopt( socket_, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof on );
}

void Hearing::wantedIs( Wanted wanted ) {
   std::vector<sock_filter> filter = program( family_, wanted );
   const sock_fprog all{ static_cast<uint16_t>( filter.size() ), filter.data() };
   if ( setsockopt( socket_, SOL_SOCKET, SO_ATTACH_FILTER, &all, sizeof all ) != 0 )
      throw std::system_error( errno, std::generic_category(), "socket filter" );
}

// What came before the filter did, and damaged headers, are skipped.
std::optional<IpPacket> Hearing::next() {
   constexpr int kMostSkipped = 64;
   for ( int i = 0; i < kMostSkipped; ++i ) {
      const std::optional<IpPacket> packet = read();
      if ( !packet || !packet->payload.empty() ) return packet;
   }
   return std::nullopt;
}

std::optional<IpPacket> Hearing::read() {
   buffer_.resize( kMost );
   sockaddr_in6 from{};
   alignas( cmsghdr ) char control[128];
   iovec part{ buffer_.data(), buffer_.size() };
   msghdr message{};
   message.msg_name = &from;
   message.msg_namelen = sizeof from;
   message.msg_iov = &part;
   message.msg_iovlen = 1;
   message.msg_control = control;
   message.msg_controllen = sizeof control;
   const ssize_t size = recvmsg( socket_, &message, MSG_DONTWAIT );
   if ( size < 0 ) return std::nullopt;
   const Bytes bytes( buffer_.data(), static_cast<size_t>( size ) );
   IpPacket out;
   if ( family_ == AddressFamily::ipv4 ) {
      if ( decodeFrame( Router::LinkType::rawIp, bytes, out ) !=
           Router::notDropped )
         out.payload = {};
      return out;
   }
   out.source = IpGenAddr::fromBytes(
      family_, reinterpret_cast<const uint8_t*>( &from.sin6_addr ) );
   out.destination = destinationOf( message );
   out.protocol = Router::pimProtocol;
   out.payload = bytes;
   return out;
}

}
