#include <gtest/gtest.h>

#include "tests/support/ModelRecorders.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Lines = Mox::Test::TraceCapture::Lines;

TEST( SharedTreeRoute, IsLookedUpByGroupAndFamilyEachTime ) {
   Vrf vrf;
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" );
   vrf.wc( "233.252.0.2" );
   EXPECT_EQ( sg->wc(), nullptr );
   EXPECT_EQ( vrf->route().size(), 2U );
   auto wc = vrf.wc( "233.252.0.1" );
   EXPECT_EQ( sg->wc(), wc.get() );
   EXPECT_EQ( wc->wc(), wc.get() );
   auto wc6 = vrf.wc( "ff3e::1" );
   EXPECT_EQ( vrf.sg( "2001:db8::1", "ff3e::1" )->wc(), wc6.get() );
   vrf->routeDel( wc->key() );
   EXPECT_EQ( sg->wc(), nullptr );
}

// The key alone makes no route a (*,G) one: the flag decides whose RPF counts.
TEST( SharedTreeRoute, LendsItsRpf ) {
   Vrf vrf;
   auto sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).rpf( "eth0" );
   EXPECT_EQ( sg->rpfWc(), Rpf() );
   auto wc = vrf.wc( "233.252.0.1" ).rpf( "eth1" );
   EXPECT_EQ( sg->rpfWc(), rpfBy( "eth1" ) );
   EXPECT_EQ( wc->rpfWc(), rpfBy( "eth1" ) );
   sg->wildCardIs( true );
   EXPECT_EQ( sg->rpfWc(), rpfBy( "eth0" ) );
   wc->umhDel();
   sg->wildCardIs( false );
   EXPECT_EQ( sg->rpfWc(), Rpf() );
}

class BackupRpf : public testing::Test {
 protected:
   Vrf vrf;
   RouteBuilder sg = vrf.sg( "192.0.2.1", "233.252.0.1" ).rpf( "eth0" );
};

TEST_F( BackupRpf, IsADuplicateOnTheMainInterfaceOrWithTheMainRpf ) {
   EXPECT_TRUE( sg->isDuplicateRpf( rpfBy( "eth0", "192.0.2.250", 1, 1 ) ) );
   EXPECT_FALSE( sg->isDuplicateRpf( rpfBy( "eth2" ) ) );
   // The main interface is iif(), not the RPF's interface.
   sg.mbr( "eth3" );
   EXPECT_TRUE( sg->isDuplicateRpf( rpfBy( "eth3" ) ) );
   EXPECT_TRUE( sg->isDuplicateRpf( rpfBy( "eth0" ) ) );
   EXPECT_FALSE( sg->isDuplicateRpf( rpfBy( "eth0", "192.0.2.250" ) ) );
   // Without an upstream record the main interface is the empty one.
   sg->umhDel();
   EXPECT_FALSE( sg->isDuplicateRpf( rpfBy( "eth0" ) ) );
   EXPECT_TRUE( sg->isDuplicateRpf( rpfBy( "", "192.0.2.250" ) ) );
   // The absent RPF never counts as a duplicate.
   EXPECT_FALSE( sg->isDuplicateRpf( Rpf() ) );
   sg.rpf( Rpf() );
   EXPECT_FALSE( sg->isDuplicateRpf( Rpf() ) );
}

TEST_F( BackupRpf, IsTakenWhenItDiffersAndClearedWhenItDoesNot ) {
   sg.rpfFrr( Rpf() );
   UpstreamRecorder recorder( sg->umhFrr() );
   Mox::Test::TraceCapture traces( "Pimsm/4" );
   sg->doUpdateRpfFrr( rpfBy( "eth2" ), true );
   EXPECT_EQ( sg->rpfFrr(), rpfBy( "eth2" ) );
   EXPECT_TRUE( sg->rpfFrrAttached() );
   EXPECT_EQ( recorder.take(), ( Heard{ "rpfAttached", "rpf" } ) );
   sg->doUpdateRpfFrr( rpfBy( "eth0" ), true );
   EXPECT_EQ( sg->rpfFrr(), Rpf() );
   EXPECT_EQ( sg->prevRpfFrr(), rpfBy( "eth2" ) );
   EXPECT_FALSE( sg->rpfFrrAttached() );
   EXPECT_EQ( recorder.take(), ( Heard{ "rpfAttached", "prevRpf", "rpf" } ) );
   EXPECT_EQ( sg->rpf(), rpfBy( "eth0" ) );
   const Mox::String prefix =
      "Pimsm 4 (192.0.2.1, 233.252.0.1), Flags: EdoUpdateRpfFrr (192.0.2.1, "
      "233.252.0.1)";
   EXPECT_EQ(
      traces.take(),
      ( Lines{ prefix, prefix + "(), Update rpfFrr 'eth2' via 192.0.2.254 [110/20]",
               "Pimsm 4 doUpdateRpf current RPF: none new RPF: 'eth2' via "
               "192.0.2.254 [110/20] (MoFrr: 1)",
               prefix, prefix + "(), duplicate, set rpfFrr to Null",
               "Pimsm 4 doUpdateRpf current RPF: 'eth2' via 192.0.2.254 [110/20] "
               "new RPF: none (MoFrr: 1)" } ) );
}

TEST_F( BackupRpf, WithoutARecordNothingHappens ) {
   RouteRecorder recorder( sg.get() );
   UpstreamRecorder upstream( sg->umh() );
   sg->doUpdateRpfFrr( rpfBy( "eth2" ), true );
   EXPECT_EQ( sg->umhFrr(), nullptr );
   EXPECT_EQ( recorder.take(), Heard{} );
   EXPECT_EQ( upstream.take(), Heard{} );
}

}
}
