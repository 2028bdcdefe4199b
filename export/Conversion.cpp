#include "export/Conversion.h"

namespace Routing::Pim::SparseMode::Brane {

Brane::Route doGetBraneRouteFromRoute( const SparseMode::Route& route ) {
   Brane::Route record( route.key() );
   record.routeFlags = route.routeFlags();
   record.creationTime = route.creationTime();
   record.rpf = route.rpf();
   record.prevRpf = route.prevRpf();
   record.rpfAttached = route.rpfAttached();
   record.mbrIif = route.mbrIif();
   record.rpfFrr = route.rpfFrr();
   record.rpfFrrAttached = route.rpfFrrAttached();
   record.iifSwitchState = route.iifSwitchState();
   record.iifSwitchPending = route.iifSwitchPending();
   record.upJoinState = route.upJoinState();
   record.upRptState = route.upRptState();
   return record;
}

Brane::Intf doGetBraneIntfFromRouteIntf( const RouteKey& routeKey,
                                         const SparseMode::Intf& intf ) {
   Brane::Intf record( RouteIntfKey{ routeKey, intf.intfId() } );
   record.toBeDeleted = intf.toBeDeleted();
   record.forward = intf.forward();
   record.fastForward = intf.fastForward();
   record.allowRpInUse = intf.allowRpInUse();
   record.joinState = intf.joinState();
   record.lastJoinReceived = intf.lastJoinReceived();
   record.rptState = intf.rptState();
   record.lastRptPruneReceived = intf.lastRptPruneReceived();
   record.assertInfo = intf.assertInfo();
   record.lastAssertAction = intf.lastAssertAction();
   record.localReceiverInclude = intf.localReceiverInclude();
   record.localReceiverExclude = intf.localReceiverExclude();
   return record;
}

namespace {

void updateFrr( SparseMode::Route& route, const Brane::Route& record ) {
   if ( record.rpfFrr == Rpf() ) {
      route.umhFrrDel();
      return;
   }
   Mox::Ptr<UpstreamInfo> backup = route.umhFrr();
   if ( backup == nullptr ) {
      backup = route.umhFrrIs();
      backup->frrIs( true );
      backup->routeIs( &route );
   }
   backup->rpfIs( record.rpfFrr );
   backup->rpfAttachedIs( record.rpfFrrAttached );
}

}

void doUpdateRoute( SparseMode::Route& route, const Brane::Route& record ) {
   route.routeFlagsIs( record.routeFlags );
   route.creationTimeIs( record.creationTime );
   Mox::Ptr<UpstreamInfo> main = route.umhIs();
   // A record made anew here after a removal is not bound yet.
   if ( main->route() == nullptr ) main->routeIs( &route );
   main->prevRpfIs( record.prevRpf );
   main->rpfIs( record.rpf );
   main->rpfAttachedIs( record.rpfAttached );
   main->mbrIifIs( record.mbrIif );
   route.iifSwitchStateIs( record.iifSwitchState );
   route.iifSwitchPendingIs( record.iifSwitchPending );
   route.upJoinStateIs( record.upJoinState );
   main->upRptStateIs( record.upRptState );
   updateFrr( route, record );
}

void doUpdateIntf( SparseMode::Intf& intf, const Brane::Intf& record ) {
   intf.toBeDeletedIs( record.toBeDeleted );
   intf.forwardIs( record.forward );
   intf.fastForwardIs( record.fastForward );
   intf.allowRpInUseIs( record.allowRpInUse );
   intf.joinStateIs( record.joinState );
   intf.lastJoinReceivedIs( record.lastJoinReceived );
   intf.rptStateIs( record.rptState );
   intf.lastRptPruneReceivedIs( record.lastRptPruneReceived );
   intf.assertInfoIs( record.assertInfo );
   intf.lastAssertActionIs( record.lastAssertAction );
   intf.localReceiverIncludeIs( record.localReceiverInclude );
   intf.localReceiverExcludeIs( record.localReceiverExclude );
}

}
