// Decodes a captured frame down to the payload of its IP packet.
#pragma once

#include <cstdint>

#include "packet/Cursor.h"
#include "packet/DropReason.h"
#include "platform/net/IpGenAddr.h"

namespace Router {

// The header in front of the IP header. Ethernet may carry up to two VLAN tags,
// which are skipped: the capture gives the interface, not the tag.
enum class LinkType { unknown, ethernet, rawIp, linuxCooked, linuxCooked2 };

// Is it a VLAN's frame? Captured on an Ethernet interface of this host, it belongs
// to another interface. A tag with number 0 only carries a priority.
PIMSM_API bool isOfVlan( LinkType link, Bytes frame );

struct IpPacket {
   Vantu::IpGenAddr source;
   Vantu::IpGenAddr destination;
   uint8_t protocol = 0;  // behind all IPv6 extension headers
   uint8_t ttl = 0;
   Bytes payload;             // points into the frame
   bool routerAlert = false;  // IPv6: for MLD (RFC 2711)

   Vantu::AddressFamily family() const { return source.family(); }
};

// Fills `out` and returns notDropped, or returns the reason and leaves `out`
// unspecified. Drops fragments; cuts off padding behind the packet. Skips IPv6's
// hop-by-hop, routing and destination options (RFC 8200, 4). Does not check the
// IPv4 header's checksum: a capture on the sender comes before its checksum
// offloading.
[[nodiscard]] PIMSM_API DropReason decodeFrame( LinkType link, Bytes frame,
                                                IpPacket& out );

}
