#include "engine/AssertMachine.h"

#include <algorithm>

#include "model/Route.h"

namespace Router {

using namespace Routing::Pim::SparseMode;

namespace {

bool isCancel( const AssertMetric& metric ) {
   const AssertMetric infinite;
   return metric.rptBit && metric.preference == infinite.preference &&
          metric.metric == infinite.metric;
}

}

AssertMachine::AssertMachine( Mox::Clock& clock, Mox::Ptr<Intf> intf,
                              const VrfConfig& config, Hooks hooks )
   : intf_( std::move( intf ) ),
     config_( config ),
     hooks_( std::move( hooks ) ),
     expiry_( clock, [this] { handleTime(); } ) {}

void AssertMachine::handleTime() {
   if ( intf_->assertInfo().assertState == iAmAssertWinner ) return win( 3 );
   forget( 5 );
   auto tell = hooks_.ended;
   tell();
}

bool AssertMachine::wildcard() const {
   return intf_->parentRoute()->wildCard();
}
bool AssertMachine::couldAssert() const {
   return wildcard() ? intf_->couldAssertWc() : intf_->couldAssertSg();
}
// The winner serves the link: not who has nothing to serve it with. The metric of a route
// that is to be joined at this turn's end is still infinite.
bool AssertMachine::couldWin() const {
   return couldAssert() && !isCancel( ownMetric() ) &&
          ( !hooks_.forwards || hooks_.forwards() );
}
// A lost (*,G) assert bars the source's joins from asserting, yet they are served:
// whoever asserts for the source ends that.
bool AssertMachine::trackingDesired() const {
   return wildcard() ? intf_->assertTrackingDesiredWc()
                     : intf_->assertTrackingDesiredSg() || intf_->joinsSg();
}
AssertMetric AssertMachine::ownMetric() const {
   return wildcard() ? intf_->myAssertMetricWc() : intf_->myAssertMetricSg();
}
bool AssertMachine::isPreferred( const AssertMetric& metric ) const {
   return wildcard() ? intf_->isPreferredAssertWc( metric )
                     : intf_->isPreferredAssertSg( metric );
}
bool AssertMachine::isAcceptable( const AssertMetric& metric ) const {
   return wildcard() ? intf_->isAcceptableAssertWc( metric )
                     : intf_->isAcceptableAssertSg( metric );
}
bool AssertMachine::isInferior( const AssertMetric& metric ) const {
   return wildcard() ? intf_->isInferiorAssertWc( metric )
                     : intf_->isInferiorAssertSg( metric );
}
bool AssertMachine::isIncoming() const {
   return intf_->parentRoute()->rpf().intfId == intf_->intfId();
}
bool AssertMachine::fromWinner( const AssertMetric& metric ) const {
   return metric.address == intf_->assertWinner();
}
bool AssertMachine::active() const {
   return intf_->assertInfo().assertState != assertNoInfo;
}

bool AssertMachine::receive( const AssertMetric& metric ) {
   if ( intf_->parentRoute() == nullptr ) return false;
   if ( wildcard() && !metric.rptBit ) return false;
   // An infinite metric compares without its sender.
   const AssertMetric compared = isCancel( metric ) ? AssertMetric() : metric;
   if ( active() ? isPreferred( compared ) : isAcceptable( compared ) )
      intf_->rxPreferredAssertInc( 1 );
   if ( isInferior( compared ) ) intf_->rxInferiorAssertInc( 1 );
   switch ( intf_->assertInfo().assertState ) {
      case assertNoInfo:
         return receiveInNoInfo( compared );
      case iAmAssertWinner:
         return receiveAsWinner( compared );
      case iAmAssertLoser:
         return receiveAsLoser( metric );
   }
   return false;
}

bool AssertMachine::receiveInNoInfo( const AssertMetric& metric ) {
   bool fromSharedTree = !wildcard() && metric.rptBit;
   if ( couldWin() && ( fromSharedTree || isInferior( metric ) ) ) {
      win( 1 );
      return true;
   }
   if ( fromSharedTree || !trackingDesired() || !isAcceptable( metric ) )
      return false;
   lose( metric, 6 );
   return true;
}

bool AssertMachine::receiveAsWinner( const AssertMetric& metric ) {
   if ( isPreferred( metric ) ) {
      lose( metric, 2 );
   } else if ( isInferior( metric ) ) {
      win( 3 );
   } else {
      return false;
   }
   return true;
}

bool AssertMachine::receiveAsLoser( const AssertMetric& metric ) {
   const bool cancel = isCancel( metric );
   if ( fromWinner( metric ) && ( cancel || isInferior( metric ) ) ) {
      forget( 5 );
      return true;
   }
   // An (S,G) loser ignores asserts of the shared tree.
   if ( cancel || ( metric.rptBit && !wildcard() ) ) return false;
   if ( !isPreferred( metric ) &&
        !( fromWinner( metric ) && isAcceptable( metric ) ) )
      return false;
   lose( metric, 2 );
   return true;
}

void AssertMachine::handleData() {
   if ( intf_->parentRoute() == nullptr || active() || !couldWin() ) return;
   win( 1 );
}

void AssertMachine::handleJoin() {
   if ( intf_->assertInfo().assertState == iAmAssertLoser ) forget( 5 );
}

void AssertMachine::handleNeighborLost( const Vantu::IpGenAddr& address ) {
   if ( intf_->assertInfo().assertState == iAmAssertLoser &&
        intf_->assertWinner() == address )
      forget( 5 );
}

void AssertMachine::review() {
   if ( intf_->parentRoute() == nullptr ) return;
   const AssertInfo& info = intf_->assertInfo();
   if ( info.assertState == iAmAssertWinner ) {
      if ( !couldAssert() ) return forget( 4 );
      if ( info.assertWinnerMetric != ownMetric() ) win( 3 );
   } else if ( info.assertState == iAmAssertLoser ) {
      bool left = incoming_ && !isIncoming();
      if ( left || !trackingDesired() || ownMetric() < info.assertWinnerMetric )
         forget( 5 );
   }
}

void AssertMachine::adopt( double until ) {
   if ( intf_->assertInfo().assertState == iAmAssertWinner ) {
      if ( !hooks_.send ) return;
      const double now = expiry_.clock()->now();
      return expiry_.startUntil( until != 0.0 ? std::max( until, now )
                                              : now + config_.assertTime -
                                                   assertOverrideInterval );
   }
   incoming_ = isIncoming();
   if ( until != 0.0 ) {
      expiry_.resume( until );
   } else {
      expiry_.start( config_.assertTime );
   }
}

void AssertMachine::end() {
   forget( 5 );
}

void AssertMachine::win( uint8_t action ) {
   const AssertMetric metric = ownMetric();
   expiry_.cancel();
   if ( hooks_.send ) expiry_.start( config_.assertTime - assertOverrideInterval );
   set( { iAmAssertWinner, metric }, action );
   send( metric );
}

// However many asserts come: RFC 7761, 4.6 leaves the rate to the router.
void AssertMachine::send( const AssertMetric& metric ) {
   const double now = expiry_.clock()->now();
   if ( !hooks_.send || now < lastSent_ + leastInterval ) return;
   lastSent_ = now;
   hooks_.send( metric );
}

void AssertMachine::lose( const AssertMetric& metric, uint8_t action ) {
   incoming_ = isIncoming();
   expiry_.start( config_.assertTime );
   set( { iAmAssertLoser, metric }, action );
}

void AssertMachine::forget( uint8_t action ) {
   expiry_.cancel();
   set( {}, action );
   constexpr uint8_t kCancel = 4;
   if ( action == kCancel && hooks_.send ) hooks_.send( AssertMetric() );
}

void AssertMachine::set( const AssertInfo& info, uint8_t action ) {
   intf_->lastAssertActionIs( action );
   const AssertInfo before = intf_->assertInfo();
   intf_->assertInfoIs( info );
   hooks_.changed( before, info );
}

}
