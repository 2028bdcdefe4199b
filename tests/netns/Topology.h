// The test network: a router and three hosts, IPv4 and IPv6.
//
//    source s0 --- r0 router r1 --- a0 left
//                            r2 --- b0 right
//
// Link n has 10.99.n.0/24 and 2001:db8:99:n::/64; the router is 1 there, the host 2.
#pragma once

#include "platform/net/IpGenAddr.h"
#include "tests/netns/Namespace.h"

namespace Netns {

struct Topology {
   Topology();

   static constexpr int links = 3;
   static std::string routerInterface( int link );
   static Vantu::IpGenAddr routerAddress( Vantu::AddressFamily family, int link );
   static Vantu::IpGenAddr hostAddress( Vantu::AddressFamily family, int link );

   const Namespace& host( int link ) const;
   static std::string hostInterface( int link );

   // The programs' configuration of the router's interfaces and addresses. `more`
   // follows as further keys of the VRF, indented by four blanks.
   static std::string config( const std::string& more = "" );

   Namespace source, router, left, right;
};

}
