// The downstream (*,G) and (S,G) join/prune machine of one interface (RFC 7761,
// 4.5.1 and 4.5.2: the same machine on different records).
//
//    state         join            prune           prune-pending    expiry
//    noInfo        -> joined       -               n/a              n/a
//    joined        extend expiry   -> prunePending n/a              -> noInfo
//    prunePending  -> joined       -               -> noInfo        -> noInfo
//
// The state is the record's joinState; this holds the two timers, as plain values. `now`
// is the engines' time in seconds.
#pragma once

#include "engine/HoldTimer.h"
#include "model/Intf.h"

namespace Router {

class PIMSM_API DownstreamJoin {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;

   void receiveJoin( Intf& intf, double now, double holdtime );
   // `pendingTime`: the others' time to override the prune; 0 prunes at once.
   void receivePrune( Intf& intf, double now, double pendingTime );
   // Resumes a reloaded state.
   void adopt( Intf& intf, double now, const Published::Downstream& kept );
   // Writes the timers for the next process.
   void tell( Published::Downstream& record ) const;

   // The next call of handleTime() is due at this time at the latest; or never.
   double due() const;
   void handleTime( Intf& intf, double now );
   void end( Intf& intf );

 private:
   HoldTimer expiry_;
   double prunePending_ = 0.0;  // its end; 0: not running
};

}
