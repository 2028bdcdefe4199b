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
// message prunes: the temporary states last until the message's end.
// The state is the record's rptState; this holds the two timers, as plain values. `now` is
// the engines' time in seconds.
#pragma once

#include "engine/HoldTimer.h"
#include "model/Intf.h"

namespace Router {

class PIMSM_API DownstreamRptPrune {
 public:
   using Intf = Routing::Pim::SparseMode::Intf;

   void receiveWcJoin( Intf& intf );
   void receiveRptJoin( Intf& intf ) { end( intf ); }
   // `pendingTime`: the others' time to override the prune; 0 prunes at once.
   void receiveRptPrune( Intf& intf, double now, double holdtime,
                         double pendingTime );
   void endOfMessage( Intf& intf );
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
