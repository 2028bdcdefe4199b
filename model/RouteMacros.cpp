// The protocol macros of a route, by their rules in detail/.

#include "model/detail/RouteRules.h"

namespace Routing::Pim::SparseMode {

#define PIMSM_MACRO( name ) PIMSM_ROUTE_ANSWER( bool, name )
#define PIMSM_ROUTE_ANSWER( Result, name )                          \
   Result Route::name() const {                                     \
      return Detail::RouteRules<Detail::Plain>( {}, *this ).name(); \
   }

PIMSM_MACRO( nullImmediateOlistWcRp )
PIMSM_MACRO( nullImmediateOlistWc )
PIMSM_MACRO( nullImmediateOlistSg )
PIMSM_MACRO( nullInheritedOlistSg )
PIMSM_MACRO( nullInheritedOlistSgRpt )
PIMSM_MACRO( joinDesiredWcRp )
PIMSM_MACRO( joinDesiredWc )
PIMSM_MACRO( rptJoinDesiredWc )
PIMSM_MACRO( joinDesiredSg )
PIMSM_MACRO( pruneDesiredSgRpt )
PIMSM_MACRO( comesBySharedTree )
PIMSM_ROUTE_ANSWER( Vantu::IntfId, incomingIntf )
PIMSM_ROUTE_ANSWER( Routing::Pim::Rpf, incomingRpf )
PIMSM_MACRO( incomingAttached )

#undef PIMSM_MACRO

bool Route::joinDesiredSgFastFailover(
   const IntfCollection& fastFailoverIntfs ) const {
   return Detail::RouteRules<Detail::Plain>( {}, *this )
      .joinDesiredSgFastFailover( fastFailoverIntfs );
}

}
