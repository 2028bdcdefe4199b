// libpcap's numbers of link types.
#pragma once

#include <pcap/pcap.h>

#include "apps/config/RouterNames.h"
#include "packet/Ip.h"

namespace Agent {

inline LinkType linkTypeOf( int dataLink ) {
   switch ( dataLink ) {
      case DLT_EN10MB:
         return LinkType::ethernet;
      case DLT_RAW:
      case DLT_IPV4:
      case DLT_IPV6:
         return LinkType::rawIp;
      case DLT_LINUX_SLL:
         return LinkType::linuxCooked;
      case DLT_LINUX_SLL2:
         return LinkType::linuxCooked2;
      default:
         return LinkType::unknown;
   }
}

}
