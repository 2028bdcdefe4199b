#include "apps/mfib/MrtTable.h"

#include <fmt/format.h>
#include <linux/mroute.h>
#include <linux/mroute6.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/icmp6.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <stdexcept>

#include "apps/mfib/KernelMessages.h"
#include "apps/netlink/Dump.h"
#include "apps/program/Ending.h"

namespace Forwarding {
namespace {

using Routing::Pim::RouteKey;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr int kReceiveBuffer = 8 << 20;  // for upcalls and whole packets
constexpr unsigned kMaxOthers = 256;     // packets in one look that are no upcalls
constexpr unsigned char kSend = 1;  // the least TTL of a packet to be forwarded
constexpr unsigned char kDoNotSend = 255;

int protocolOf( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? static_cast<int>( IPPROTO_IGMP )
                                        : static_cast<int>( IPPROTO_ICMPV6 );
}
int levelOf( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? static_cast<int>( IPPROTO_IP )
                                        : static_cast<int>( IPPROTO_IPV6 );
}

template <class Value>
int set( const Mox::Loop::Fd& socket, int level, int option, const Value& value ) {
   return setsockopt( socket.value(), level, option, &value, sizeof value ) == 0
             ? 0
             : errno;
}

in_addr address4( const IpGenAddr& address ) {
   in_addr out{};
   std::memcpy( &out, address.bytes().data(), sizeof out );
   return out;
}
sockaddr_in6 address6( const IpGenAddr& address ) {
   sockaddr_in6 out{};
   out.sin6_family = AF_INET6;
   std::memcpy( &out.sin6_addr, address.bytes().data(), sizeof out.sin6_addr );
   return out;
}

mfcctl entry4( const RouteKey& key ) {
   mfcctl out{};
   out.mfcc_origin = address4( key.source );
   out.mfcc_mcastgrp = address4( key.group );
   return out;
}
mf6cctl entry6( const RouteKey& key ) {
   mf6cctl out{};
   out.mf6cc_origin = address6( key.source );
   out.mf6cc_mcastgrp = address6( key.group );
   return out;
}

[[noreturn]] void fail( AddressFamily family, uint32_t table, int error,
                        const char* advice ) {
   const std::string text =
      fmt::format( "multicast routing table {} ({}): {}{}", table,
                   Vantu::valueToStrep( family ), std::strerror( error ), advice );
   if ( error == EADDRINUSE ) throw Programs::HeldByAnother( text );
   throw std::runtime_error( text );
}

const char* adviceOn( int error ) {
   if ( error == EADDRINUSE ) return "; another process holds it";
   if ( error == EPERM || error == EACCES )
      return "; needs CAP_NET_ADMIN and CAP_NET_RAW";
   if ( error == ENOPROTOOPT )
      return "; this kernel has no multicast routing, or one table only";
   return "";
}

}

SharedFd openMrtSocket( AddressFamily family, uint32_t table ) {
   int file =
      socket( Netlink::systemFamily( family ),
              SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, protocolOf( family ) );
   if ( file < 0 ) fail( family, table, errno, adviceOn( errno ) );
   auto out = std::make_shared<Mox::Loop::Fd>( file, "multicast routing" );
   bool isIpv4 = family == AddressFamily::ipv4;
   static_assert( MRT_TABLE == MRT6_TABLE && MRT_INIT == MRT6_INIT &&
                  MRT_ASSERT == MRT6_ASSERT && MRT_ADD_VIF == MRT6_ADD_MIF &&
                  MRT_DEL_VIF == MRT6_DEL_MIF && MRT_ADD_MFC == MRT6_ADD_MFC &&
                  MRT_DEL_MFC == MRT6_DEL_MFC );
   int error = set( *out, levelOf( family ), MRT_TABLE, table );
   if ( error == 0 ) error = set( *out, levelOf( family ), MRT_INIT, 1 );
   if ( error != 0 ) fail( family, table, error, adviceOn( error ) );
   if ( !isIpv4 ) {
      // Upcalls pass the filter; neighbour discovery and echoes need not.
      icmp6_filter filter;
      ICMP6_FILTER_SETBLOCKALL( &filter );
      set( *out, IPPROTO_ICMPV6, ICMP6_FILTER, filter );
   }
   if ( set( *out, SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBuffer ) != 0 )
      set( *out, SOL_SOCKET, SO_RCVBUF, kReceiveBuffer );
   return out;
}

bool isRawSocket( AddressFamily family, int protocol, int fd ) {
   auto option = [&]( int name ) {
      int value = -1;
      socklen_t size = sizeof value;
      return getsockopt( fd, SOL_SOCKET, name, &value, &size ) == 0 ? value : -1;
   };
   return option( SO_DOMAIN ) == Netlink::systemFamily( family ) &&
          option( SO_TYPE ) == SOCK_RAW && option( SO_PROTOCOL ) == protocol;
}

bool isMrtSocket( AddressFamily family, int fd ) {
   return isRawSocket( family, protocolOf( family ), fd );
}

// With PIM on, the kernel reports packets that come in by any other interface than the
// entry's. The setting outlives the socket of a former process, and whether packets are
// reported whole follows from its first change from off.
void MrtTable::makeReady() {
   static_assert( MRT_PIM == MRT6_PIM );
   int error = set( *socket_, levelOf( family_ ), MRT_PIM, 0 );
   if ( error == 0 ) error = set( *socket_, levelOf( family_ ), MRT_PIM, 1 );
   if ( error == 0 ) return;
   fail( family_, table_, error,
         "; the socket kept for it does not own it: stop the keeper, or remove it "
         "from the file-descriptor store" );
}

int MrtTable::vifIs( unsigned vif, uint32_t ifIndex ) {
   if ( isIpv4() ) {
      vifctl request{};
      request.vifc_vifi = static_cast<vifi_t>( vif );
      request.vifc_flags = VIFF_USE_IFINDEX;
      request.vifc_threshold = kSend;
      request.vifc_lcl_ifindex = static_cast<int>( ifIndex );
      return set( *socket_, IPPROTO_IP, MRT_ADD_VIF, request );
   }
   // The kernel accepts no larger index.
   if ( ifIndex > UINT16_MAX ) return EOVERFLOW;
   mif6ctl request{};
   request.mif6c_mifi = static_cast<mifi_t>( vif );
   request.vifc_threshold = kSend;
   request.mif6c_pifi = static_cast<uint16_t>( ifIndex );
   return set( *socket_, IPPROTO_IPV6, MRT6_ADD_MIF, request );
}

int MrtTable::vifDel( unsigned vif ) {
   if ( isIpv4() ) {
      vifctl request{};
      request.vifc_vifi = static_cast<vifi_t>( vif );
      return set( *socket_, IPPROTO_IP, MRT_DEL_VIF, request );
   }
   return set( *socket_, IPPROTO_IPV6, MRT6_DEL_MIF, static_cast<mifi_t>( vif ) );
}

int MrtTable::registerVifIs() {
   if ( isIpv4() ) {
      vifctl request{};
      request.vifc_vifi = kRegisterVif;
      request.vifc_flags = VIFF_REGISTER;
      request.vifc_threshold = kSend;
      return set( *socket_, IPPROTO_IP, MRT_ADD_VIF, request );
   }
   mif6ctl request{};
   request.mif6c_mifi = kRegisterVif;
   request.mif6c_flags = MIFF_REGISTER;
   request.vifc_threshold = kSend;
   return set( *socket_, IPPROTO_IPV6, MRT6_ADD_MIF, request );
}

// The kernel names it after the table, unless it is the family's default one.
uint32_t MrtTable::registerIndex() const {
   const uint32_t plain = isIpv4() ? RT_TABLE_DEFAULT : RT_TABLE_MAIN;
   std::string name = isIpv4() ? "pimreg" : "pim6reg";
   if ( table_ != plain ) name += std::to_string( table_ );
   return if_nametoindex( name.c_str() );
}

std::optional<VifCounters> MrtTable::vif( unsigned vif ) const {
   if ( isIpv4() ) {
      sioc_vif_req request{};
      request.vifi = static_cast<vifi_t>( vif );
      if ( ioctl( socket_->value(), SIOCGETVIFCNT, &request ) != 0 )
         return std::nullopt;
      return VifCounters{ request.icount, request.ibytes, request.ocount,
                          request.obytes };
   }
   sioc_mif_req6 request{};
   request.mifi = static_cast<mifi_t>( vif );
   if ( ioctl( socket_->value(), SIOCGETMIFCNT_IN6, &request ) != 0 )
      return std::nullopt;
   return VifCounters{ request.icount, request.ibytes, request.ocount,
                       request.obytes };
}

int MrtTable::entryIs( const Entry& entry ) {
   if ( isIpv4() ) {
      mfcctl request = entry4( entry.key );
      request.mfcc_parent = static_cast<vifi_t>( entry.incoming );
      for ( size_t vif = 0; vif < entry.outgoing.size(); ++vif )
         request.mfcc_ttls[vif] = entry.outgoing[vif] ? kSend : kDoNotSend;
      return set( *socket_, IPPROTO_IP, MRT_ADD_MFC, request );
   }
   mf6cctl request = entry6( entry.key );
   request.mf6cc_parent = static_cast<mifi_t>( entry.incoming );
   for ( size_t vif = 0; vif < entry.outgoing.size(); ++vif )
      if ( entry.outgoing[vif] ) IF_SET( vif, &request.mf6cc_ifset );
   return set( *socket_, IPPROTO_IPV6, MRT6_ADD_MFC, request );
}

int MrtTable::entryDel( const RouteKey& key ) {
   return isIpv4() ? set( *socket_, IPPROTO_IP, MRT_DEL_MFC, entry4( key ) )
                   : set( *socket_, IPPROTO_IPV6, MRT6_DEL_MFC, entry6( key ) );
}

std::optional<StandingEntry> MrtTable::counters( const RouteKey& key ) const {
   StandingEntry out;
   out.key = key;
   auto read = [&]( auto request, auto command ) {
      if ( ioctl( socket_->value(), command, &request ) != 0 ) return false;
      out.packets = request.pktcnt;
      out.bytes = request.bytecnt;
      out.wrongIf = request.wrong_if;
      return true;
   };
   const bool known = isIpv4()
                         ? read( sioc_sg_req{ address4( key.source ),
                                              address4( key.group ), 0, 0, 0 },
                                 SIOCGETSGCNT )
                         : read( sioc_sg_req6{ address6( key.source ),
                                               address6( key.group ), 0, 0, 0 },
                                 SIOCGETSGCNT_IN6 );
   return known ? std::optional( out ) : std::nullopt;
}

bool MrtTable::visit(
   const std::function<void( const StandingEntry& )>& visitor ) const {
   int family = isIpv4() ? RTNL_FAMILY_IPMR : RTNL_FAMILY_IP6MR;
   return Netlink::dumpRoutes(
      family, table_, [&]( const Netlink::Message& message ) {
         if ( auto entry = readEntry( message, family_, table_ ) )
            visitor( *entry );
      } );
}

std::optional<Upcall> MrtTable::nextUpcall() {
   uint8_t packet[65536];
   // The limit keeps a flood of IGMP on a link from blocking the process.
   for ( unsigned others = 0; others < kMaxOthers; ++others ) {
      ssize_t count = recv( socket_->value(), packet, sizeof packet, MSG_DONTWAIT );
      if ( count < 0 ) break;
      auto size = static_cast<size_t>( count );
      if ( auto upcall = readUpcall( family_, { packet, size } ) ) return upcall;
   }
   return std::nullopt;
}

}
