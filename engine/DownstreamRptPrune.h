// The downstream (S,G,rpt) prune machine of one interface (RFC 7761, 4.5.3).
//
// clang-format off
//    state             (*,G) join      rpt join   rpt prune         end of    prune      expiry
//                                                                   message   pending
//    noInfo            -               -          -> pending        -         n/a        n/a
//    pending           -> pendingTemp  -> noInfo  -                 -         -> pruned  -> noInfo
//    pruned            -> temp         -> noInfo  extend expiry     -         n/a        -> noInfo
//    pendingTemp       -               -> noInfo  -> pending        -> noInfo -          -> noInfo
//    temp              -               -> noInfo  -> pruned         -> noInfo n/a        -> noInfo
// clang-format on
//
// A (*,G) join restores the whole group, except for the sources that the same
// message prunes: the temporary states last until the message's end. The state is
// the record's rptState; this holds the two timers. Times in seconds.
#pragma once

#include "engine/HoldTimer.h"
#include "model/Intf.h"

namespace Router {

class PIMSM_API DownstreamRptPrune {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;

   // `ended` is called when the state has become rptNoInfo; it may destroy the
   // machine.
   DownstreamRptPrune( Mox::Clock& clock, Mox::Ptr<Intf> intf,
                       std::function<void()> ended );

   void receiveWcJoin();
   void receiveRptJoin();
   // `pendingTime`: the others' time to override the prune; 0 prunes at once.
   void receiveRptPrune( double holdtime, double pendingTime );
   void endOfMessage();
   // Resumes a reloaded state.
   void adopt( const Published::Downstream& kept );
   // Writes the timers for the next process.
   void tell( Published::Downstream& record ) const;

 private:
   void handlePrunePendingExpired();
   void end();

   Mox::Ptr<Intf> intf_;
   std::function<void()> ended_;
   HoldTimer expiry_;
   Timer prunePending_;
};

}
