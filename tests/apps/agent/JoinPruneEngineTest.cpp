#include "apps/agent/engine/JoinPruneEngine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "platform/loop/TestClock.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using Routing::Pim::RouteKey;
using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

// Short names, in messages as in states.
const std::pair<std::string, std::string> kNames[] = { { "RP", "198.51.100.1" },
                                                       { "G1", "233.252.0.1" },
                                                       { "G2", "233.252.0.2" },
                                                       { "S1", "192.0.2.7" },
                                                       { "S2", "192.0.2.8" } };

Vantu::IpGenAddr address( const std::string& word ) {
   for ( const auto& [name, text] : kNames ) {
      if ( word == name ) return addr( text );
   }
   return addr( word );
}
std::string nameOf( const Vantu::IpGenAddr& address ) {
   if ( address.isUnspecified() ) return "*";
   for ( const auto& [name, text] : kNames ) {
      if ( address == addr( text ) ) return name;
   }
   return valueToStrep( address );
}

const RouteKey kWc = { Vantu::IpGenAddr(), address( "G1" ) };
const RouteKey kSg = { address( "S1" ), address( "G1" ) };

// "G1 +RP=SWR +S1 -S2/31=SR G2 +S1": groups, each with its joins and prunes; flags
// are "S" and lengths whole where nothing is said.
class MessageReader {
 public:
   static PimJoinPrune read( const std::string& text, uint16_t holdtime ) {
      MessageReader reader;
      reader.message_.holdtime = holdtime;
      std::istringstream words( text );
      for ( std::string word; words >> word; ) reader.take( word );
      return reader.message_;
   }

 private:
   void take( std::string word ) {
      char kind = word[0];
      bool isGroup = kind != '+' && kind != '-';
      if ( !isGroup ) word.erase( 0, 1 );
      std::string flags = cut( word, '=', "S" );
      std::string length = cut( word, '/', "" );
      Vantu::IpGenAddr where = address( word );
      auto bits = static_cast<uint8_t>( Vantu::addressBits( where.family() ) );
      if ( !length.empty() ) bits = static_cast<uint8_t>( std::stoi( length ) );
      if ( isGroup ) {
         JoinPruneGroup& group = message_.groups.emplace_back();
         group.address = where;
         group.maskLength = bits;
         return;
      }
      JoinPruneGroup& group = message_.groups.back();
      EncodedSource& source =
         ( kind == '+' ? group.joins : group.prunes ).emplace_back();
      source.address = where;
      source.maskLength = bits;
      source.sparse = flags.find( 'S' ) != std::string::npos;
      source.wildcard = flags.find( 'W' ) != std::string::npos;
      source.rpt = flags.find( 'R' ) != std::string::npos;
   }
   // Cuts off what follows the mark.
   static std::string cut( std::string& word, char mark, const char* otherwise ) {
      size_t at = word.find( mark );
      if ( at == std::string::npos ) return otherwise;
      std::string out = word.substr( at + 1 );
      word.erase( at );
      return out;
   }

   PimJoinPrune message_;
};

// The router: eth0 upstream with the way to everything, eth1 and eth2 downstream;
// one RP, for 233.0.0.0/8 only.
VrfConfig routerConfig() {
   VrfConfig config;
   for ( const char* name : { "eth0", "eth1", "eth2" } ) {
      config.interfaces.emplace_back().name = intfId( name );
   }
   config.interfaces[1].addresses.push_back(
      { addr( "203.0.113.1" ), Vantu::IpGenPrefix( "203.0.113.0/24" ) } );
   RpfRouteConfig& route = config.rpfRoutes.emplace_back();
   route.prefix = Vantu::IpGenPrefix( "0.0.0.0/0" );
   route.interface = intfId( "eth0" );
   route.neighbor = addr( "192.0.2.254" );
   route.preference = 110;
   route.metric = 20;
   config.rps.push_back(
      { address( "RP" ), { Vantu::IpGenPrefix( "233.0.0.0/8" ) } } );
   return config;
}

class JoinPrune : public testing::Test {
 protected:
   void receive( const char* intf, const std::string& message,
                 uint16_t holdtime = 210 ) {
      engine->receive( intfId( intf ), neighbors,
                       MessageReader::read( message, holdtime ) );
   }
   // More than one neighbour: prunes wait 3 s for others to override.
   void othersMayOverride() {
      PimHello hello;
      hello.holdtime = 0xffff;
      neighbors.receiveHello( addr( "203.0.113.2" ), hello );
      neighbors.receiveHello( addr( "203.0.113.3" ), hello );
   }
   void after( double seconds ) { clock.runUntil( clock.now() + seconds ); }

   // "(*, G1) eth1 joined; (S1, G1) eth1 joined eth2 rptPruned", in order.
   std::string state() const {
      std::set<std::string> lines;
      for ( const Route& route : std::as_const( *model ).route() ) {
         std::set<std::string> intfs;
         for ( const Intf& intf : route.routeIntf() ) {
            intfs.insert( wordsOf( intf ) );
         }
         lines.insert( fmt::format( "({}, {}) {}", nameOf( route.key().source ),
                                    nameOf( route.key().group ),
                                    fmt::join( intfs, " " ) ) );
      }
      return fmt::format( "{}", fmt::join( lines, "; " ) );
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
   // It must be there.
   const Route& route( const RouteKey& key ) const {
      const Route* found = std::as_const( *model ).route( key );
      if ( found == nullptr ) throw std::runtime_error( "no route" );
      return *found;
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

   // As a new process with the old one's model.
   void restart() {
      engine = std::make_unique<JoinPruneEngine>( routes, clock, topology, nullptr,
                                                  counters );
      routes.adopt();
      engine->adopt();
   }

   Mox::TestClock clock;
   Mox::Ptr<Routing::Pim::SparseMode::Status> model =
      Routing::Pim::SparseMode::statusFactory( L3::VrfName( "default" ) );
   VrfConfig config = routerConfig();
   Topology topology{ config };
   Routes routes{ model, clock, topology, nullptr };
   AgentCounters counters;
   Neighbors neighbors{ clock, addr( "203.0.113.1" ), 1 };
   std::unique_ptr<JoinPruneEngine> engine = std::make_unique<JoinPruneEngine>(
      routes, clock, topology, nullptr, counters );
};

struct MessageRow {
   const char* name;
   const char* messages;  // all on eth1
   const char* state;
   const char* refusals;
};

// Beside each refused entry stands a good one, which counts.
const MessageRow kRows[] = {
   { "ClassesOfEntriesAreToldApart", "G1 +RP=SWR +S1 | G1 -S2=SR",
     "(*, G1) eth1 joined; (S1, G1) eth1 joined; (S2, G1) eth1 rptPruned", "" },
   { "SparseBitIsNotAskedFor", "G1 +RP=WR +S1= | G1 -S2=R",
     "(*, G1) eth1 joined; (S1, G1) eth1 joined; (S2, G1) eth1 rptPruned", "" },
   { "UnicastGroup", "S1 +S1 G1 +S1", "(S1, G1) eth1 joined", "notMulticast 1" },
   { "LinkLocalGroup", "224.0.0.251 +S1 G1 +S1", "(S1, G1) eth1 joined",
     "linkLocalGroup 1" },
   { "FirstGroupOffItsLink", "224.0.1.0 +S1", "(S1, 224.0.1.0) eth1 joined", "" },
   { "GroupRange", "G1/24 +S1 G2 +S1", "(S1, G2) eth1 joined", "partialMask 1" },
   { "SourceRange", "G1 +S1/31 +S2", "(S2, G1) eth1 joined", "partialMask 1" },
   { "Ranges", "G1 +S1/8 -S1/8", "", "partialMask 2" },
   { "UnspecifiedSource", "G1 +0.0.0.0 +S1", "(S1, G1) eth1 joined",
     "badSource 1" },
   { "MulticastSource", "G1 -G2=SR +S1", "(S1, G1) eth1 joined", "badSource 1" },
   { "WildcardWithoutRpt", "G1 +RP=SW +S1", "(S1, G1) eth1 joined", "badFlags 1" },
   { "AnotherRp", "G1 +198.51.100.2=SWR +S1 -S2=SR",
     "(S1, G1) eth1 joined; (S2, G1) eth1 rptPruned", "rpMismatch 1" },
   // Nor does a refused (*,G) join touch what the sender prunes.
   { "AnotherRpLater", "G1 -S1=SR | G1 +198.51.100.2=SWR",
     "(S1, G1) eth1 rptPruned", "rpMismatch 1" },
   { "PruneTowardsWhateverRp", "G1 +RP=SWR | G1 -198.51.100.2=SWR", "", "" },
   { "PruneOfWhatIsNotThere",
     "G1 -RP=SWR -S1 | G1 +S1=SR | G1 +S1 | G2 -S1 | G1 -S2",
     "(S1, G1) eth1 joined", "" },
   // A message that both joins and prunes the same thing: its joins come first.
   { "PrunesWhatItJoins", "G1 -S1 +S1", "", "" },
   // Its end is the end of the message, not of the group's entries.
   { "GroupTwiceInAMessage", "G1 -S1=SR -S2=SR | G1 +RP=SWR G2 +RP=SWR G1 -S1=SR",
     "(*, G1) eth1 joined; (*, G2) eth1 joined; (S1, G1) eth1 rptPruned", "" },
   { "Ipv6",
     "ff0e::1 +2001:db8::1=SWR +2001:db8::7 | ff02::1 +2001:db8::7 | ff0e::2 +::",
     "(*, ff0e::1) eth1 joined; (2001:db8::7, ff0e::1) eth1 joined",
     "linkLocalGroup 1, badSource 1" },
};

class JoinPruneMessages : public JoinPrune,
                          public testing::WithParamInterface<MessageRow> {};

TEST_P( JoinPruneMessages, LeaveStateAndCountRefusals ) {
   std::istringstream messages( GetParam().messages );
   for ( std::string message; std::getline( messages, message, '|' ); ) {
      receive( "eth1", message );
   }
   EXPECT_EQ( state(), GetParam().state );
   EXPECT_EQ( refusals(), GetParam().refusals );
}

std::ostream& operator<<( std::ostream& out, const MessageRow& row ) {
   return out << row.name;
}

INSTANTIATE_TEST_SUITE_P( Entries, JoinPruneMessages, testing::ValuesIn( kRows ),
                          []( const auto& row ) { return row.param.name; } );

TEST_F( JoinPrune, FillsInWhatTheRouteIs ) {
   receive( "eth1", "G1 +RP=SWR +S1 +203.0.113.77 239.1.1.1 +203.0.113.9=SWR" );
   receive( "eth1", "ff0e::1 +2001:db8::7" );
   const Route& wc = route( kWc );
   EXPECT_TRUE( wc.initialized() );
   EXPECT_TRUE( wc.wildCard() && wc.rpTree() && !wc.spTree() );
   EXPECT_EQ( wc.creationTime(), clock.now() );
   EXPECT_EQ( wc.umh()->rp(), address( "RP" ) );
   EXPECT_EQ( wc.rpf(), rpfBy( "eth0" ) );
   EXPECT_FALSE( wc.rpfAttached() );
   EXPECT_TRUE( wc.routeIntf( intfId( "eth1" ) )->initialized() );
   const Route& sg = route( kSg );
   EXPECT_TRUE( sg.initialized() );
   EXPECT_TRUE( sg.spTree() && !sg.rpTree() && !sg.wildCard() );
   EXPECT_EQ( sg.rpf(), rpfBy( "eth0" ) );
   const Route& onLink = route( sgKey( "203.0.113.77", "233.252.0.1" ) );
   EXPECT_TRUE( onLink.rpfAttached() );
   EXPECT_EQ( onLink.rpf(), rpfBy( "eth1", "203.0.113.77", 0, 0 ) );
   const Route& learned = route( wcKey( "239.1.1.1" ) );
   EXPECT_EQ( learned.umh()->rp(), addr( "203.0.113.9" ) ) << "none is configured";
   EXPECT_TRUE( learned.rpfAttached() );
   EXPECT_EQ( route( sgKey( "2001:db8::7", "ff0e::1" ) ).rpf(),
              Routing::Pim::Rpf() )
      << "no IPv6 route is configured";
   EXPECT_EQ( refusals(), "" );
}

TEST_F( JoinPrune, AWcJoinEndsPrunesOfItsGroupAndInterfaceOnly ) {
   for ( const char* intf : { "eth1", "eth2" } ) {
      receive( intf, "G1 -S1=SR -S2=SR G2 -S1=SR" );
   }
   receive( "eth1", "G1 +RP=SWR -S2=SR" );
   EXPECT_EQ( state(),
              "(*, G1) eth1 joined; "
              "(S1, G1) eth1 eth2 rptPruned; "
              "(S1, G2) eth1 rptPruned eth2 rptPruned; "
              "(S2, G1) eth1 rptPruned eth2 rptPruned" );
}

TEST_F( JoinPrune, WaitsForOverridesWhereOthersAre ) {
   othersMayOverride();
   receive( "eth1", "G1 +RP=SWR +S1 -S2=SR" );
   receive( "eth1", "G1 -RP=SWR -S1" );
   EXPECT_EQ( state(),
              "(*, G1) eth1 prunePending; (S1, G1) eth1 prunePending; "
              "(S2, G1) eth1 rptPrunePending" );
   after( 1 );
   receive( "eth1", "G1 +S1" );
   after( 2 );
   EXPECT_EQ( state(), "(S1, G1) eth1 joined; (S2, G1) eth1 rptPruned" );
   // Each of the ways in which a machine ends, and its route with it.
   receive( "eth1", "G1 +S2=SR" );
   receive( "eth1", "G2 -S1=SR -S2=SR" );
   receive( "eth1", "G2 +S1=SR" );
   receive( "eth1", "G2 +RP=SWR" );
   EXPECT_EQ( state(), "(*, G2) eth1 joined; (S1, G1) eth1 joined" );
}

TEST_F( JoinPrune, RecordsAndRoutesGoWithTheirLastState ) {
   receive( "eth1", "G1 +RP=SWR +S1", 100 );
   receive( "eth2", "G1 -S1" );  // what another interface joined
   receive( "eth2", "G1 +RP=SWR -S1=SR", 50 );
   after( 50 );
   EXPECT_EQ( state(), "(*, G1) eth1 joined; (S1, G1) eth1 joined" );
   after( 49 );
   EXPECT_FALSE( state().empty() );
   after( 1 );
   EXPECT_EQ( state(), "" );
   receive( "eth1", "G1 +RP=SWR", 10 );
   EXPECT_EQ( route( kWc ).creationTime(), clock.now() )
      << "another route under the old key";
}

TEST_F( JoinPrune, ARouteIsOnTheSourceTreeWhileSomeInterfaceJoinedIt ) {
   receive( "eth1", "G1 +S1", 50 );
   receive( "eth1", "G1 -S1=SR", 100 );
   EXPECT_EQ( state(), "(S1, G1) eth1 joined rptPruned" );
   EXPECT_TRUE( route( kSg ).spTree() );
   after( 50 );
   EXPECT_EQ( state(), "(S1, G1) eth1 rptPruned" );
   EXPECT_TRUE( route( kSg ).rpTree() && !route( kSg ).spTree() );
   receive( "eth2", "G1 +S1", 50 );
   EXPECT_TRUE( route( kSg ).spTree() );
   after( 50 );
   EXPECT_EQ( state(), "" ) << "both have ended at once";
}

// What a former agent left pending counts as joined or pruned: nothing tells when
// its timer would have ended.
TEST_F( JoinPrune, TakesUpWhatWasReloaded ) {
   Vrf vrf( model );
   vrf.wc( "233.252.0.1" ).rpTree().intf( "eth1" ).joined();
   auto sg = vrf.sg( "192.0.2.7", "233.252.0.1" ).spTree();
   sg.intf( "eth1" ).prunePending()->lastJoinReceivedIs( 77 );
   sg.intf( "eth2" ).rptState( Intf::rptPruneTemp );
   vrf.sg( "192.0.2.8", "233.252.0.1" )
      .intf( "eth1" )
      .rptState( Intf::rptPrunePendingTemp );
   vrf.sg( "192.0.2.8", "233.252.0.1" )
      .intf( "eth2" )
      .rptState( Intf::rptPrunePending );
   // A process that dies between two writes leaves records without state, and
   // nobody else would ever remove them.
   vrf.wc( "233.252.0.2" ).rpTree();
   vrf.sg( "192.0.2.7", "233.252.0.2" ).spTree().intf( "eth1" );
   vrf.sg( "192.0.2.8", "233.252.0.2" ).spTree().intf( "eth1" );
   vrf.sg( "192.0.2.8", "233.252.0.2" ).intf( "eth2" ).joined();
   routes.adopt();
   engine->adopt();
   EXPECT_EQ( state(),
              "(*, G1) eth1 joined; (S1, G1) eth1 joined eth2 rptPruned; "
              "(S2, G1) eth1 rptPruned eth2 rptPruned; (S2, G2) eth2 joined" );
   EXPECT_EQ( sg.intf( "eth1" )->lastJoinReceived(), 77 ) << "none was received";
   after( 100 );
   receive( "eth1", "G1 +RP=SWR -S2=SR" );
   after( 109 );
   EXPECT_EQ( model->route().size(), 4U );
   after( 1 );
   EXPECT_EQ( state(), "(*, G1) eth1 joined; (S2, G1) eth1 rptPruned" )
      << "210 s for what nobody refreshed";
   after( 100 );
   EXPECT_EQ( state(), "" );
}

// The configuration may have changed while no agent ran.
TEST_F( JoinPrune, ReloadedRoutesFollowThePresentConfiguration ) {
   receive( "eth1", "G1 +RP=SWR +S1 239.1.1.1 +203.0.113.9=SWR" );
   config.rpfRoutes[0].neighbor = addr( "192.0.2.253" );
   restart();
   EXPECT_EQ( route( kWc ).rpf().neighbor, addr( "192.0.2.253" ) );
   EXPECT_EQ( route( kSg ).rpf().neighbor, addr( "192.0.2.253" ) );
   EXPECT_EQ( route( kWc ).umh()->rp(), address( "RP" ) );
   EXPECT_EQ( route( wcKey( "239.1.1.1" ) ).rpf().neighbor, addr( "203.0.113.9" ) )
      << "learned from a join: the tables do not hold its RP, its path stays";
}

}
}
