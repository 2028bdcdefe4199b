// Compares every macro with the oracle in random states of everything, and shows that a call
// allocates nothing.
#include <gtest/gtest.h>

#include <variant>

#include "tests/model/macros/Allocations.h"
#include "tests/model/macros/Model.h"
#include "tests/model/macros/Oracle.h"
#include "tests/support/Seed.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Value = std::variant<bool, uint32_t, Metric>;

Value is( bool value ) {
   return value;
}
Value is( const Vantu::IpGenAddr& address ) {
   return numberOf( address );
}
Value is( const AssertMetric& metric ) {
   return plainMetric( metric );
}
// The path as the metric that it gives.
Value is( const Rpf& rpf ) {
   return plainMetric( { false, rpf.preference, rpf.metric, rpf.neighbor } );
}
// The set of the port.
Value is( const Vantu::IntfId& intfId ) {
   for ( int i = 0; i != kPorts; ++i )
      if ( intfId == Model::id( i ) ) return 1U << i;
   return 0U;
}

Value shouldBe( bool value ) {
   return value;
}
Value shouldBe( const Metric& metric ) {
   return metric;
}
// A set of interfaces has port 0, or not.
Value shouldBe( Oracle::Set set ) {
   return ( set & 1 ) != 0;
}
Value shouldBe( const Value& value ) {
   return value;
}

struct Macro {
   const char* name;
   Value ( *model )( const Model& );
   Value ( *oracle )( const Oracle& );
};

#define MACRO( subject, name, arguments, expected )                           \
   {                                                                          \
#name, []( const Model& m ) { return is( m.subject->name arguments ); },    \
     []( [[maybe_unused]] const Oracle& o ) { return shouldBe( expected ); } \
   }
#define PLAIN( subject, name ) MACRO( subject, name, (), o.name() )
#define METRIC( subject, name ) MACRO( subject, name, (), o.name( 0 ) )
#define RECEIVED( subject, name ) MACRO( subject, name, ( m.received ), o.name() )

// clang-format off
// Of the (*,G) route and its record.
const Macro kWcMacros[] = {
   MACRO( wcIntf(), assertWinner, (), Value( o.wcWinner( 0 ).address ) ),
   MACRO( wcIntf(), inOlist, (), o.immediateOlistWc() ),
   MACRO( wcIntf(), forwardDesired, (), o.forwardWc() ),
   PLAIN( wcIntf(), joinsWc ), PLAIN( wcIntf(), joinsWcRp ),
   PLAIN( wcIntf(), lostAssertWc ), PLAIN( wcIntf(), includeWc ),
   PLAIN( wcIntf(), immediateOlistWcRp ), PLAIN( wcIntf(), immediateOlistWc ),
   PLAIN( wcIntf(), couldAssertWc ), PLAIN( wcIntf(), assertTrackingDesiredWc ),
   METRIC( wcIntf(), rptAssertMetric ), METRIC( wcIntf(), myAssertMetricWc ),
   RECEIVED( wcIntf(), isPreferredAssertWc ), RECEIVED( wcIntf(), isAcceptableAssertWc ),
   RECEIVED( wcIntf(), isInferiorAssertWc ),
   PLAIN( wc, nullImmediateOlistWcRp ), PLAIN( wc, nullImmediateOlistWc ),
   PLAIN( wc, joinDesiredWcRp ), PLAIN( wc, joinDesiredWc ), PLAIN( wc, rptJoinDesiredWc ),
   MACRO( wc, comesBySharedTree, (), false ),
};
// Of the (S,G) route and its record.
const Macro kSgMacros[] = {
   MACRO( sgIntf(), assertWinner, (), Value( o.sgWinner( 0 ).address ) ),
   MACRO( sgIntf(), myIp, (), Value( o.myIp( 0 ) ) ),
   MACRO( sgIntf(), inOlist, (), o.inOlistSg() ),
   MACRO( sgIntf(), forwardDesired, (), o.forwardSg() ),
   MACRO( sgIntf(), fastForwardDesired, (), o.fastForwardSg() ),
   PLAIN( sgIntf(), iAmDr ), PLAIN( sgIntf(), joinsSg ), PLAIN( sgIntf(), joinsWcRp ),
   PLAIN( sgIntf(), prunesSgRpt ), PLAIN( sgIntf(), lostAssertSg ),
   PLAIN( sgIntf(), lostAssertSgRpt ), PLAIN( sgIntf(), includeSg ),
   PLAIN( sgIntf(), excludeSg ), PLAIN( sgIntf(), includeSgFastFailover ),
   PLAIN( sgIntf(), immediateOlistSg ), PLAIN( sgIntf(), inheritedOlistSgRpt ),
   PLAIN( sgIntf(), inheritedOlistSg ), PLAIN( sgIntf(), couldAssertSg ),
   PLAIN( sgIntf(), assertTrackingDesiredSg ),
   METRIC( sgIntf(), sptAssertMetric ), METRIC( sgIntf(), myAssertMetricSg ),
   RECEIVED( sgIntf(), isPreferredAssertSg ), RECEIVED( sgIntf(), isAcceptableAssertSg ),
   RECEIVED( sgIntf(), isInferiorAssertSg ),
   PLAIN( sg, nullImmediateOlistSg ), PLAIN( sg, nullInheritedOlistSgRpt ),
   PLAIN( sg, nullInheritedOlistSg ), PLAIN( sg, joinDesiredSg ), PLAIN( sg, pruneDesiredSgRpt ),
   PLAIN( sg, comesBySharedTree ), PLAIN( sg, incomingRpf ), PLAIN( sg, incomingAttached ),
   MACRO( sg, incomingIntf, (), Value( o.incomingSg() ) ),
   MACRO( sg, joinDesiredSgFastFailover, ( *m.failover ), o.joinDesiredSgFastFailover() ),
};
// clang-format on

// Visits each macro that has a subject here.
template <class Visit>
void eachMacro( const Model& model, Visit visit ) {
   for ( const Macro& macro : kSgMacros ) visit( macro );
   if ( model.wcIntf() == nullptr ) return;
   for ( const Macro& macro : kWcMacros ) visit( macro );
}

TEST( Macros, AnswerAsTheOracleDoesAnywhere ) {
   const unsigned seed = Mox::Test::seedOf();
   std::mt19937 random( seed );
   for ( int i = 0; i != Mox::Test::stepsOf( 50000 ) && !HasFailure(); ++i ) {
      const World world = anyWorld( random );
      const Model model( world );
      const Oracle oracle( world );
      eachMacro( model, [&]( const Macro& macro ) {
         const uint64_t before = allocations;
         const Value value = macro.model( model );
         EXPECT_EQ( allocations, before ) << macro.name << " allocates";
         EXPECT_TRUE( value == macro.oracle( oracle ) )
            << macro.name << ", seed " << seed << ", world " << i;
      } );
   }
}

}
}
