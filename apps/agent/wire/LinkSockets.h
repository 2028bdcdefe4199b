// The raw sockets by which a router sends in one family: on one interface, or
// wherever the host's routes lead. Nothing is read from them: the captures hear all.
// Event-loop thread only.
#pragma once

#include <optional>
#include <string>

#include "engine/Sender.h"
#include "platform/loop/Loop.h"

namespace Agent {

class LinkSockets {
 public:
   // On the interface of that name and index, with the memberships that make switches
   // pass what routers send each other and what hosts report. Index 0: on none, for
   // unicast. Throws std::system_error; needs CAP_NET_RAW.
   LinkSockets( Vantu::AddressFamily family, const std::string& device,
                uint32_t index );

   uint32_t index() const { return index_; }

   // REQUIRES: a message of the family; on no interface, a PIM message. Throws
   // std::system_error if the kernel refuses it.
   void send( const Router::Outgoing& message );

 private:
   void openLink( Vantu::AddressFamily family, const std::string& device );

   uint32_t index_;
   Mox::Loop::Fd pim_;
   std::optional<Mox::Loop::Fd> membership_;
};

}
