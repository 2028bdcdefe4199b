#include "apps/agent/engine/DownstreamJoin.h"

namespace Agent {

DownstreamJoin::DownstreamJoin( Mox::Clock& clock, Mox::Ptr<Intf> intf,
                                std::function<void()> ended )
   : intf_( std::move( intf ) ),
     ended_( std::move( ended ) ),
     expiry_( clock, [this] { handleExpired(); } ),
     prunePending_( clock, [this] { handlePrunePendingExpired(); } ) {}

void DownstreamJoin::receiveJoin( double holdtime ) {
   prunePending_.cancel();
   expiry_.extend( holdtime );
   intf_->lastJoinReceivedIs( expiry_.clock()->now() );
   intf_->joinStateIs( Intf::joined );
}

void DownstreamJoin::receivePrune( double pendingTime ) {
   if ( intf_->joinState() != Intf::joined ) return;
   intf_->joinStateIs( Intf::prunePending );
   if ( pendingTime <= 0.0 ) return handlePrunePendingExpired();
   prunePending_.start( pendingTime );
}

// What the prune-pending timer had left is not known: the state counts as joined,
// and whoever meant the prune prunes again.
void DownstreamJoin::adopt( double holdtime ) {
   expiry_.start( holdtime );
   intf_->joinStateIs( Intf::joined );
}

void DownstreamJoin::end() {
   expiry_.cancel();
   prunePending_.cancel();
   intf_->joinStateIs( Intf::noInfo );
   auto ended = ended_;
   ended();
}

}
