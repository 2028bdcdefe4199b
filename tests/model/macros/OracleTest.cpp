// Compares every macro with the oracle over a random walk through the states of a
// VRF, and shows as well that a call allocates nothing.
#include <gtest/gtest.h>

#include <variant>

#include "tests/model/macros/Allocations.h"
#include "tests/model/macros/Model.h"
#include "tests/model/macros/Oracle.h"
#include "tests/model/macros/Walk.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Value = std::variant<bool, uint32_t, Metric>;

Value plain( bool value ) {
   return value;
}
Value plain( const Vantu::IpGenAddr& address ) {
   return numberOf( address );
}
Value plain( const AssertMetric& metric ) {
   return plainMetric( metric );
}

struct Macro {
   const char* name;
   bool wc;  // asked of a (*,G) record or route
   Value ( *model )( const Model& );
   Value ( *oracle )( const Oracle& );
};

// clang-format off
#define MACRO( wc, from, macro, args, expected ) \
   Macro{ #macro, wc, \
          []( const Model& m ) { return plain( m.from().macro args ); }, \
          []( const Oracle& o ) -> Value { return expected; } },
#define WC( macro ) MACRO( true, wcIntf, macro, (), ( o.macro() & 1 ) != 0 )
#define SG( macro ) MACRO( false, sgIntf, macro, (), ( o.macro() & 1 ) != 0 )
#define WC_METRIC( macro ) MACRO( true, wcIntf, macro, (), o.macro( 0 ) )
#define SG_METRIC( macro ) MACRO( false, sgIntf, macro, (), o.macro( 0 ) )
#define WC_RECEIVED( macro ) \
   MACRO( true, wcIntf, macro, ( m.received() ), ( o.macro() & 1 ) != 0 )
#define SG_RECEIVED( macro ) \
   MACRO( false, sgIntf, macro, ( m.received() ), ( o.macro() & 1 ) != 0 )
#define WC_ROUTE( macro ) MACRO( true, wc, macro, (), o.macro() )
#define SG_ROUTE( macro ) MACRO( false, sg, macro, (), o.macro() )

const Macro kMacros[] = {
   MACRO( true, wcIntf, assertWinner, (), o.wcWinner( 0 ).address )
   MACRO( false, sgIntf, assertWinner, (), o.sgWinner( 0 ).address )
   SG_METRIC( myIp ) SG( iAmDr )
   WC( joinsWc ) SG( joinsSg ) WC( joinsWcRp ) SG( joinsWcRp ) SG( prunesSgRpt )
   WC( lostAssertWc ) SG( lostAssertSg ) SG( lostAssertSgRpt )
   WC( includeWc ) SG( includeSg ) SG( excludeSg ) SG( includeSgFastFailover )
   WC( immediateOlistWcRp ) WC( immediateOlistWc ) SG( immediateOlistSg )
   SG( inheritedOlistSgRpt ) SG( inheritedOlistSg )
   WC( couldAssertWc ) SG( couldAssertSg )
   WC( assertTrackingDesiredWc ) SG( assertTrackingDesiredSg )
   WC_METRIC( rptAssertMetric ) SG_METRIC( sptAssertMetric )
   WC_METRIC( myAssertMetricWc ) SG_METRIC( myAssertMetricSg )
   WC_RECEIVED( isPreferredAssertWc ) SG_RECEIVED( isPreferredAssertSg )
   WC_RECEIVED( isAcceptableAssertWc ) SG_RECEIVED( isAcceptableAssertSg )
   WC_RECEIVED( isInferiorAssertWc ) SG_RECEIVED( isInferiorAssertSg )
   WC_ROUTE( nullImmediateOlistWcRp ) WC_ROUTE( nullImmediateOlistWc )
   SG_ROUTE( nullImmediateOlistSg )
   SG_ROUTE( nullInheritedOlistSgRpt ) SG_ROUTE( nullInheritedOlistSg )
   WC_ROUTE( joinDesiredWcRp ) WC_ROUTE( joinDesiredWc ) WC_ROUTE( rptJoinDesiredWc )
   SG_ROUTE( joinDesiredSg ) SG_ROUTE( pruneDesiredSgRpt )
   MACRO( false, sg, joinDesiredSgFastFailover, ( m.failover() ),
          o.joinDesiredSgFastFailover() ) };
// clang-format on

// Agreement everywhere includes that a macro heeds nothing but what the oracle does.
TEST( Macros, AgreeWithTheOracleAndDepartFromTheRfcWhereItSays ) {
   Walk walk;
   const unsigned seed = walk.seed();
   Model model;
   // Departures without which some macro was seen to answer otherwise.
   Departures decided;
   for ( int step = 0; step < 200000 && !HasFailure(); ++step ) {
      const World& world = walk.step();
      model = world;
      const bool hasWc = world.wcRoute && world.ports[0].wc.record;
      const unsigned departure = unsigned( step ) % kDepartureCount;
      Departures without = Departures().set().reset( departure );
      for ( const Macro& macro : kMacros ) {
         if ( macro.wc && !hasWc ) continue;
         const uint64_t before = allocations;
         const Value is = macro.model( model );
         EXPECT_EQ( allocations, before ) << macro.name << " allocates";
         EXPECT_TRUE( is == macro.oracle( Oracle( world ) ) )
            << macro.name << ", step " << step << " of seed " << seed;
         if ( !decided[departure] &&
              is != macro.oracle( Oracle( world, without ) ) )
            decided.set( departure );
      }
   }
   for ( int departure = 0; departure < kDepartureCount; ++departure )
      EXPECT_TRUE( decided[departure] ) << "departure " << departure;
}

}
}
