// The protocol macros of an interface record, by their rules in detail/.

#include "model/ForwardingDesired.h"
#include "model/detail/RouteRules.h"

namespace Routing::Pim::SparseMode {

namespace {

Detail::IntfRules<Detail::Plain> rules( const Intf& intf ) {
   return { {}, intf };
}
Detail::SgIntfRules<Detail::Plain> sgRules( const Intf& intf ) {
   return { {}, intf };
}

}

#define PIMSM_MACRO( Result, name, rules ) \
   Result Intf::name() const {             \
      return rules( *this ).name();        \
   }
#define PIMSM_RECEIVED_MACRO( name, rules )                \
   bool Intf::name( const AssertMetric& received ) const { \
      return rules( *this ).name( received );              \
   }

const Routing::Pim::Intf* Intf::pimIntf() const {
   return rules( *this ).pimIntf();
}
const Intf* Intf::wcIntf() const {
   return sgRules( *this ).wcIntf();
}

PIMSM_MACRO( Vantu::IpGenAddr, myIp, rules )
PIMSM_MACRO( bool, iAmDr, rules )
PIMSM_MACRO( bool, joinsWc, rules )
PIMSM_MACRO( bool, joinsSg, rules )
PIMSM_MACRO( bool, joinsWcRp, rules )
PIMSM_MACRO( bool, prunesSgRpt, rules )

PIMSM_MACRO( bool, includeWc, rules )
PIMSM_MACRO( bool, includeSg, rules )
PIMSM_MACRO( bool, excludeSg, sgRules )
PIMSM_MACRO( bool, includeSgFastFailover, sgRules )
PIMSM_MACRO( bool, immediateOlistWcRp, rules )
PIMSM_MACRO( bool, immediateOlistWc, rules )
PIMSM_MACRO( bool, immediateOlistSg, rules )
PIMSM_MACRO( bool, inheritedOlistSgRpt, sgRules )
PIMSM_MACRO( bool, inheritedOlistSg, sgRules )

PIMSM_MACRO( bool, inOlist, sgRules )
PIMSM_MACRO( bool, forwardDesired, sgRules )
PIMSM_MACRO( bool, fastForwardDesired, sgRules )

PIMSM_MACRO( bool, couldAssertWc, rules )
PIMSM_MACRO( bool, couldAssertSg, sgRules )
PIMSM_MACRO( bool, assertTrackingDesiredWc, rules )
PIMSM_MACRO( bool, assertTrackingDesiredSg, sgRules )
PIMSM_MACRO( bool, lostAssertWc, rules )
PIMSM_MACRO( bool, lostAssertSg, rules )
PIMSM_MACRO( bool, lostAssertSgRpt, sgRules )
PIMSM_MACRO( AssertMetric, sptAssertMetric, rules )
PIMSM_MACRO( AssertMetric, rptAssertMetric, rules )
PIMSM_MACRO( AssertMetric, myAssertMetricWc, rules )
PIMSM_MACRO( AssertMetric, myAssertMetricSg, sgRules )

#undef PIMSM_MACRO
PIMSM_RECEIVED_MACRO( isPreferredAssertWc, rules )
PIMSM_RECEIVED_MACRO( isPreferredAssertSg, rules )
PIMSM_RECEIVED_MACRO( isAcceptableAssertWc, rules )
PIMSM_RECEIVED_MACRO( isAcceptableAssertSg, sgRules )
PIMSM_RECEIVED_MACRO( isInferiorAssertWc, rules )
PIMSM_RECEIVED_MACRO( isInferiorAssertSg, sgRules )

ForwardingDesired forwardingDesired( const Intf& intf, const Route* shared ) {
   const Detail::SgIntfRules<Detail::Plain> rules( {}, intf, shared );
   return { rules.forwardDesired(), rules.fastForwardDesired() };
}

}
