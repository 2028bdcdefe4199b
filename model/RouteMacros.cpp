// The protocol macros of a route, asked plainly; their rules are in detail/.

#include "model/detail/RouteRules.h"

namespace Routing::Pim::SparseMode {

#define PIMSM_MACRO( name )                                         \
   bool Route::name() const {                                       \
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

bool Route::joinDesiredSgFastFailover(
   const IntfCollection& fastFailoverIntfs ) const {
   return Detail::RouteRules<Detail::Plain>( {}, *this )
      .joinDesiredSgFastFailover( fastFailoverIntfs );
}

}
