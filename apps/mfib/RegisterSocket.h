// Sends the data of sources on this router's links to their groups' RPs (RFC 7761,
// 4.4.1 and 4.9.3), and hears those that an anycast RP passes on (RFC 4610), by a raw
// socket that was opened while a process could: it is kept for the next one. Event-loop
// thread only.
#pragma once

#include <memory>

#include "apps/mfib/MrtTable.h"
#include "apps/registers/Hearing.h"
#include "packet/Cursor.h"
#include "platform/net/IpGenAddr.h"

namespace Forwarding {

// A raw socket of the protocol. Needs CAP_NET_RAW. Throws std::system_error.
SharedFd openRawSocket( Vantu::AddressFamily family, int protocol );

class RegisterSocket {
 public:
   // Throws std::system_error.
   RegisterSocket( Vantu::AddressFamily family, SharedFd socket )
      : family_( family ),
        socket_( std::move( socket ) ),
        hearing_( family, socket_->value() ) {}

   int file() const { return socket_->value(); }
   // Registers of data to this host; it hears none unless asked to.
   Registers::Hearing& hearing() { return hearing_; }

   // Sends the packet, which this router passes on: its TTL goes down by one. Returns
   // an errno value; 0: sent; EMSGSIZE also for a packet that is none, ETIMEDOUT for one
   // whose TTL is over.
   int send( Router::Bytes packet, const Vantu::IpGenAddr& source,
             const Vantu::IpGenAddr& rp ) const;
   // As above, but the packet was in a register: it is sent as it is.
   int pass( Router::Bytes packet, const Vantu::IpGenAddr& source,
             const Vantu::IpGenAddr& rp ) const;

 private:
   Vantu::AddressFamily family_;
   SharedFd socket_;
   Registers::Hearing hearing_;
};

}
