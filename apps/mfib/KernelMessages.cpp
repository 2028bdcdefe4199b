#include "apps/mfib/KernelMessages.h"

#include <linux/mroute.h>
#include <linux/mroute6.h>
#include <unistd.h>

#include "apps/netlink/Multicast.h"

namespace Forwarding {
namespace {

using Netlink::Bytes;
using Routing::Pim::RouteKey;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// Can a packet have this source and group?
bool isFlow( const RouteKey& key ) {
   return key.group.isMulticast() && !key.source.isMulticast() &&
          !key.source.isUnspecified();
}

std::optional<Published::UpcallKind> kindOf( unsigned type, unsigned noCache,
                                             unsigned wrongVif ) {
   if ( type == noCache ) return Published::noCacheUpcall;
   if ( type == wrongVif ) return Published::wrongVifUpcall;
   return std::nullopt;
}

std::optional<Upcall> checked( const Upcall& upcall,
                               std::optional<Published::UpcallKind> kind ) {
   if ( !kind || upcall.vif >= kMaxVifs || !isFlow( upcall.key ) )
      return std::nullopt;
   return Upcall{ upcall.key, upcall.vif, *kind, {} };
}

// Of what the kernel hands up whole, the packet behind the message.
Upcall whole( const RouteKey& key, Bytes packet ) {
   return { key, kRegisterVif, Published::noCacheUpcall,
            std::vector<uint8_t>( packet.begin(), packet.end() ) };
}

std::optional<Upcall> readUpcall4( Bytes packet ) {
   std::optional<igmpmsg> message = Netlink::valueOf<igmpmsg>( packet );
   // The place of an IP header's protocol, which is never 0.
   if ( !message || message->im_mbz != 0 ) return std::nullopt;
   unsigned vif = message->im_vif + 256U * message->im_vif_hi;
   const RouteKey key{ IpGenAddr( message->im_src ), IpGenAddr( message->im_dst ) };
   if ( message->im_msgtype == IGMPMSG_WHOLEPKT )
      return isFlow( key ) && packet.size() > sizeof *message
                ? std::optional( whole( key, packet.subspan( sizeof *message ) ) )
                : std::nullopt;
   return checked( { key, vif }, kindOf( message->im_msgtype, IGMPMSG_NOCACHE,
                                         IGMPMSG_WRONGVIF ) );
}

std::optional<Upcall> readUpcall6( Bytes packet ) {
   std::optional<mrt6msg> message = Netlink::valueOf<mrt6msg>( packet );
   // The place of ICMPv6's type.
   if ( !message || message->im6_mbz != 0 ) return std::nullopt;
   const RouteKey key{ IpGenAddr( message->im6_src ),
                       IpGenAddr( message->im6_dst ) };
   if ( message->im6_msgtype == MRT6MSG_WHOLEPKT )
      return isFlow( key ) && packet.size() > sizeof *message
                ? std::optional( whole( key, packet.subspan( sizeof *message ) ) )
                : std::nullopt;
   return checked(
      { key, message->im6_mif },
      kindOf( message->im6_msgtype, MRT6MSG_NOCACHE, MRT6MSG_WRONGMIF ) );
}

}

std::optional<Upcall> readUpcall( AddressFamily family, Bytes packet ) {
   return family == AddressFamily::ipv4 ? readUpcall4( packet )
                                        : readUpcall6( packet );
}

std::optional<StandingEntry> readEntry( const Netlink::Message& message,
                                        AddressFamily family, uint32_t table ) {
   auto read = Netlink::multicastEntry( message, family );
   if ( !read || read->table != table ) return std::nullopt;
   StandingEntry entry;
   entry.key = { read->source, read->group };
   entry.incomingIndex = read->incomingIndex;
   entry.outgoingIndexes = std::move( read->outgoingIndexes );
   const Netlink::Attributes attributes = message.attributes<rtmsg>();
   if ( auto stats = attributes.value<rta_mfc_stats>( RTA_MFC_STATS ) ) {
      entry.packets = stats->mfcs_packets;
      entry.bytes = stats->mfcs_bytes;
      entry.wrongIf = stats->mfcs_wrong_if;
   }
   static const auto kTicks = static_cast<double>( sysconf( _SC_CLK_TCK ) );
   entry.idle = static_cast<double>(
                   attributes.value<uint64_t>( RTA_EXPIRES ).value_or( 0 ) ) /
                kTicks;
   return entry;
}

}
