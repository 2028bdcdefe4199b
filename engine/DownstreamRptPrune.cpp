#include "engine/DownstreamRptPrune.h"

#include <algorithm>

namespace Router {

void DownstreamRptPrune::receiveWcJoin( Intf& intf ) {
   if ( intf.rptState() == Intf::rptPruned ) {
      intf.rptStateIs( Intf::rptPruneTemp );
   } else if ( intf.rptState() == Intf::rptPrunePending ) {
      intf.rptStateIs( Intf::rptPrunePendingTemp );
   }
}

void DownstreamRptPrune::receiveRptPrune( Intf& intf, double now, double holdtime,
                                          double pendingTime ) {
   intf.lastRptPruneReceivedIs( now );
   switch ( intf.rptState() ) {
      case Intf::rptNoInfo:
         if ( holdtime <= 0.0 ) return;
         expiry_.start( now, holdtime );
         if ( pendingTime > 0.0 ) prunePending_ = now + pendingTime;
         intf.rptStateIs( pendingTime > 0.0 ? Intf::rptPrunePending
                                            : Intf::rptPruned );
         return;
      case Intf::rptPrunePending:
         expiry_.keep( now );
         return;
      case Intf::rptPruned:
      case Intf::rptPruneTemp:
         expiry_.extend( now, holdtime );
         intf.rptStateIs( Intf::rptPruned );
         return;
      case Intf::rptPrunePendingTemp:
         expiry_.extend( now, holdtime );
         intf.rptStateIs( Intf::rptPrunePending );
         return;
   }
}

void DownstreamRptPrune::endOfMessage( Intf& intf ) {
   if ( intf.rptState() == Intf::rptPruneTemp ||
        intf.rptState() == Intf::rptPrunePendingTemp ) {
      end( intf );
   }
}

// As in DownstreamJoin.
void DownstreamRptPrune::adopt( Intf& intf, double now,
                                const Published::Downstream& kept ) {
   const bool pruned =
      intf.rptState() == Intf::rptPruned || intf.rptState() == Intf::rptPruneTemp;
   if ( !pruned && kept.rptHoldtime == 0.0 ) return end( intf );
   expiry_.adopt( now, intf.lastRptPruneReceived(), kept.rptHoldtime );
   const bool pending = kept.rptPendingUntil != 0.0;
   if ( pending ) prunePending_ = Timer::resumed( now, kept.rptPendingUntil );
   intf.rptStateIs( pending ? Intf::rptPrunePending : Intf::rptPruned );
}

void DownstreamRptPrune::tell( Published::Downstream& record ) const {
   record.rptHoldtime = expiry_.holdtime();
   record.rptPendingUntil = prunePending_;
}

double DownstreamRptPrune::due() const {
   return prunePending_ == 0.0 ? expiry_.until()
                               : std::min( prunePending_, expiry_.until() );
}

void DownstreamRptPrune::handleTime( Intf& intf, double now ) {
   if ( expiry_.until() <= now ) return end( intf );
   if ( prunePending_ == 0.0 || prunePending_ > now ) return;
   prunePending_ = 0.0;
   intf.rptStateIs( Intf::rptPruned );
}

void DownstreamRptPrune::end( Intf& intf ) {
   expiry_.cancel();
   prunePending_ = 0.0;
   intf.rptStateIs( Intf::rptNoInfo );
}

}
