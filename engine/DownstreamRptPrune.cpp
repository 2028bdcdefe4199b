#include "engine/DownstreamRptPrune.h"

namespace Router {

DownstreamRptPrune::DownstreamRptPrune( Mox::Clock& clock, Mox::Ptr<Intf> intf,
                                        std::function<void()> ended )
   : intf_( std::move( intf ) ),
     ended_( std::move( ended ) ),
     expiry_( clock, [this] { end(); } ),
     prunePending_( clock, [this] { handlePrunePendingExpired(); } ) {}

void DownstreamRptPrune::receiveWcJoin() {
   if ( intf_->rptState() == Intf::rptPruned ) {
      intf_->rptStateIs( Intf::rptPruneTemp );
   } else if ( intf_->rptState() == Intf::rptPrunePending ) {
      intf_->rptStateIs( Intf::rptPrunePendingTemp );
   }
}

void DownstreamRptPrune::receiveRptJoin() {
   if ( intf_->rptState() != Intf::rptNoInfo ) end();
}

void DownstreamRptPrune::receiveRptPrune( double holdtime, double pendingTime ) {
   intf_->lastRptPruneReceivedIs( expiry_.now() );
   switch ( intf_->rptState() ) {
      case Intf::rptNoInfo:
         expiry_.start( holdtime );
         intf_->rptStateIs( Intf::rptPrunePending );
         if ( pendingTime <= 0.0 ) return handlePrunePendingExpired();
         prunePending_.start( pendingTime );
         return;
      case Intf::rptPrunePending:
         expiry_.keep();
         return;
      case Intf::rptPruned:
      case Intf::rptPruneTemp:
         expiry_.extend( holdtime );
         intf_->rptStateIs( Intf::rptPruned );
         return;
      case Intf::rptPrunePendingTemp:
         expiry_.extend( holdtime );
         intf_->rptStateIs( Intf::rptPrunePending );
         return;
   }
}

void DownstreamRptPrune::endOfMessage() {
   if ( intf_->rptState() == Intf::rptPruneTemp ||
        intf_->rptState() == Intf::rptPrunePendingTemp ) {
      end();
   }
}

// As in DownstreamJoin.
void DownstreamRptPrune::adopt( const Published::Downstream& kept ) {
   const bool pruned = intf_->rptState() == Intf::rptPruned ||
                       intf_->rptState() == Intf::rptPruneTemp;
   if ( !pruned && kept.rptHoldtime == 0.0 ) return end();
   expiry_.adopt( intf_->lastRptPruneReceived(), kept.rptHoldtime );
   const bool pending = kept.rptPendingUntil != 0.0;
   if ( pending ) prunePending_.resume( kept.rptPendingUntil );
   intf_->rptStateIs( pending ? Intf::rptPrunePending : Intf::rptPruned );
}

void DownstreamRptPrune::tell( Published::Downstream& record ) const {
   record.rptHoldtime = expiry_.holdtime();
   record.rptPendingUntil = prunePending_.until();
}

void DownstreamRptPrune::handlePrunePendingExpired() {
   intf_->rptStateIs( Intf::rptPruned );
}

void DownstreamRptPrune::end() {
   expiry_.cancel();
   prunePending_.cancel();
   intf_->rptStateIs( Intf::rptNoInfo );
   auto ended = ended_;
   ended();
}

}
