#include "tests/model/macros/MacroTable.h"

#include <numeric>

namespace Routing::Pim::SparseMode::Test {
namespace {

enum Slot : uint32_t {
   kWcState = 1 << 0,
   kWcJoin = 1 << 1,
   kWcInclude = 1 << 2,
   kWcWinner = 1 << 3,
   kWcIdle = 1 << 4,  // what a (*,G) record or route carries in vain
   kSgJoin = 1 << 5,
   kRpt = 1 << 6,
   kSgInclude = 1 << 7,
   kSgExclude = 1 << 8,
   kSgWinner = 1 << 9,
   kPim = 1 << 10,
   kWcRpf = 1 << 11,
   kSgRpf = 1 << 12,
   kFrr = 1 << 13,
   kSpt = 1 << 14,
   kUpJoined = 1 << 15,
   kKat = 1 << 16,
   kOthers = 1 << 17,  // ports 1 and 2
   kReceivedSlot = 1 << 18,
   kFailover = 1 << 19,
   kAttached = 1 << 20,
   kBorder = 1 << 21,
   kWcBorder = 1 << 22,
   kWcAttached = 1 << 23,
   kPort0 = kWcState | kWcJoin | kWcInclude | kWcWinner | kSgJoin | kRpt |
            kSgInclude | kSgExclude | kSgWinner | kPim,
};

std::vector<int> upTo( int count ) {
   std::vector<int> values( count );
   std::iota( values.begin(), values.end(), 0 );
   return values;
}

Axes operator+( Axes left, const Axes& right ) {
   left.insert( left.end(), right.begin(), right.end() );
   return left;
}

// Keeps only the representatives of each axis.
Axes thin( Axes axes ) {
   for ( Axis& axis : axes )
      if ( !axis.few.empty() ) {
         axis.values = axis.few;
         axis.thinned = true;
      }
   return axes;
}

void wcStateIs( World& world, int value ) {
   world.wcRoute = WcState( value ) != WcState::noRoute;
   world.ports[0].wc.record = WcState( value ) == WcState::record;
}

// The (*,G) side of port 0 as one axis: without route, without record, or a record
// with every join, inclusion and winner.
void wcSideIs( World& world, int value ) {
   const int state = value < 2 ? value + 1 : 0;
   const int index = value < 2 ? 0 : value - 2;
   wcStateIs( world, state );
   Facts& wc = world.ports[0].wc;
   wc.join = Join( index % 3 );
   wc.include = index / 3 % 2 != 0;
   wc.winner = Winner( index / 6 );
}

void wcIdleIs( World& world, int value ) {
   Facts& record = world.ports[0].wc;
   record.exclude = ( value & 1 ) != 0;
   record.rpt = Rpt( ( value >> 1 & 3 ) );
   world.wc.spt = ( value & 8 ) != 0;
   world.wc.upJoined = ( value & 16 ) != 0;
   world.wc.katExpired = ( value & 32 ) != 0;
   world.wc.frr = Upstream( value >> 6 & 3 );
}

// Ports as routes hold them. The first eight stand for all.
constexpr int kPortClasses = 19;

Port portClass( int index ) {
   const Facts idle{ true };
   auto joined = []( Winner winner = Winner::none, Rpt rpt = Rpt::none ) {
      return Facts{ true, Join::joined, rpt, false, false, winner };
   };
   auto member = []( Winner winner = Winner::none, bool exclude = false ) {
      return Facts{ true, Join::none, Rpt::none, true, exclude, winner };
   };
   const Facts pruned{ true, Join::none, Rpt::pruned };
   const Facts excluding{ true, Join::none, Rpt::none, false, true };
   const Facts lost{ true, Join::none, Rpt::none, false, false, Winner::better };
   const Facts pending{ true, Join::prunePending };
   const Facts pruneTemp{ true, Join::none, Rpt::pruneTemp };
   switch ( index ) {
      case 0:
         return {};
      case 1:
         return { joined(), {} };
      case 2:
         return { {}, joined() };
      case 3:
         return { joined(), idle };
      case 4:
         return { joined(), pruned };
      case 5:
         return { joined( Winner::better ), joined() };
      case 6:
         return { joined(), lost };
      case 7:
         return { member(), excluding };
      case 8:
         return { member(), {} };
      case 9:
         return { member(), {}, Pim::notDr };
      case 10:
         return { member( Winner::me ), member(), Pim::notDr };
      case 11:
         return { {}, member( Winner::me ), Pim::notDr };
      case 12:
         return { {}, member( Winner::worse ) };
      case 13:
         return { joined( Winner::lower ), {} };
      case 14:
         return { member(), member( Winner::none, true ), Pim::none };
      case 15:
         return { {}, joined( Winner::higher ) };
      case 16:
         return { pending, pruneTemp };
      case 17:
         return { idle, member(), Pim::namelessNotDr };
      default:
         return { idle, joined( Winner::better ) };
   }
}

template <int i>
void portIs( World& world, int value ) {
   world.ports[i] = portClass( value );
}

#define AXIS( name, slots, set, values, ... )                     \
   const Axes name {                                              \
      {                                                           \
#name, slots, []( World & w, int v ) { set; }, values, { \
            __VA_ARGS__                                           \
         }                                                        \
      }                                                           \
   }
AXIS( wcState, kWcState, wcStateIs( w, v ), upTo( 3 ) );
AXIS( wcJoin, kWcJoin, w.ports[0].wc.join = Join( v ), upTo( 3 ), 0, 1 );
AXIS( wcInclude, kWcInclude, w.ports[0].wc.include = v, upTo( 2 ) );
AXIS( wcWinner, kWcWinner, w.ports[0].wc.winner = Winner( v ), upTo( 8 ), 0, 1, 2 );
AXIS( wcSide, kWcState | kWcJoin | kWcInclude | kWcWinner, wcSideIs( w, v ),
      upTo( 50 ), 0, 1, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15, 17, 18 );
AXIS( wcIdle, kWcIdle, wcIdleIs( w, v ), upTo( 256 ) );
AXIS( sgJoin, kSgJoin, w.ports[0].sg.join = Join( v ), upTo( 3 ), 0, 1 );
AXIS( rpt, kRpt, w.ports[0].sg.rpt = Rpt( v ), upTo( 5 ), 0, 1 );
AXIS( sgInclude, kSgInclude, w.ports[0].sg.include = v, upTo( 2 ) );
AXIS( sgExclude, kSgExclude, w.ports[0].sg.exclude = v, upTo( 2 ) );
AXIS( sgWinner, kSgWinner, w.ports[0].sg.winner = Winner( v ), upTo( 8 ), 0, 1, 2,
      3, 4 );
AXIS( pim, kPim, w.ports[0].pim = Pim( v ), upTo( 5 ), 0, 1, 2 );
AXIS( wcRpf, kWcRpf, w.wc.rpf = Upstream( v ), upTo( 3 ), 0, 1 );
AXIS( sgRpf, kSgRpf, w.sg.rpf = Upstream( v ), upTo( 3 ), 0, 1 );
AXIS( wcRpfAny, kWcRpf, w.wc.rpf = Upstream( v ), upTo( 8 ), 0, 1, 3 );
AXIS( sgRpfAny, kSgRpf, w.sg.rpf = Upstream( v ), upTo( 8 ), 0, 1, 2 );
AXIS( frr, kFrr, w.sg.frr = Upstream( v ), upTo( 3 ), 0, 1 );
AXIS( frrAny, kFrr, w.sg.frr = Upstream( v ), upTo( 8 ), 0, 1, 3 );
AXIS( spt, kSpt, w.sg.spt = v, upTo( 2 ) );
AXIS( upJoined, kUpJoined, w.sg.upJoined = v, upTo( 2 ) );
AXIS( attached, kAttached, w.sg.attached = v, upTo( 2 ) );
AXIS( wcAttached, kWcAttached, w.wc.attached = v, upTo( 2 ) );
AXIS( border, kBorder, w.sg.border = v, upTo( 2 ) );
AXIS( wcBorder, kWcBorder, w.wc.border = v, upTo( 2 ) );
AXIS( kat, kKat, w.sg.katExpired = v, upTo( 2 ) );
AXIS( received, kReceivedSlot, w.received = uint8_t( v ), upTo( kReceived ) );
AXIS( failover, kFailover, w.failover = uint8_t( v ), upTo( 16 ) );
AXIS( port0, kPort0, portIs<0>( w, v ), upTo( kPortClasses ), 0, 1, 2, 3, 4, 5, 6,
      7 );
AXIS( port1, kOthers, portIs<1>( w, v ), upTo( kPortClasses ), 0, 1, 2, 3, 4, 5, 6,
      7 );
AXIS( port2, kOthers, portIs<2>( w, v ), upTo( kPortClasses ), 0, 2, 3 );
// A port with (*,G), with (S,G) outgoing state, or neither.
AXIS( elsewhere, kOthers, portIs<1>( w, v ), upTo( 3 ) );
#undef AXIS

// The facts that each macro depends on; the slowest to change comes first.
const Axes lostWc = pim + wcRpfAny + wcWinner;
const Axes lostSg = pim + sgRpfAny + upJoined + sgWinner;
const Axes lostSgRpt = wcState + pim + wcRpfAny + sgRpfAny + spt + sgWinner;
const Axes olistWc = lostWc + wcJoin + wcInclude;
const Axes olistSg = lostSg + sgJoin + sgInclude;
const Axes ownRpt = pim + wcRpf + rpt + sgExclude + sgRpf + spt + sgWinner;
const Axes own = ownRpt + upJoined + sgJoin + sgInclude;
const Axes inheritedRpt = wcSide + ownRpt;
const Axes inherited = wcSide + own;
const Axes tree = wcState + spt + attached;
const Axes path = wcRpfAny + sgRpfAny + border;
const Axes tracking = elsewhere + wcSide + pim + wcRpf + rpt + sgExclude + sgRpf +
                      spt + sgWinner + upJoined + sgJoin + sgInclude + frr + kat;
const Axes ports = port0 + port1 + port2;
const Axes joinSg = ports + wcRpf + sgRpf + spt + upJoined + kat;

Value plain( bool value ) {
   return value;
}
Value plain( const Vantu::IpGenAddr& address ) {
   return numberOf( address );
}
// The set of the port.
Value plain( const Vantu::IntfId& intfId ) {
   for ( uint32_t i = 0; i != kPorts; ++i )
      if ( intfId == Model::portId( i ) ) return 1U << i;
   return 0U;
}
Value plain( const AssertMetric& metric ) {
   return plainMetric( metric );
}
Value plain( const Rpf& rpf ) {
   return plainMetric( { false, rpf.preference, rpf.metric, rpf.neighbor } );
}

#define MACRO( wc, from, macro, args, expected, ... )                   \
   Macro {                                                              \
#macro,                                                               \
           wc,                                                                   \
           []( [[maybe_unused]] const Model& m ) {                               \
              return plain( m.from().macro args );                               \
           },                                                                    \
           []( [[maybe_unused]] const Oracle& o ) -> Value { return expected; },   \
           __VA_ARGS__ \
   }
#define SET( wc, from, macro, args, axes ) \
   MACRO( wc, from, macro, args, ( o.macro() & 1 ) != 0, axes )
#define WC( macro, axes ) SET( true, wcIntf, macro, (), axes )
#define SG( macro, axes ) SET( false, sgIntf, macro, (), axes )
#define WC_METRIC( macro, axes ) \
   MACRO( true, wcIntf, macro, (), o.macro( 0 ), axes )
#define SG_METRIC( macro, axes ) \
   MACRO( false, sgIntf, macro, (), o.macro( 0 ), axes )
#define WC_RECEIVED( macro, axes ) \
   SET( true, wcIntf, macro, ( m.received() ), axes + received )
#define SG_RECEIVED( macro, axes ) \
   SET( false, sgIntf, macro, ( m.received() ), axes + received )
#define WC_ROUTE( macro, axes ) MACRO( true, wc, macro, (), o.macro(), axes )
#define SG_ROUTE( macro, axes ) MACRO( false, sg, macro, (), o.macro(), axes )

// clang-format off
const std::vector<Macro> kMacros = {
   MACRO( true,  wcIntf, assertWinner, (), o.wcWinner( 0 ).address, pim + wcWinner ),
   MACRO( false, sgIntf, assertWinner, (), o.sgWinner( 0 ).address, pim + sgWinner ),
   SG_METRIC( myIp, pim ),
   SG( iAmDr, pim ),
   WC( joinsWc, wcJoin ),
   SG( joinsSg, sgJoin ),
   WC( joinsWcRp, Axes() ),
   SG( joinsWcRp, Axes() ),
   SG( prunesSgRpt, rpt ),

   WC( lostAssertWc, lostWc ),
   SG( lostAssertSg, lostSg ),
   SG( lostAssertSgRpt, lostSgRpt ),
   WC( includeWc, lostWc + wcInclude ),
   SG( includeSg, lostSg + sgInclude ),
   SG( excludeSg, wcState + lostWc + sgExclude ),
   SG( includeSgFastFailover, wcState + wcInclude + sgInclude + sgExclude ),
   WC( immediateOlistWcRp, Axes() ),
   WC( immediateOlistWc, olistWc ),
   SG( immediateOlistSg, olistSg ),
   SG( inheritedOlistSgRpt, inheritedRpt ),
   SG( inheritedOlistSg, inherited ),

   MACRO( true, wcIntf, inOlist, (), ( o.immediateOlistWc() & 1 ) != 0, olistWc ),
   MACRO( false, sgIntf, inOlist, (), ( o.inOlistSg() & 1 ) != 0, inherited ),
   MACRO( true, wcIntf, forwardDesired, (), ( o.forwardWc() & 1 ) != 0, olistWc + wcBorder ),
   MACRO( false, sgIntf, forwardDesired, (), ( o.forwardSg() & 1 ) != 0,
          thin( wcSide ) + own + attached + border ),
   MACRO( false, sgIntf, fastForwardDesired, (), ( o.fastForwardSg() & 1 ) != 0,
          thin( wcSide ) + own + frr ),

   WC( couldAssertWc, olistWc ),
   SG( couldAssertSg, inherited ),
   WC( assertTrackingDesiredWc, port1 + olistWc ),
   SG( assertTrackingDesiredSg, tracking ),
   SG_METRIC( sptAssertMetric, pim + sgRpfAny + upJoined ),
   WC_METRIC( rptAssertMetric, pim + wcRpfAny ),
   WC_METRIC( myAssertMetricWc, olistWc ),
   SG_METRIC( myAssertMetricSg, inherited ),
   WC_RECEIVED( isPreferredAssertWc, pim + wcWinner ),
   SG_RECEIVED( isPreferredAssertSg, pim + sgWinner ),
   WC_RECEIVED( isAcceptableAssertWc, olistWc ),
   SG_RECEIVED( isAcceptableAssertSg, thin( wcSide ) + own ),
   WC_RECEIVED( isInferiorAssertWc, olistWc ),
   SG_RECEIVED( isInferiorAssertSg, thin( wcSide ) + own ),

   WC_ROUTE( nullImmediateOlistWcRp, ports ),
   WC_ROUTE( nullImmediateOlistWc, ports + wcRpfAny ),
   SG_ROUTE( nullImmediateOlistSg, ports + sgRpfAny + upJoined ),
   SG_ROUTE( nullInheritedOlistSgRpt, wcState + ports + wcRpfAny + sgRpfAny + spt ),
   SG_ROUTE( nullInheritedOlistSg, wcState + ports + wcRpf + sgRpf + spt + upJoined ),
   WC_ROUTE( joinDesiredWcRp, ports ),
   WC_ROUTE( joinDesiredWc, ports + wcRpfAny ),
   WC_ROUTE( rptJoinDesiredWc, ports + wcRpfAny ),
   SG_ROUTE( joinDesiredSg, wcState + joinSg ),
   SG_ROUTE( pruneDesiredSgRpt, wcState + ports + wcRpfAny + sgRpfAny + frrAny + spt ),
   MACRO( true, wc, comesBySharedTree, (), false, wcRpfAny ),
   SG_ROUTE( comesBySharedTree, tree + sgRpfAny ),
   MACRO( false, sg, incomingIntf, (), uint32_t( o.incomingSg() ), tree + path + wcBorder ),
   SG_ROUTE( incomingRpf, tree + wcRpfAny + sgRpfAny ),
   SG_ROUTE( incomingAttached, tree + wcRpfAny + sgRpfAny + wcAttached ),
   MACRO( false, sg, joinDesiredSgFastFailover, ( m.failover() ),
          o.joinDesiredSgFastFailover(), wcState + failover + ports ),
};
// clang-format on

}

std::ostream& operator<<( std::ostream& stream, const Value& value ) {
   if ( const Metric* metric = std::get_if<Metric>( &value ) )
      return stream << modelMetric( *metric );
   if ( const uint32_t* address = std::get_if<uint32_t>( &value ) )
      return stream << addressOf( *address );
   return stream << ( std::get<bool>( value ) ? "true" : "false" );
}

const std::vector<Macro>& macros() {
   return kMacros;
}

const Axes& allAxes() {
   static const Axes axes = wcState + wcJoin + wcInclude + wcWinner + wcIdle +
                            sgJoin + rpt + sgInclude + sgExclude + sgWinner + pim +
                            wcRpfAny + sgRpfAny + frrAny + spt + upJoined + kat +
                            received + failover + port1 + port2 + attached +
                            wcAttached + border + wcBorder;
   return axes;
}

World worldFor( const Macro& macro ) {
   World world;
   world.ports[0].wc.record = world.ports[0].sg.record = true;
   keepContract( macro, world );
   return world;
}

void keepContract( const Macro& macro, World& world ) {
   if ( macro.wc ) world.wcRoute = world.ports[0].wc.record = true;
}

}
