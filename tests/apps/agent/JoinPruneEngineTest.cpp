#include "apps/agent/engine/JoinPruneEngine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>

#include "platform/loop/TestClock.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using Routing::Pim::RouteKey;
using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

constexpr const char* kRp = "198.51.100.1";
constexpr const char* kG = "233.252.0.1";
constexpr const char* kG2 = "233.252.0.2";
constexpr const char* kS = "192.0.2.7";
constexpr const char* kS2 = "192.0.2.8";

// A join/prune message in its own words: entries belong to the last group().
class MessageBuilder {
 public:
   explicit MessageBuilder( uint16_t holdtime = 210 ) {
      message_.holdtime = holdtime;
   }
   MessageBuilder& group( const char* text, unsigned maskLength = 0 ) {
      JoinPruneGroup& added = message_.groups.emplace_back();
      added.address = addr( text );
      added.maskLength = lengthOr( maskLength, added.address );
      return *this;
   }
   MessageBuilder& join( const char* source, const char* flags = "S",
                         unsigned maskLength = 0 ) {
      last().joins.push_back( entry( source, flags, maskLength ) );
      return *this;
   }
   MessageBuilder& prune( const char* source, const char* flags = "S",
                          unsigned maskLength = 0 ) {
      last().prunes.push_back( entry( source, flags, maskLength ) );
      return *this;
   }
   operator const PimJoinPrune&() const { return message_; }

 private:
   static uint8_t lengthOr( unsigned length, const Vantu::IpGenAddr& address ) {
      return static_cast<uint8_t>(
         length != 0 ? length : Vantu::addressBits( address.family() ) );
   }
   static EncodedSource entry( const char* source, Mox::StringView flags,
                               unsigned maskLength ) {
      EncodedSource out;
      out.address = addr( source );
      out.maskLength = lengthOr( maskLength, out.address );
      out.sparse = flags.find( 'S' ) != Mox::StringView::npos;
      out.wildcard = flags.find( 'W' ) != Mox::StringView::npos;
      out.rpt = flags.find( 'R' ) != Mox::StringView::npos;
      return out;
   }
   JoinPruneGroup& last() { return message_.groups.back(); }

   PimJoinPrune message_;
};

MessageBuilder message( uint16_t holdtime = 210 ) {
   return MessageBuilder( holdtime );
}

// The router: eth0 upstream with the way to everything, eth1 and eth2 downstream;
// one RP, for 233.0.0.0/8 only.
VrfConfig routerConfig() {
   VrfConfig config;
   for ( const char* name : { "eth0", "eth1", "eth2" } ) {
      InterfaceConfig& intf = config.interfaces.emplace_back();
      intf.name = intfId( name );
   }
   config.interfaces[1].addresses.push_back(
      { addr( "203.0.113.1" ), Vantu::IpGenPrefix( "203.0.113.0/24" ) } );
   RpfRouteConfig& route = config.rpfRoutes.emplace_back();
   route.prefix = Vantu::IpGenPrefix( "0.0.0.0/0" );
   route.interface = intfId( "eth0" );
   route.neighbor = addr( "192.0.2.254" );
   route.preference = 110;
   route.metric = 20;
   config.rps.push_back( { addr( kRp ), { Vantu::IpGenPrefix( "233.0.0.0/8" ) } } );
   return config;
}

class JoinPrune : public testing::Test {
 protected:
   void receive( const char* intf, const PimJoinPrune& content ) {
      engine->receive( intfId( intf ), neighbors, content );
   }
   // More than one neighbour: prunes wait 3 s for others to override.
   void othersMayOverride() {
      PimHello hello;
      hello.holdtime = 0xffff;
      neighbors.receiveHello( addr( "203.0.113.2" ), hello );
      neighbors.receiveHello( addr( "203.0.113.3" ), hello );
   }
   void after( double seconds ) { clock.runUntil( clock.now() + seconds ); }

   // "(*, G) eth1 joined; (S, G) eth1 joined eth2 rptPruned", in order.
   std::string state() const {
      std::set<std::string> lines;
      for ( const Route& route : std::as_const( *model ).route() ) {
         std::set<std::string> intfs;
         for ( const Intf& intf : route.routeIntf() ) {
            intfs.insert( wordsOf( intf ) );
         }
         lines.insert(
            fmt::format( "{} {}", keyOf( route ), fmt::join( intfs, " " ) ) );
      }
      return fmt::format( "{}", fmt::join( lines, "; " ) );
   }
   static std::string keyOf( const Route& route ) {
      const RouteKey& key = route.key();
      return fmt::format(
         "({}, {})", key.source.isUnspecified() ? "*" : valueToStrep( key.source ),
         valueToStrep( key.group ) );
   }
   static std::string wordsOf( const Intf& intf ) {
      std::string out( intf.intfId().name() );
      if ( intf.joinState() != Intf::noInfo ) {
         out += ' ' + std::string( stringValue( intf.joinState() ) );
      }
      if ( intf.rptState() != Intf::rptNoInfo ) {
         out += ' ' + std::string( stringValue( intf.rptState() ) );
      }
      return out;
   }
   const Route* route( const RouteKey& key ) const {
      return std::as_const( *model ).route( key );
   }
   // Every refusal counted, as "name count".
   std::string refusals() const {
      std::string out;
      for ( uint32_t reason = 0; reason < refusalCount; ++reason ) {
         uint64_t count = counters.refusedCount( static_cast<Refusal>( reason ) );
         if ( count == 0 ) continue;
         out += fmt::format( "{}{} {}", out.empty() ? "" : ", ",
                             stringValue( static_cast<Refusal>( reason ) ), count );
      }
      return out;
   }
   void newEngine() {
      engine = std::make_unique<JoinPruneEngine>( model, clock, routing, counters );
   }

   Mox::TestClock clock;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model =
      Routing::Pim::SparseMode::statusFactory( L3::VrfName( "default" ) );
   VrfConfig config = routerConfig();
   StaticRouting routing{ config };
   AgentCounters counters;
   Neighbors neighbors{ clock, addr( "203.0.113.1" ), 1 };
   std::unique_ptr<JoinPruneEngine> engine =
      std::make_unique<JoinPruneEngine>( model, clock, routing, counters );
};

TEST_F( JoinPrune, TellsTheClassesOfEntriesApart ) {
   receive( "eth1", message().group( kG ).join( kRp, "SWR" ).join( kS ) );
   receive( "eth2", message().group( kG ).prune( kS2, "SR" ) );
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 joined; "
              "(192.0.2.7, 233.252.0.1) eth1 joined; "
              "(192.0.2.8, 233.252.0.1) eth2 rptPruned" );
   EXPECT_EQ( refusals(), "" );
}

TEST_F( JoinPrune, DoesNotAskForTheSparseBit ) {
   receive( "eth1", message().group( kG ).join( kRp, "WR" ).join( kS, "" ) );
   receive( "eth2", message().group( kG ).prune( kS2, "R" ) );
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 joined; "
              "(192.0.2.7, 233.252.0.1) eth1 joined; "
              "(192.0.2.8, 233.252.0.1) eth2 rptPruned" );
}

TEST_F( JoinPrune, FillsInWhatTheRouteIs ) {
   receive( "eth1", message().group( kG ).join( kRp, "SWR" ).join( kS ) );
   const Route* wc = route( wcKey( kG ) );
   ASSERT_NE( wc, nullptr );
   EXPECT_TRUE( wc->initialized() );
   EXPECT_TRUE( wc->wildCard() && wc->rpTree() && !wc->spTree() );
   EXPECT_EQ( wc->creationTime(), clock.now() );
   EXPECT_EQ( wc->umh()->rp(), addr( kRp ) );
   EXPECT_EQ( wc->rpf(), rpfBy( "eth0" ) );
   EXPECT_FALSE( wc->rpfAttached() );
   EXPECT_TRUE( wc->routeIntf( intfId( "eth1" ) )->initialized() );
   const Route* sg = route( sgKey( kS, kG ) );
   ASSERT_NE( sg, nullptr );
   EXPECT_TRUE( sg->initialized() );
   EXPECT_TRUE( sg->spTree() && !sg->rpTree() && !sg->wildCard() );
   EXPECT_EQ( sg->rpf(), rpfBy( "eth0" ) );
}

TEST_F( JoinPrune, KnowsASourceOnItsOwnLink ) {
   receive( "eth2", message().group( kG ).join( "203.0.113.77" ) );
   const Route* sg = route( sgKey( "203.0.113.77", kG ) );
   ASSERT_NE( sg, nullptr );
   EXPECT_TRUE( sg->rpfAttached() );
   EXPECT_EQ( sg->rpf(), rpfBy( "eth1", "203.0.113.77", 0, 0 ) );
}

struct RefusalRow {
   const char* name;
   MessageBuilder message;
   const char* refusals;
   const char* state;
};

// Beside each refused entry stands a good one, which counts.
const RefusalRow kRefusalRows[] = {
   { "UnicastGroup", message().group( kS ).join( kS ).group( kG ).join( kS ),
     "notMulticast 1", "(192.0.2.7, 233.252.0.1) eth1 joined" },
   { "LinkLocalGroup",
     message().group( "224.0.0.251" ).join( kS ).group( kG ).join( kS ),
     "linkLocalGroup 1", "(192.0.2.7, 233.252.0.1) eth1 joined" },
   { "FirstGroupThatLeavesItsLink", message().group( "224.0.1.0" ).join( kS ), "",
     "(192.0.2.7, 224.0.1.0) eth1 joined" },
   { "GroupRange", message().group( kG, 24 ).join( kS ).group( kG2 ).join( kS ),
     "partialMask 1", "(192.0.2.7, 233.252.0.2) eth1 joined" },
   { "SourceRange", message().group( kG ).join( kS, "S", 31 ).join( kS2 ),
     "partialMask 1", "(192.0.2.8, 233.252.0.1) eth1 joined" },
   { "UnspecifiedSource", message().group( kG ).join( "0.0.0.0" ).join( kS ),
     "badSource 1", "(192.0.2.7, 233.252.0.1) eth1 joined" },
   { "MulticastSource", message().group( kG ).prune( kG2, "SR" ).join( kS ),
     "badSource 1", "(192.0.2.7, 233.252.0.1) eth1 joined" },
   { "WildcardWithoutRpt", message().group( kG ).join( kRp, "SW" ).join( kS ),
     "badFlags 1", "(192.0.2.7, 233.252.0.1) eth1 joined" },
   { "AnotherRp",
     message()
        .group( kG )
        .join( "198.51.100.2", "SWR" )
        .join( kS )
        .prune( kS2, "SR" ),
     "rpMismatch 1",
     "(192.0.2.7, 233.252.0.1) eth1 joined; "
     "(192.0.2.8, 233.252.0.1) eth1 rptPruned" },
   { "RangesAreCountedOneByOne",
     message().group( kG ).join( kS, "S", 8 ).prune( kS, "S", 8 ), "partialMask 2",
     "" },
};

class RefusedEntries : public JoinPrune,
                       public testing::WithParamInterface<RefusalRow> {};

TEST_P( RefusedEntries, AreCountedAndTheRestCounts ) {
   receive( "eth1", GetParam().message );
   EXPECT_EQ( refusals(), GetParam().refusals );
   EXPECT_EQ( state(), GetParam().state );
}

std::ostream& operator<<( std::ostream& out, const RefusalRow& row ) {
   return out << row.name;
}

INSTANTIATE_TEST_SUITE_P( Reasons, RefusedEntries,
                          testing::ValuesIn( kRefusalRows ),
                          []( const auto& row ) { return row.param.name; } );

// A refused (*,G) join does not touch what the sender prunes either.
TEST_F( JoinPrune, AJoinTowardsAnotherRpChangesNothing ) {
   receive( "eth1", message().group( kG ).prune( kS, "SR" ) );
   receive( "eth1", message().group( kG ).join( "198.51.100.2", "SWR" ) );
   EXPECT_EQ( state(), "(192.0.2.7, 233.252.0.1) eth1 rptPruned" );
}

TEST_F( JoinPrune, TakesTheMessagesRpWhereItHasNone ) {
   receive( "eth1", message().group( "239.1.1.1" ).join( "203.0.113.9", "SWR" ) );
   const Route* wc = route( wcKey( "239.1.1.1" ) );
   ASSERT_NE( wc, nullptr );
   EXPECT_EQ( wc->umh()->rp(), addr( "203.0.113.9" ) );
   EXPECT_TRUE( wc->rpfAttached() );
   EXPECT_EQ( refusals(), "" );
}

TEST_F( JoinPrune, APruneCountsWhateverRpItNames ) {
   receive( "eth1", message().group( kG ).join( kRp, "SWR" ) );
   receive( "eth1", message().group( kG ).prune( "198.51.100.2", "SWR" ) );
   EXPECT_EQ( state(), "" );
   EXPECT_EQ( refusals(), "" );
}

TEST_F( JoinPrune, APruneOfWhatIsNotThereLeavesNothing ) {
   receive( "eth1", message().group( kG ).prune( kRp, "SWR" ).prune( kS ) );
   receive( "eth1", message().group( kG ).join( kS, "SR" ) );
   EXPECT_EQ( state(), "" );
   receive( "eth1", message().group( kG ).join( kS ) );
   receive( "eth2", message().group( kG ).prune( kS ) );
   receive( "eth1", message().group( kG2 ).prune( kS ) );
   receive( "eth1", message().group( kG ).prune( kS2 ) );
   EXPECT_EQ( state(), "(192.0.2.7, 233.252.0.1) eth1 joined" );
}

TEST_F( JoinPrune, AWcJoinEndsPrunesOfItsGroupAndInterfaceOnly ) {
   for ( const char* intf : { "eth1", "eth2" } ) {
      receive( intf, message()
                        .group( kG )
                        .prune( kS, "SR" )
                        .prune( kS2, "SR" )
                        .group( kG2 )
                        .prune( kS, "SR" ) );
   }
   receive( "eth1", message().group( kG ).join( kRp, "SWR" ).prune( kS2, "SR" ) );
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 joined; "
              "(192.0.2.7, 233.252.0.1) eth2 rptPruned; "
              "(192.0.2.7, 233.252.0.2) eth1 rptPruned eth2 rptPruned; "
              "(192.0.2.8, 233.252.0.1) eth1 rptPruned eth2 rptPruned" );
}

// Its end is the end of the message, not of the group's entries.
TEST_F( JoinPrune, AGroupMayComeTwiceInAMessage ) {
   receive( "eth1", message().group( kG ).prune( kS, "SR" ).prune( kS2, "SR" ) );
   receive( "eth1", message()
                       .group( kG )
                       .join( kRp, "SWR" )
                       .group( kG2 )
                       .join( kRp, "SWR" )
                       .group( kG )
                       .prune( kS, "SR" ) );
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 joined; "
              "(*, 233.252.0.2) eth1 joined; "
              "(192.0.2.7, 233.252.0.1) eth1 rptPruned" );
}

TEST_F( JoinPrune, WaitsForOverridesWhereOthersAre ) {
   othersMayOverride();
   receive(
      "eth1",
      message().group( kG ).join( kRp, "SWR" ).join( kS ).prune( kS2, "SR" ) );
   receive( "eth1", message().group( kG ).prune( kRp, "SWR" ).prune( kS ) );
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 prunePending; "
              "(192.0.2.7, 233.252.0.1) eth1 prunePending; "
              "(192.0.2.8, 233.252.0.1) eth1 rptPrunePending" );
   after( 1 );
   receive( "eth1", message().group( kG ).join( kS ) );
   after( 2 );
   EXPECT_EQ( state(),
              "(192.0.2.7, 233.252.0.1) eth1 joined; "
              "(192.0.2.8, 233.252.0.1) eth1 rptPruned" );
}

// A message that both joins and prunes the same thing: its joins come first.
TEST_F( JoinPrune, PrunesWhatTheSameMessageJoins ) {
   receive( "eth1", message().group( kG ).prune( kS ).join( kS ) );
   EXPECT_EQ( state(), "" );
}

TEST_F( JoinPrune, RecordsAndRoutesGoWithTheirLastState ) {
   receive( "eth1", message( 100 ).group( kG ).join( kRp, "SWR" ).join( kS ) );
   receive( "eth2",
            message( 50 ).group( kG ).join( kRp, "SWR" ).prune( kS, "SR" ) );
   after( 50 );
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 joined; "
              "(192.0.2.7, 233.252.0.1) eth1 joined" );
   after( 49 );
   EXPECT_FALSE( state().empty() );
   after( 1 );
   EXPECT_EQ( state(), "" );
   receive( "eth1", message( 10 ).group( kG ).join( kRp, "SWR" ) );
   EXPECT_EQ( route( wcKey( kG ) )->creationTime(), clock.now() )
      << "another route under the old key";
}

TEST_F( JoinPrune, ARecordStaysWhileOneOfItsStatesDoes ) {
   receive( "eth1", message( 50 ).group( kG ).join( kS ) );
   receive( "eth1", message( 100 ).group( kG ).prune( kS, "SR" ) );
   EXPECT_EQ( state(), "(192.0.2.7, 233.252.0.1) eth1 joined rptPruned" );
   EXPECT_TRUE( route( sgKey( kS, kG ) )->spTree() );
   after( 50 );
   EXPECT_EQ( state(), "(192.0.2.7, 233.252.0.1) eth1 rptPruned" );
   EXPECT_FALSE( route( sgKey( kS, kG ) )->spTree() ) << "no interface joined it";
   EXPECT_TRUE( route( sgKey( kS, kG ) )->rpTree() );
   receive( "eth1", message( 50 ).group( kG ).join( kS ) );
   EXPECT_TRUE( route( sgKey( kS, kG ) )->spTree() );
   after( 50 );
   EXPECT_EQ( state(), "" ) << "both have ended at once";
}

TEST_F( JoinPrune, ARouteIsOnTheSourceTreeWhileSomeInterfaceJoinedIt ) {
   receive( "eth1", message( 50 ).group( kG ).join( kS ) );
   receive( "eth2", message( 100 ).group( kG ).prune( kS, "SR" ) );
   EXPECT_TRUE( route( sgKey( kS, kG ) )->spTree() );
   after( 50 );
   EXPECT_EQ( state(), "(192.0.2.7, 233.252.0.1) eth2 rptPruned" );
   EXPECT_FALSE( route( sgKey( kS, kG ) )->spTree() );
}

TEST_F( JoinPrune, TakesUpWhatWasReloaded ) {
   Vrf vrf( model );
   vrf.wc( kG ).rpTree().intf( "eth1" ).joined();
   auto sg = vrf.sg( kS, kG ).spTree();
   sg.intf( "eth1" ).prunePending();
   sg.intf( "eth2" ).rptState( Intf::rptPruneTemp );
   engine->adopt();
   EXPECT_EQ( state(),
              "(*, 233.252.0.1) eth1 joined; "
              "(192.0.2.7, 233.252.0.1) eth1 joined eth2 rptPruned" );
   after( 100 );
   receive( "eth1", message().group( kG ).join( kRp, "SWR" ) );
   after( 110 );
   EXPECT_EQ( state(), "(*, 233.252.0.1) eth1 joined" )
      << "210 s for what nobody refreshed";
   after( 100 );
   EXPECT_EQ( state(), "" );
}

// A process that dies between two writes leaves such records, and nobody else
// would ever remove them.
TEST_F( JoinPrune, RemovesWhatWasReloadedWithoutState ) {
   Vrf vrf( model );
   vrf.wc( kG ).rpTree();
   vrf.sg( kS, kG ).spTree().intf( "eth1" );
   auto both = vrf.sg( kS2, kG ).spTree();
   both.intf( "eth1" );
   both.intf( "eth2" ).joined();
   engine->adopt();
   EXPECT_EQ( state(), "(192.0.2.8, 233.252.0.1) eth2 joined" );
}

// The configuration may have changed while no agent ran.
TEST_F( JoinPrune, ReloadedRoutesFollowThePresentConfiguration ) {
   receive( "eth1", message()
                       .group( kG )
                       .join( kRp, "SWR" )
                       .join( kS )
                       .group( "239.1.1.1" )
                       .join( "203.0.113.9", "SWR" ) );
   config.rpfRoutes[0].neighbor = addr( "192.0.2.253" );
   newEngine();
   engine->adopt();
   EXPECT_EQ( route( wcKey( kG ) )->rpf().neighbor, addr( "192.0.2.253" ) );
   EXPECT_EQ( route( sgKey( kS, kG ) )->rpf().neighbor, addr( "192.0.2.253" ) );
   EXPECT_EQ( route( wcKey( kG ) )->umh()->rp(), addr( kRp ) );
   EXPECT_EQ( route( wcKey( "239.1.1.1" ) )->rpf().neighbor, addr( "203.0.113.9" ) )
      << "learned from a join: the tables do not hold its RP, its path stays";
}

TEST_F( JoinPrune, KeepsTheFamiliesOfAddressesApart ) {
   receive( "eth1", message()
                       .group( "ff0e::1" )
                       .join( "2001:db8::1", "SWR" )
                       .join( "2001:db8::7" ) );
   receive( "eth1", message().group( "ff02::1" ).join( "2001:db8::7" ) );
   receive( "eth1", message().group( "ff0e::2" ).join( "::" ) );
   EXPECT_EQ( state(),
              "(*, ff0e::1) eth1 joined; (2001:db8::7, ff0e::1) eth1 joined" );
   EXPECT_EQ( refusals(), "linkLocalGroup 1, badSource 1" );
   EXPECT_EQ( route( sgKey( "2001:db8::7", "ff0e::1" ) )->rpf(),
              Routing::Pim::Rpf() )
      << "no IPv6 route is configured";
}

}
}
