// The forwarding process with the real kernel: streams follow the tables.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/netns/Forwarder.h"
#include "tests/netns/NetworkTest.h"

namespace Netns {
namespace {

using Vantu::IpGenAddr;

class MfibForwards : public NetworkTest {
 protected:
   void SetUp() override {
      NetworkTest::SetUp();
      writeConfig( Topology::config() );
   }
   void writeConfig( const std::string& text ) {
      std::ofstream( config() ) << text;
   }
   std::string config() const { return root.path() + "/mfib.yaml"; }
   std::unique_ptr<Forwarder> start(
      const Mox::Test::Program::Arguments& more = {} ) {
      return std::make_unique<Forwarder>( *net, root.path(), config(), more );
   }
   IpGenAddr otherGroup( int number ) const {
      return IpGenAddr( ( ipv4() ? "239.1." : "ff3e::1:" ) +
                        std::to_string( number / 200 ) + ( ipv4() ? "." : ":" ) +
                        std::to_string( number % 200 ) );
   }
   IpGenAddr any() const { return IpGenAddr::unspecified( GetParam() ); }
   // `quiet` has received nothing while `other` received the next packets.
   bool quietBeside( Receiver& quiet, Receiver& other, const Sender& sender ) {
      quiet.forget();
      return flows( other, sender ) && quiet.received().empty();
   }
};

TEST_P( MfibForwards, NewSourcesFlowOnTheSharedTree ) {
   Routes routes( root.path(), GetParam() );
   routes.route( any(), group( 1 ), "r0", { "r1", "r2" } );
   auto forwarder = start( { "--counters", "0.05" } );
   ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   Receiver left = receiver( 1, group( 1 ) );
   Receiver right = receiver( 2, group( 1 ) );
   Sender stream = sender( 0, group( 1 ) );
   ASSERT_TRUE( flows( left, stream ) );
   ASSERT_TRUE( flows( right, stream ) );
   EXPECT_EQ( left.faults(), Faults() ) << "from the first packet on";
   Published seen( root.path(), GetParam() );
   auto upcall = [&]( int link, ::Published::UpcallKind kind ) {
      ::Published::MfibUpcall record;
      return seen.now().upcall().find(
                { { host( link ), group( 1 ) },
                  Vantu::IntfId( Topology::routerInterface( link ) ) },
                record ) == Brane::lookupFound &&
             record.kind == kind;
   };
   EXPECT_FALSE( upcall( 0, ::Published::noCacheUpcall ) );

   // The shared tree's copy stops for one (S,G) and goes on for the others.
   routes.route( host( 0 ), group( 1 ), "r0", { "r1" } );
   ASSERT_TRUE( eventually( [&] { return quietBeside( right, left, stream ); } ) );
   EXPECT_EQ( left.faults(), Faults() );
   ::Published::MfibCache counters;
   auto counted = [&] {
      return seen.now().cache().find( { host( 0 ), group( 1 ) }, counters ) ==
                Brane::lookupFound &&
             counters.packets > 100 && counters.lastPacket > 0.0;
   };
   EXPECT_TRUE( eventually( counted ) );
   EXPECT_EQ( counters.wrongIf, 0u );
   const ::Published::Text<32> interval( ::Published::MfibStatus::countersSetting );
   EXPECT_EQ( seen.now().setting().at( interval )->value.text(), "0.05" );
   routes.remove( host( 0 ), group( 1 ) );
   ASSERT_TRUE( flows( right, stream ) );
   EXPECT_EQ( left.faults(), Faults() ) << "back on the shared tree";

   // By an interface that is among the tree's outgoing ones.
   Sender wrong = sender( 1, group( 1 ) );
   EXPECT_TRUE(
      eventually( [&] { return upcall( 1, ::Published::wrongVifUpcall ); } ) );
   ::Published::MfibVif vif;
   auto vifCounted = [&] {
      return seen.now().vif().find( Vantu::IntfId( "r1" ), vif ) ==
                Brane::lookupFound &&
             vif.packetsOut > 100;
   };
   EXPECT_TRUE( eventually( vifCounted ) );
}

bool isPowerless( pid_t pid ) {
   const std::string kNone( 16, '0' );
   using Mox::Test::statusLine;
   for ( const char* set : { "CapPrm", "CapEff", "CapInh", "CapBnd", "CapAmb" } ) {
      if ( statusLine( pid, set ) != kNone ) return false;
   }
   return statusLine( pid, "NoNewPrivs" ) == "1";
}

TEST_P( MfibForwards, WithoutAnyCapability ) {
   auto forwarder = start();
   pid_t pid = forwarder->program().pid();
   ASSERT_TRUE( eventually( [&] { return isPowerless( pid ); } ) );
   Routes routes( root.path(), GetParam() );
   // VRFs count from the next start on. Interfaces also come later, go, and come back
   // under another number.
   std::string renamed = Topology::config();
   renamed.replace( renamed.find( "default" ), 7, "other" );
   writeConfig( renamed );
   forwarder->program().signal( SIGHUP );
   for ( const char* says : { "vrf other ipv4: forwarded from the next start",
                              "vrf default ipv6: forwarded until the next start" } )
      ASSERT_TRUE( forwarder->program().untilErr( says ) );
   writeConfig(
      Topology::config( "      - {name: r3, addresses: [10.99.3.1/24, "
                        "\"2001:db8:99:3::1/64\"]}\n" ) );
   forwarder->program().signal( SIGHUP );
   ASSERT_TRUE( forwarder->program().untilErr( "took up" ) );
   ASSERT_TRUE( forwarder->program().untilErr( "no interface r3 yet" ) );
   forwarder->program().closeErr();  // nobody may read its output
   routes.route( host( 0 ), group( 1 ), "r0", { "r1", "r3" } );
   Receiver left = receiver( 1, group( 1 ) );
   Sender stream = sender( 0, group( 1 ) );
   ASSERT_TRUE( flows( left, stream ) );
   // The first packets may precede the entry: the kernel keeps only a few.
   left.forget();
   for ( int round = 0; round < 2; ++round ) {
      Namespace late;
      connect( net->router, "r3", late, "c0" );
      Receiver third( late, "c0", group( 1 ) );
      EXPECT_TRUE( flows( third, stream ) );
      EXPECT_EQ( left.faults(), Faults() );
      net->router.ip( "link delete r3" );
   }
   EXPECT_TRUE( flows( left, stream ) );
   EXPECT_TRUE( isPowerless( pid ) );
}

TEST_P( MfibForwards, ThroughItsOwnDeathsWithAKeptSocket ) {
   constexpr int kDeaths = 4;
   Routes routes( root.path(), GetParam() );
   routes.route( host( 0 ), group( 1 ), "r0", { "r1" } );
   routes.route( any(), group( 2 ), "r0", { "r1" } );
   auto forwarder = start( { "--keep" } );
   ASSERT_TRUE( forwarder->inStep( 1 ) ) << forwarder->program().err();
   Receiver left = receiver( 1, group( 1 ) );
   Receiver shared = receiver( 1, group( 2 ) );
   Receiver right = receiver( 2, group( 1 ) );
   Sender stream = sender( 0, group( 1 ) );
   Sender second = sender( 0, group( 2 ) );
   ASSERT_TRUE( flows( left, stream ) );
   ASSERT_TRUE( flows( shared, second ) );
   pid_t child = Mox::Test::childOf( forwarder->program().pid() );
   for ( int death = 1; death <= kDeaths; ++death ) {
      ASSERT_GT( child, 0 );
      kill( child, SIGKILL );
      // Changes during its death are made up for.
      if ( death == kDeaths )
         routes.route( host( 0 ), group( 1 ), "r0", { "r1", "r2" } );
      ASSERT_TRUE( eventually( [&] {
         pid_t next = Mox::Test::childOf( forwarder->program().pid() );
         return next != 0 && next != child;
      } ) );
      child = Mox::Test::childOf( forwarder->program().pid() );
      ASSERT_TRUE( forwarder->inStep( size_t( death ) + 1 ) )
         << forwarder->program().err();
      EXPECT_TRUE( flows( left, stream ) );
   }
   EXPECT_TRUE( flows( right, stream ) );
   EXPECT_TRUE( isPowerless( child ) );
   EXPECT_EQ( left.faults(), Faults() ) << forwarder->program().err();
   EXPECT_EQ( shared.faults(), Faults() );
   // No difference, nothing written.
   EXPECT_NE( forwarder->program().err().find( "2 entries, 0 written, 0 removed" ),
              std::string::npos )
      << forwarder->program().err();
   RecordProperty( "packets", std::to_string( left.received().size() ) );

   // Nobody may read its output.
   forwarder->program().closeErr();
   kill( child, SIGKILL );
   EXPECT_TRUE( eventually( [&] {
      pid_t next = Mox::Test::childOf( forwarder->program().pid() );
      return next != 0 && next != child && isPowerless( next );
   } ) );
   // The keeper ends with its child, and the kernel's table with both.
   forwarder->program().signal( SIGTERM );
   EXPECT_EQ( forwarder->program().wait(), 0 );
   EXPECT_EQ( kernel().find( "State: resolved" ), std::string::npos ) << kernel();
   // The child does not outlive a keeper that is killed.
   forwarder = start( { "--keep" } );
   ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   ASSERT_NE( kernel().find( "State: resolved" ), std::string::npos );
   forwarder->program().signal( SIGKILL );
   EXPECT_TRUE( eventually(
      [&] { return kernel().find( "State: resolved" ) == std::string::npos; } ) )
      << kernel();
}

TEST_P( MfibForwards, AfterAGapWithoutAKeptSocket ) {
   Routes routes( root.path(), GetParam() );
   // Written before the stream's entry, in order.
   const int others = std::getenv( "PIMSM_LONG" ) != nullptr ? 9999 : 0;
   for ( int i = 0; i < others; ++i )
      routes.prepare( host( 1 + i % 2 ), otherGroup( i ), "r1", { "r2" } );
   routes.route( host( 0 ), group( 1 ), "r0", { "r1" } );
   auto forwarder = start();
   ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   Receiver left = receiver( 1, group( 1 ) );
   Sender stream = sender( 0, group( 1 ) );
   ASSERT_TRUE( flows( left, stream ) );
   forwarder->program().signal( SIGKILL );
   EXPECT_EQ( forwarder->program().wait(), -SIGKILL );
   forwarder = start();
   ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   ASSERT_TRUE( flows( left, stream ) );
   Faults faults = left.faults();
   EXPECT_EQ( faults.doubled, 0u );
   // At 1,000 packets a second.
   SCOPED_TRACE( forwarder->program().err() );
   EXPECT_NE(
      forwarder->program().err().find( std::to_string( others + 1 ) + " entries" ),
      std::string::npos );
   std::cout << "gap without a kept socket, " << others + 1
             << " routes: " << faults.longestGap << " ms\n";
}

// A VRF is a table of its own, to which a rule leads.
TEST_P( MfibForwards, AVrfByItsTable ) {
   std::string text = Topology::config( "    mroute-table: 10\n" );
   writeConfig( text );
   const std::string family = ipv4() ? "" : "-6 ";
   for ( const char* name : { "r0", "r1", "r2" } )
      net->router.ip( family + "mrule add iif " + name + " lookup 10" );
   Routes routes( root.path(), GetParam() );
   routes.route( host( 0 ), group( 1 ), "r0", { "r1" } );
   auto forwarder = start( { "--keep" } );
   ASSERT_TRUE( forwarder->inStep() ) << forwarder->program().err();
   Receiver left = receiver( 1, group( 1 ) );
   Sender stream = sender( 0, group( 1 ) );
   ASSERT_TRUE( flows( left, stream ) );
   kill( Mox::Test::childOf( forwarder->program().pid() ), SIGKILL );
   ASSERT_TRUE( forwarder->inStep( 2 ) ) << forwarder->program().err();
   EXPECT_TRUE( forwarder->program().untilErr( "0 written, 0 removed" ) );
   ASSERT_TRUE( flows( left, stream ) );
   EXPECT_EQ( left.faults(), Faults() );
}

// In `arguments` CONFIG stands for a correct file, and BAD for a faulty one.
struct WrongRow {
   const char* arguments;
   int status;
   const char* says;
};

TEST_P( MfibForwards, NotWithoutWhatItNeeds ) {
   auto holder = start();
   ASSERT_TRUE(
      eventually( [&] { return isPowerless( holder->program().pid() ); } ) );
   std::ofstream( root.path() + "/bad.yaml" ) << "vrfs:\n- nam: x\n";
   const WrongRow rows[] = {
      { "", 2, "--config" },
      { "--config CONFIG --root=", 2, "--root" },
      { "--config CONFIG --what", 2, "--what" },
      { "--config CONFIG --counters -1", 2, "--counters" },
      { "--config /absent.yaml", 2, "/absent.yaml: No such file" },
      { "--config BAD", 2, "bad.yaml:2: " },
      { "--config CONFIG", 6, "another process holds it" },
      // It was never ready, so a restart would not help.
      { "--config CONFIG --keep", 6, "another process holds it" } };
   for ( const WrongRow& row : rows ) {
      SCOPED_TRACE( row.arguments );
      Mox::Test::Program::Arguments command = { PIMSM_MFIB, "--root", root.path() };
      std::istringstream words( row.arguments );
      for ( std::string word; words >> word; ) {
         if ( word == "CONFIG" ) word = config();
         if ( word == "BAD" ) word = root.path() + "/bad.yaml";
         command.push_back( word );
      }
      Namespace::Inside inside( net->router );
      Mox::Test::Ended ended = Mox::Test::runToEnd( command );
      EXPECT_EQ( ended.status, row.status ) << ended.err;
      EXPECT_EQ( ended.out, "" );
      EXPECT_NE( ended.err.find( row.says ), std::string::npos ) << ended.err;
      EXPECT_EQ( ended.err.find( '\n' ), ended.err.size() - 1 ) << ended.err;
   }
}

INSTANTIATE_FOR_FAMILIES( MfibForwards );

}
}
