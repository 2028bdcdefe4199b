// The downstream (*,G) and (S,G) join/prune machine of one interface (RFC 7761,
// 4.5.1 and 4.5.2: the same machine on different records).
//
//    state         join            prune           prune-pending    expiry
//    noInfo        -> joined       -               n/a              n/a
//    joined        extend expiry   -> prunePending n/a              -> noInfo
//    prunePending  -> joined       -               -> noInfo        -> noInfo
//
// The state is the record's joinState; this holds the two timers. Times in seconds.
#pragma once

#include "engine/HoldTimer.h"
#include "model/Intf.h"

namespace Router {

class PIMSM_API DownstreamJoin {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;

   // `ended` is called when the state has become noInfo; it may destroy the
   // machine.
   DownstreamJoin( Mox::Clock& clock, Mox::Ptr<Intf> intf,
                   std::function<void()> ended );

   void receiveJoin( double holdtime );
   // `pendingTime`: the others' time to override the prune; 0 prunes at once.
   void receivePrune( double pendingTime );
   // Resumes a reloaded state.
   void adopt( const Published::Downstream& kept );
   // Writes the timers for the next process.
   void tell( Published::Downstream& record ) const;

 private:
   void handlePrunePendingExpired() { end(); }
   void handleExpired() { end(); }
   void end();

   Mox::Ptr<Intf> intf_;
   std::function<void()> ended_;
   HoldTimer expiry_;
   Timer prunePending_;
};

}
