// Tells IPv6 sources that their packets are too big for a register's path (RFC 7761,
// 4.4.1; RFC 4443, 3.2). Such packets are registered all the same, in fragments: a source
// that does not listen loses nothing. Event-loop thread only.
#pragma once

#include <map>
#include <set>

#include "apps/mfib/MrtTable.h"
#include "packet/Cursor.h"

namespace Forwarding {

class TooBig {
 public:
   static constexpr double interval =
      1.0;  // s; a source and group is told once in it

   // `socket`: raw, of ICMPv6.
   explicit TooBig( SharedFd socket );

   // Tells the packet's source if the packet does not fit. `own` is this router's address
   // on its link. Returns whether it was told.
   bool check( const Routing::Pim::RouteKey& key, Router::Bytes packet,
               const Vantu::IpGenAddr& own, const Vantu::IpGenAddr& rp,
               double now );

 private:
   uint32_t roomTo( const Vantu::IpGenAddr& rp );
   bool tell( const Vantu::IpGenAddr& to, Router::Bytes packet,
              const Vantu::IpGenAddr& own, uint32_t mtu ) const;

   SharedFd socket_;
   // Of the present interval.
   double since_ = 0.0;
   std::map<Vantu::IpGenAddr, uint32_t> rooms_;  // by RP
   std::set<Routing::Pim::RouteKey> told_;
};

}
