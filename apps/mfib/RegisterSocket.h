// Sends the data of sources on this router's links to their groups' RPs (RFC 7761,
// 4.4.1 and 4.9.3), by a raw socket that was opened while the process could. Event-loop
// thread only.
#pragma once

#include <memory>

#include "packet/Cursor.h"
#include "platform/loop/Loop.h"
#include "platform/net/IpGenAddr.h"

namespace Forwarding {

class RegisterSocket {
 public:
   // Needs CAP_NET_RAW. Throws std::system_error.
   explicit RegisterSocket( Vantu::AddressFamily family );

   // Sends the packet, which this router passes on: its TTL goes down by one. Returns
   // an errno value; 0: sent; EMSGSIZE also for a packet that is none, ETIMEDOUT for one
   // whose TTL is over.
   int send( Router::Bytes packet, const Vantu::IpGenAddr& source,
             const Vantu::IpGenAddr& rp ) const;

 private:
   Vantu::AddressFamily family_;
   Mox::Loop::Fd socket_;
};

}
