// The rules for an edge: an upper router's interface, and a lower router that takes a
// stream from it. The first rule that fails is the verdict.
#pragma once

#include "apps/fleet/path/detail/View.h"

namespace Fleet {

// The lower end, and who it says is above it.
struct Hop {
   Place below = {};
   IpGenAddr next = {};
   Place above = {};
};

// What the lower router's entry says.
struct Below {
   bool joined = false;
   bool old = false;  // its route
};

class Judge {
 public:
   // The fabric outlives this. `now`: 0: no age is known.
   Judge( const Fabric& fabric, Time now ) : fabric_( fabric ), now_( now ) {}

   // Whom the hop leads to; the judgement where that is nobody, or not one.
   Judgement find( Hop& hop ) const;
   // The link.
   Judgement link( const Hop& hop ) const;
   // The entries.
   Judgement route( const Hop& hop, const Below& below, const Above& above ) const;
   // Does anything else on the link contradict? Two routers are DR there.
   Judgement twoDrs( const std::vector<Place>& link ) const;
   // Two say to have won an assert, or losers name different winners.
   Judgement twoWinners(
      const std::vector<std::pair<Place, const RouteIntf*>>& records ) const;

   // Has a route of that time stood for two refreshes? Unknown: no.
   bool old( Time created ) const;

   // Of one router; the interface, where it is one.
   Judgement stale( uint32_t router ) const;
   Judgement down( const Place& place ) const;
   Judgement gone( uint32_t router ) const;
   Judgement forwarderGone( uint32_t router ) const;
   // What was found, or that an agent of theirs is gone, which explains it.
   Judgement blame( Judgement found, const std::vector<uint32_t>& routers ) const;

   // "r1", "r1 eth0"; as they may be printed.
   std::string name( uint32_t router ) const;
   std::string name( const Place& place ) const;
   // "10.0.3.9 (r3)", as somebody at the place knows the address.
   std::string named( const Place& at, const IpGenAddr& address ) const;

 private:
   Judgement join( const Hop& hop, const Below& below, const Above& above ) const;

   const Fabric& fabric_;
   Time now_;
};

}
