// From a captured frame to the payload of its IP packet.
#pragma once

#include <cstdint>

#include "packet/Cursor.h"
#include "packet/DropReason.h"
#include "platform/net/IpGenAddr.h"

namespace Router {

// What stands in front of the IP header. Ethernet may carry up to two VLAN tags,
// which are skipped: the capture tells the interface, not the tag.
enum class LinkType { unknown, ethernet, rawIp, linuxCooked, linuxCooked2 };

// Is it a VLAN's frame? Heard on an Ethernet interface of this host it belongs to another
// one. A tag of number 0 tells only a priority.
PIMSM_API bool isOfVlan( LinkType link, Bytes frame );

struct IpPacket {
   Vantu::IpGenAddr source;
   Vantu::IpGenAddr destination;
   uint8_t protocol = 0;  // behind all IPv6 extension headers
   uint8_t ttl = 0;
   Bytes payload;  // into the frame

   Vantu::AddressFamily family() const { return source.family(); }
};

// Fills `out` and returns notDropped, or says why not; `out` is then unspecified.
// Fragments are dropped; padding behind the packet is cut off. Hop-by-hop,
// routing and destination options of IPv6 are skipped (RFC 8200, 4). The IPv4
// header's checksum is not looked at: captures on a sender precede its offloading.
[[nodiscard]] PIMSM_API DropReason decodeFrame( LinkType link, Bytes frame,
                                                IpPacket& out );

}
