// Reads PIM's unicast messages from a raw socket of protocol 103. It hears all that are
// sent to this host, whatever the interface, before the kernel decapsulates them.
// Event-loop thread only.
#pragma once

#include <optional>
#include <vector>

#include "packet/Ip.h"

namespace Registers {

enum class Wanted {
   nothing,
   messages,  // registers and register-stops
   data       // registers but null ones
};

class Hearing {
 public:
   // REQUIRES: a raw socket of the family and protocol 103, which outlives this. It
   // hears nothing until wantedIs().
   Hearing( Vantu::AddressFamily family, int socket );

   // Lets only these through, which needs no capability. Throws std::system_error.
   void wantedIs( Wanted wanted );

   // The next waiting packet; its TTL is not told. Its payload is valid until the next
   // call. Nothing when none waits.
   std::optional<Router::IpPacket> next();

 private:
   std::optional<Router::IpPacket> read();

   Vantu::AddressFamily family_;
   int socket_;
   std::vector<uint8_t> buffer_;
};

}
