// Routers that send: between real kernels, and every packet as others decode it.
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>

#include "apps/agent/wire/Wire.h"
#include "platform/loop/RealClock.h"
#include "tests/netns/Bed.h"
#include "tests/netns/Decoder.h"
#include "tests/netns/Flow.h"
#include "tests/netns/Topology.h"
#include "tests/support/TempRoot.h"

namespace Netns {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// Turns the loop until the interface has a link-local address of its own.
IpGenAddr linkLocal( const Agent::Wire& wire, Mox::Loop& loop,
                     const std::string& interface ) {
   IpGenAddr found;
   eventually( [&] {
      loop.dispatch();
      for ( const IpGenAddr& each : wire.links().find( interface )->addresses ) {
         if ( each.family() == AddressFamily::ipv6 && each.isLinkLocal() )
            found = each;
      }
      return found != IpGenAddr();
   } );
   return found;
}

constexpr auto kIpv4 = AddressFamily::ipv4, kIpv6 = AddressFamily::ipv6;

class Speak : public testing::Test {
 protected:
   void SetUp() override {
#ifdef PIMSM_SANITIZED
      GTEST_SKIP() << "real time: not with programs that the sanitizers slow down";
#endif
      static const std::string kWhyNot = notPermitted();
      if ( !kWhyNot.empty() ) GTEST_SKIP() << kWhyNot;
   }
   Mox::Test::TempRoot root;
};

const char* const kSent4 =
   "224.0.0.13 1 0xc0  Hello\n"
   "224.0.0.13 1 0xc0  Join/Prune\n"
   "224.0.0.13 1 0xc0  Assert\n"
   "10.99.0.2,233.252.0.1 64,0 0xc0,0x00  Register\n"
   "224.0.0.1 1 0xc0 148 Membership Query, general\n"
   "233.252.0.1 1 0xc0 148 Membership Query, specific for group 233.252.0.1, "
   "sources {10.99.0.1, 10.99.0.2}\n"
   "233.252.0.1 1 0xc0 148 Membership Query, specific for group 233.252.0.1\n"
   "10.99.0.2 64 0xc0  Register-stop\n";
const char* const kSent6 =
   "ff02::d 1 0x000000c0  Hello\n"
   "ff02::d 1 0x000000c0  Join/Prune\n"
   "ff02::d 1 0x000000c0  Assert\n"
   "2001:db8:99::2,ff0e::db8:1 64,0 0x000000c0,0x00000000  Register\n"
   "ff02::1 1 0x000000c0 0 Multicast Listener Query\n"
   "ff0e::db8:1 1 0x000000c0 0 Multicast Listener Query\n"
   "ff0e::db8:1 1 0x000000c0 0 Multicast Listener Query\n"
   "2001:db8:99::2 64 0x000000c0  Register-stop\n";

// Each kind of message, as it leaves. The receiver answers nothing: it is no router.
class SpeakKinds : public Speak, public testing::WithParamInterface<AddressFamily> {
 protected:
   void SetUp() override {
      Speak::SetUp();
      if ( !IsSkipped() && !Decoder::available() ) GTEST_SKIP() << Decoder::missing;
   }
};

TEST_P( SpeakKinds, AreWellFormed ) {
   using namespace Router;
   const bool four = GetParam() == kIpv4;
   Bed bed( { .links = "A-B" }, root.path() );
   Decoder decoder( { { bed.node( "B" ), "ba" } }, root.path() + "/kinds.pcap" );
   const IpGenAddr own = bed.address( GetParam(), "A" );
   const IpGenAddr other = bed.address( GetParam(), "B" );
   const IpGenAddr g( four ? "233.252.0.1" : "ff0e::db8:1" );
   Namespace::Inside inside( bed.node( "A" ) );
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   std::string notes;
   Agent::Wire wire(
      loop, clock, [&]( const std::string& note ) { notes += note + '\n'; },
      [] {} );
   const IpGenAddr from = four ? own : linkLocal( wire, loop, "ab" );
   const IpGenAddr routers = allPimRouters( GetParam() );
   const L3::VrfName vrf( "default" );
   auto pim = [&]( PimMessage::Body body ) {
      return wire.send( vrf, "ab",
                        { Vantu::IntfId( "ab" ), from, routers,
                          pimMessage( std::move( body ) ) } );
   };
   auto unicast = [&]( PimMessage::Body body ) {
      return wire.send( vrf, "",
                        { {}, own, other, pimMessage( std::move( body ) ) } );
   };
   PimHello hello;
   hello.holdtime = 105;
   hello.lanPruneDelay = { true, 500, 2500 };
   hello.drPriority = 1;
   hello.generationId = 7;
   hello.addresses = { IpGenAddr( four ? "10.99.0.77" : "2001:db8:99::77" ) };
   EXPECT_TRUE( pim( hello ) );
   PimJoinPrune joinPrune{ other, 210, { { g } } };
   joinPrune.groups[0].joins = {
      { .address = own, .wildcard = true, .rpt = true } };
   joinPrune.groups[0].prunes = { { .address = other, .rpt = true } };
   EXPECT_TRUE( pim( joinPrune ) );
   EXPECT_TRUE( pim( PimAssert{ .group = g, .source = own, .metric = 20 } ) );
   PimRegister null;
   null.nullRegister = true;
   null.source = own;
   null.group = g;
   EXPECT_TRUE( unicast( null ) );
   auto ask = [&]( const IpGenAddr& to, const MembershipQuery& query ) {
      return wire.send(
         vrf, "ab",
         { Vantu::IntfId( "ab" ), from, to, MembershipMessage( query ) } );
   };
   const MembershipQuery general{
      3, IpGenAddr::unspecified( GetParam() ), {}, 10.0, false, 2, 125.0 };
   EXPECT_TRUE( ask( IpGenAddr( four ? "224.0.0.1" : "ff02::1" ), general ) );
   EXPECT_TRUE( ask( g, { 3, g, { own, other }, 1.0, true, 2, 125.0 } ) );
   EXPECT_TRUE( ask( g, { 2, g, {}, 1.0 } ) );
   EXPECT_TRUE( unicast( PimRegisterStop{ .group = g, .source = own } ) );
   EXPECT_EQ( notes, "" );
   auto counted = [&]( const std::string& owner, const char* name ) {
      const Mox::EventCounter* counter = Mox::eventCounter( owner, name );
      return counter == nullptr ? 0 : counter->value();
   };
   EXPECT_EQ( counted( "agent/sent/default/ab", "membership-query" ), 3u );
   const std::string asked = "agent/asked/default/" + valueToStrep( other ) + "/ab";
   EXPECT_EQ( counted( asked, "joins" ), 1u );
   EXPECT_EQ( counted( asked, "prunes" ), 1u );
   EXPECT_TRUE(
      eventually( [&] { return decoder.packets( "pim.type == 2", {} ) != ""; } ) );

   // One that cannot leave is told of once.
   const Outgoing foreign{ Vantu::IntfId( "ab" ),
                           IpGenAddr( four ? "192.0.2.99" : "fe80::99" ), routers,
                           pimMessage( hello ) };
   EXPECT_FALSE( wire.send( vrf, "ab", foreign ) );
   EXPECT_FALSE( wire.send( vrf, "ab", foreign ) );
   EXPECT_FALSE( wire.send( vrf, "absent", foreign ) );
   EXPECT_EQ( std::count( notes.begin(), notes.end(), '\n' ), 1 ) << notes;
   EXPECT_EQ( notes.rfind( "ab: cannot send in ", 0 ), 0u ) << notes;

   EXPECT_EQ( decoder.faulty(), "" );
   // Destination, TTL, class, router alert; of a null register the inner ones, too.
   using Fields = std::vector<std::string>;
   const Fields fields =
      four ? Fields{ "ip.dst", "ip.ttl", "ip.dsfield", "ip.opt.type" }
           : Fields{ "ipv6.dst", "ipv6.hlim", "ipv6.tclass",
                     "ipv6.opt.router_alert" };
   EXPECT_EQ( decoder.packets( "pim or igmp.type == 0x11 or icmpv6.type == 130",
                               fields, "_ws.col.Info" ),
              four ? kSent4 : kSent6 );
}

INSTANTIATE_TEST_SUITE_P( Families, SpeakKinds, testing::Values( kIpv4, kIpv6 ),
                          []( const auto& row ) {
                             return row.param == kIpv4 ? "IPv4" : "IPv6";
                          } );

}
}
