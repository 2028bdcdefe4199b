#include "engine/DownstreamJoin.h"

#include <algorithm>

namespace Router {

void DownstreamJoin::receiveJoin( Intf& intf, double now, double holdtime ) {
   if ( holdtime <= 0.0 && intf.joinState() == Intf::noInfo ) return;
   prunePending_ = 0.0;
   expiry_.extend( now, holdtime );
   intf.lastJoinReceivedIs( now );
   intf.joinStateIs( Intf::joined );
}

void DownstreamJoin::receivePrune( Intf& intf, double now, double pendingTime ) {
   if ( intf.joinState() != Intf::joined ) return;
   if ( pendingTime <= 0.0 ) return end( intf );
   prunePending_ = now + pendingTime;
   intf.joinStateIs( Intf::prunePending );
}

// Timers are stored before states: where they differ, a kill came between. A prune
// with an unknown pending time is ignored.
void DownstreamJoin::adopt( Intf& intf, double now,
                            const Published::Downstream& kept ) {
   expiry_.adopt( now, intf.lastJoinReceived(), kept.joinHoldtime );
   const bool pending = kept.prunePendingUntil != 0.0;
   if ( pending ) prunePending_ = Timer::resumed( now, kept.prunePendingUntil );
   intf.joinStateIs( pending ? Intf::prunePending : Intf::joined );
}

void DownstreamJoin::tell( Published::Downstream& record ) const {
   record.joinHoldtime = expiry_.holdtime();
   record.prunePendingUntil = prunePending_;
}

double DownstreamJoin::due() const {
   return prunePending_ == 0.0 ? expiry_.until()
                               : std::min( prunePending_, expiry_.until() );
}

void DownstreamJoin::handleTime( Intf& intf, double now ) {
   if ( due() <= now ) end( intf );
}

void DownstreamJoin::end( Intf& intf ) {
   expiry_.cancel();
   prunePending_ = 0.0;
   intf.joinStateIs( Intf::noInfo );
}

}
