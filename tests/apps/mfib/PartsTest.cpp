// The kernel's messages, the bounded table of upcalls, the pauses between restarts.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>

// The C library's headers must come before the kernel's.
#include <linux/mroute.h>
#include <linux/mroute6.h>

#include "apps/mfib/Daemon.h"
#include "apps/mfib/KernelMessages.h"
#include "apps/mfib/NewSources.h"
#include "apps/mfib/RestartPause.h"
#include "apps/mfib/Upcalls.h"
#include "platform/loop/TestClock.h"
#include "tests/support/ErrorText.h"
#include "tests/support/TempRoot.h"
#include "tests/support/VrfBuilder.h"

namespace Forwarding {
namespace {

using Routing::Pim::SparseMode::Test::addr;
using Routing::Pim::SparseMode::Test::intfId;
using Routing::Pim::SparseMode::Test::sgKey;
using Vantu::AddressFamily;

template <class Value>
std::vector<uint8_t> bytesOf( const Value& value ) {
   std::vector<uint8_t> out( sizeof value );
   std::memcpy( out.data(), &value, sizeof value );
   return out;
}

TEST( KernelMessages, UpcallsAreTakenWholeOrNotAtAll ) {
   igmpmsg good4{};
   good4.im_msgtype = IGMPMSG_WRONGVIF;
   good4.im_vif = 3;
   inet_pton( AF_INET, "192.0.2.1", &good4.im_src );
   inet_pton( AF_INET, "239.1.2.3", &good4.im_dst );
   auto read4 = []( igmpmsg message, size_t size = sizeof( igmpmsg ) ) {
      auto bytes = bytesOf( message );
      return readUpcall( AddressFamily::ipv4,
                         Netlink::Bytes( bytes ).first( size ) );
   };
   ASSERT_TRUE( read4( good4 ) );
   EXPECT_EQ( read4( good4 )->key, sgKey( "192.0.2.1", "239.1.2.3" ) );
   EXPECT_EQ( read4( good4 )->vif, 3u );
   EXPECT_EQ( read4( good4 )->kind, Published::wrongVifUpcall );
   EXPECT_FALSE( read4( good4, sizeof good4 - 1 ) );
   auto bad4 = [&]( auto change ) {
      igmpmsg message = good4;
      change( message );
      return !read4( message );
   };
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_mbz = IPPROTO_IGMP; } ) );
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_msgtype = IGMPMSG_WHOLEPKT; } ) );
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_vif = 32; } ) );
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_vif_hi = 1; } ) );
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_dst = m.im_src; } ) );
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_src = m.im_dst; } ) );
   EXPECT_TRUE( bad4( []( auto& m ) { m.im_src = {}; } ) );

   mrt6msg good6{};
   good6.im6_msgtype = MRT6MSG_NOCACHE;
   good6.im6_mif = 5;
   inet_pton( AF_INET6, "2001:db8::1", &good6.im6_src );
   inet_pton( AF_INET6, "ff3e::1", &good6.im6_dst );
   auto bytes = bytesOf( good6 );
   auto upcall = readUpcall( AddressFamily::ipv6, bytes );
   ASSERT_TRUE( upcall );
   EXPECT_EQ( upcall->key, sgKey( "2001:db8::1", "ff3e::1" ) );
   EXPECT_EQ( upcall->vif, 5u );
   EXPECT_FALSE( readUpcall( AddressFamily::ipv6,
                             Netlink::Bytes( bytes ).first( bytes.size() - 1 ) ) );
   // A packet to be registered comes behind its message.
   good6.im6_msgtype = MRT6MSG_WHOLEPKT;
   auto whole = bytesOf( good6 );
   EXPECT_FALSE( readUpcall( AddressFamily::ipv6, whole ) );
   whole.push_back( 7 );
   ASSERT_TRUE( upcall = readUpcall( AddressFamily::ipv6, whole ) );
   EXPECT_EQ( upcall->packet, std::vector<uint8_t>{ 7 } );
   bytes[0] = 135;  // a neighbour solicitation
   EXPECT_FALSE( readUpcall( AddressFamily::ipv6, bytes ) );
}

// A message of a dump, with fields to damage.
struct DumpedEntry {
   nlmsghdr header{};
   rtmsg body{};
   struct {
      nlattr head{ 8, RTA_DST };
      uint8_t address[4]{ 239, 1, 2, 3 };
   } group;
   struct {
      nlattr head{ 8, RTA_IIF };
      uint32_t index = 10;
   } incoming;
   struct {
      nlattr head{ 4 + 3 * sizeof( rtnexthop ), RTA_MULTIPATH };
      rtnexthop hops[3]{ { 8, 0, 1, 11 }, { 8, 0, 255, 12 }, { 8, 0, 1, 13 } };
   } outgoing;

   struct {
      nlattr head{ 12, RTA_EXPIRES };
      uint32_t ticks[2]{ 500, 0 };
   } idle;

   DumpedEntry() {
      header.nlmsg_len = sizeof *this;
      header.nlmsg_type = RTM_NEWROUTE;
      body.rtm_family = RTNL_FAMILY_IPMR;
      body.rtm_type = RTN_MULTICAST;
      body.rtm_table = 253;
   }
   std::optional<StandingEntry> read() const {
      return readEntry( Netlink::Message( header ), AddressFamily::ipv4, 253 );
   }
};

TEST( KernelMessages, EntriesOfADump ) {
   DumpedEntry good;
   ASSERT_TRUE( good.read() );
   EXPECT_EQ( good.read()->key,
              ( Routing::Pim::RouteKey{ {}, addr( "239.1.2.3" ) } ) );
   EXPECT_EQ( good.read()->incomingIndex, 10u );
   EXPECT_EQ( good.read()->idle, 5.0 );
   EXPECT_EQ( good.read()->outgoingIndexes, ( std::vector<uint32_t>{ 11, 13 } ) )
      << "one with the highest threshold is none";
   auto with = []( auto change ) {
      DumpedEntry entry;
      change( entry );
      return entry.read();
   };
   EXPECT_FALSE( with( []( auto& e ) { e.body.rtm_table = 7; } ) );
   EXPECT_FALSE( with( []( auto& e ) { e.body.rtm_flags = RTNH_F_UNRESOLVED; } ) );
   EXPECT_FALSE( with( []( auto& e ) { e.body.rtm_type = RTN_UNICAST; } ) );
   EXPECT_FALSE( with( []( auto& e ) { e.body.rtm_family = RTNL_FAMILY_IP6MR; } ) );
   EXPECT_FALSE( with( []( auto& e ) { e.group.head.nla_len = 7; } ) );
   EXPECT_FALSE( with( []( auto& e ) { e.group.address[0] = 10; } ) );
   EXPECT_FALSE( with( []( auto& e ) { e.header.nlmsg_len = NLMSG_HDRLEN + 5; } ) );
   // Next hops are read as long as their lengths are valid.
   auto hops = [&]( uint16_t length ) {
      return with( [&]( auto& e ) { e.outgoing.hops[1].rtnh_len = length; } )
         ->outgoingIndexes.size();
   };
   EXPECT_EQ( hops( 0 ), 1u );
   EXPECT_EQ( hops( 7 ), 1u );
   EXPECT_EQ( hops( 17 ), 1u );
   EXPECT_EQ( hops( 16 ), 1u ) << "the third is the second's";
}

TEST( LinkTable, TakesLinksOfTheirOwnFamilyAlone ) {
   struct {
      nlmsghdr header{ 0, RTM_NEWLINK, 0, 0, 0 };
      ifinfomsg body{};
      nlattr head{ 8, IFLA_IFNAME };
      char name[4] = "lan";
   } link;
   link.header.nlmsg_len = sizeof link;
   link.body.ifi_index = 7;
   auto taken = [&] {
      LinkTable table;
      table.take( Netlink::Message( link.header ) );
      return table.index( intfId( "lan" ) );
   };
   EXPECT_EQ( taken(), 7u );
   LinkTable links;
   for ( const unsigned flags :
         { 1u * IFF_UP, 1u * IFF_RUNNING, 0u | IFF_UP | IFF_RUNNING } ) {
      link.body.ifi_flags = flags;
      links.take( Netlink::Message( link.header ) );
      EXPECT_EQ( links.up( 7 ), flags == ( IFF_UP | IFF_RUNNING ) );
   }
   link.body.ifi_family = AF_BRIDGE;
   EXPECT_EQ( taken(), 0u );
   link.body.ifi_family = AF_UNSPEC;
   link.body.ifi_index = 0;
   EXPECT_EQ( taken(), 0u );
}

TEST( Upcalls, TheOldestGoesForANewOne ) {
   Mox::Test::TempRoot root;
   Mox::TestClock clock( 1000.0 );
   Corvex::EntityManager manager( clock, nullptr, root.path() );
   auto tables = Published::MfibStatus::mount(
      manager,
      Published::MfibStatus::mountPath( AddressFamily::ipv4, L3::VrfName( "x" ) ),
      Brane::tableWriter, 10 );
   auto key = []( int source ) {
      return Routing::Pim::RouteIntfKey{
         sgKey( "192.0.2." + std::to_string( source ), "239.1.2.3" ),
         intfId( "eth0" ) };
   };
   auto count = [&]( int source ) {
      Published::MfibUpcall record;
      tables->upcall().find( key( source ), record );
      return record.count;
   };
   {
      Upcalls upcalls( "test", tables, 3 );
      for ( int source : { 1, 2, 3, 1 } )
         upcalls.add( key( source ), Published::noCacheUpcall, 10.0 + source );
      upcalls.add( key( 1 ), Published::wrongVifUpcall, 20.0 );
      EXPECT_EQ( count( 1 ), 3u );
      upcalls.add( key( 4 ), Published::noCacheUpcall, 21.0 );
      EXPECT_EQ( count( 2 ), 0u ) << "the one not heard of for the longest time";
      EXPECT_EQ( upcalls.dropped(), 1u );
   }
   // The next process continues in the same order.
   Upcalls upcalls( "test", tables, 3 );
   upcalls.add( key( 5 ), Published::noCacheUpcall, 22.0 );
   EXPECT_EQ( count( 3 ), 0u );
   EXPECT_EQ( count( 1 ), 3u );
   EXPECT_EQ( tables->upcall().size(), 3u );
}

TEST( NewSources, PacketsWaitInOrderForATimeAndWithinARoom ) {
   NewSources sources;
   const auto a = sgKey( "192.0.2.1", "239.1.2.3" ),
              b = sgKey( "192.0.2.2", "239.1.2.3" );
   const size_t half = NewSources::maxBytes / 2;
   EXPECT_TRUE( sources.keep( a, NewSources::Packet( half ), 1.0 ) );
   EXPECT_TRUE( sources.keep( b, NewSources::Packet( 7 ), 1.5 ) );
   EXPECT_TRUE( sources.keep( a, NewSources::Packet( 1 ), 1.6 ) );
   EXPECT_FALSE( sources.keep( a, NewSources::Packet( half ), 1.7 ) );
   std::vector<std::pair<size_t, bool>> taken;
   auto release = [&]( double now, const auto& decided ) {
      taken.clear();
      sources.release(
         now, [&]( const auto& key ) { return key == decided; },
         [&]( const auto&, auto& packet, bool goes ) {
            taken.emplace_back( packet.size(), goes );
         } );
      return taken;
   };
   using Taken = decltype( taken );
   EXPECT_EQ( release( 1.9, b ), ( Taken{ { 7, true } } ) );
   EXPECT_EQ( release( 2.0, b ), ( Taken{ { half, false } } ) ) << "for too long";
   EXPECT_EQ( release( 2.1, a ), ( Taken{ { 1, true } } ) );
   EXPECT_TRUE( sources.keep( a, NewSources::Packet( half ), 3.0 ) );
   // So many a second and link.
   sources.rateIs( 2 );
   for ( double now : { 5.0, 5.5 } ) EXPECT_TRUE( sources.mayCome( 1, now ) );
   EXPECT_FALSE( sources.mayCome( 1, 5.9 ) );
   EXPECT_TRUE( sources.mayCome( 2, 5.9 ) && sources.mayCome( 1, 6.0 ) );
}

TEST( RestartPause, GrowsUntilALifeWasLong ) {
   RestartPause pause;
   EXPECT_EQ( pause.next( 1.0 ), 0.0 );
   EXPECT_EQ( pause.next( 1.0 ), 0.1 );
   EXPECT_EQ( pause.next( 1.0 ), 0.2 );
   for ( int i = 0; i < 10; ++i ) pause.next( 1.0 );
   EXPECT_EQ( pause.next( 1.0 ), RestartPause::most );
   EXPECT_EQ( pause.next( RestartPause::steady ), 0.0 );
}

TEST( Families, AreThoseOfTheConfiguration ) {
   auto vrf = []( const char* name, const char* address,
                  std::optional<uint32_t> table = std::nullopt ) {
      Agent::InterfaceConfig interface;
      interface.name = intfId( std::string( name ) + "0" );
      interface.addresses.push_back( { addr( address ), {} } );
      Agent::VrfConfig out;
      out.name = L3::VrfName( name );
      out.interfaces = { interface, interface };
      out.mrouteTable = table;
      return out;
   };
   auto both = familiesOf( { { vrf( "a", "192.0.2.1" ), vrf( "b", "::1" ) } } );
   ASSERT_EQ( both.size(), 2u );
   EXPECT_EQ( both[0].table, 253u );
   EXPECT_EQ( both[1].table, 254u ) << "the kernel looks elsewhere for IPv6";
   EXPECT_EQ( both[0].interfaces.size(), 2u );
   auto error = [&]( std::vector<Agent::VrfConfig> vrfs ) {
      return Mox::Test::errorText<std::runtime_error>(
         [&] { familiesOf( { std::move( vrfs ) } ); } );
   };
   EXPECT_EQ( error( { vrf( "a", "192.0.2.1" ), vrf( "b", "192.0.2.2" ) } ),
              "VRFs 'a' and 'b' have one mroute-table, 253; give each its own" );
   EXPECT_EQ( error( { vrf( "a", "192.0.2.1" ), vrf( "b", "192.0.2.2", 7 ) } ),
              "" );
   EXPECT_EQ( error( { {} } ),
              "the configuration names no interface with an address" );
   auto large = vrf( "a", "192.0.2.1" );
   large.interfaces.resize( 33, large.interfaces[0] );
   EXPECT_NE( error( { large } ).find( "33 interfaces" ), std::string::npos );
}

}
}
