#include "engine/DownstreamJoin.h"

namespace Router {

DownstreamJoin::DownstreamJoin( Mox::Clock& clock, Mox::Ptr<Intf> intf,
                                std::function<void()> ended )
   : intf_( std::move( intf ) ),
     ended_( std::move( ended ) ),
     expiry_( clock, [this] { handleExpired(); } ),
     prunePending_( clock, [this] { handlePrunePendingExpired(); } ) {}

void DownstreamJoin::receiveJoin( double holdtime ) {
   prunePending_.cancel();
   expiry_.extend( holdtime );
   intf_->lastJoinReceivedIs( expiry_.now() );
   intf_->joinStateIs( Intf::joined );
}

void DownstreamJoin::receivePrune( double pendingTime ) {
   if ( intf_->joinState() != Intf::joined ) return;
   intf_->joinStateIs( Intf::prunePending );
   if ( pendingTime <= 0.0 ) return handlePrunePendingExpired();
   prunePending_.start( pendingTime );
}

// Timers are stored before states: where they differ, a kill came between. A prune
// with an unknown pending time is ignored.
void DownstreamJoin::adopt( const Published::Downstream& kept ) {
   expiry_.adopt( intf_->lastJoinReceived(), kept.joinHoldtime );
   const bool pending = kept.prunePendingUntil != 0.0;
   if ( pending ) prunePending_.resume( kept.prunePendingUntil );
   intf_->joinStateIs( pending ? Intf::prunePending : Intf::joined );
}

void DownstreamJoin::tell( Published::Downstream& record ) const {
   record.joinHoldtime = expiry_.holdtime();
   record.prunePendingUntil = prunePending_.until();
}

void DownstreamJoin::end() {
   expiry_.cancel();
   prunePending_.cancel();
   intf_->joinStateIs( Intf::noInfo );
   auto ended = ended_;
   ended();
}

}
