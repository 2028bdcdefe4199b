// Captures of real packets, replayed for routers on their link, packet by packet.
#include "tests/apps/agent/Captures.h"
#include "tests/apps/agent/ExpectedRoutes.h"
#include "tests/apps/agent/ReplayedFamily.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

// `most`: how many states the router holds at its fullest, counted by hand in the
// listing; so that the comparison never runs on nothing unawares.
struct Row {
   const char* name;
   const char* capture;
   const char* router;
   bool requireHello;
   size_t most;
};

const Row kRows[] = {
   { "Addressed", "pim-sm-join-prune.pcap", "10.0.0.13", true, 1 },
   { "AddressedWithoutHello", "pim-sm-join-prune.pcap", "10.0.0.13", false, 1 },
   { "SendsItself", "pim-sm-join-prune.pcap", "10.0.0.14", true, 0 },
   { "OnlySees", "pim-sm-join-prune.pcap", "10.0.0.99", false, 0 },
   // Each to another upstream router; three groups with a (*,G) and an (S,G) join
   // and two (S,G,rpt) prunes each. Their senders say hello too late.
   { "First", "pim-assortment-a.pcap", "10.0.0.8", false, 12 },
   { "FirstTooEarly", "pim-assortment-a.pcap", "10.0.0.8", true, 0 },
   { "Second", "pim-assortment-a.pcap", "10.0.0.16", false, 12 },
   { "Third", "pim-assortment-a.pcap", "10.0.0.32", false, 12 },
   { "Fourth", "pim-assortment-a.pcap", "10.0.0.40", false, 12 },
   { "NotToAllRouters", "pim-assortment-a.pcap", "10.0.0.73", false, 0 },
   { "FromAnother", "pim-assortment-a.pcap", "10.0.0.105", false, 12 },
   { "Sender", "pim-assortment-a.pcap", "10.0.0.2", false, 0 },
   // All groups of these are of link-local scope.
   { "Ipv6First", "pim-assortment-a.pcap", "1::9", false, 0 },
   { "Ipv6TooEarly", "pim-assortment-a.pcap", "1::9", true, 0 },
   { "Ipv6FromAnother", "pim-assortment-a.pcap", "1::6a", false, 0 },
   { "Ipv6Sender", "pim-assortment-a.pcap", "10::1", true, 0 },
   // Prunes of dense mode find nothing to prune.
   { "DenseMode", "pim-dm-prune-udp.pcap", "10.0.0.1", true, 0 },
   { "DenseModeSees", "pim-dm-prune-udp.pcap", "10.0.0.3", false, 0 },
};

std::ostream& operator<<( std::ostream& out, const Row& row ) {
   return out << row.name;
}

class ReplayedCaptures : public testing::TestWithParam<Row>,
                         protected ReplayedFamily {
 protected:
   ReplayedCaptures() : ReplayedFamily( vrfConfig() ) {}

   static VrfConfig vrfConfig() {
      VrfConfig config = configFor( GetParam().router );
      config.requireHello = GetParam().requireHello;
      return config;
   }

   void receive( const Replay::Frame& frame ) {
      IpPacket packet;
      PimMessage message;
      DropReason reason = decodeFrame( frame.link, frame.bytes, packet );
      if ( reason == notDropped ) reason = decodePim( packet, message );
      if ( reason != notDropped ) return counters.dropped( reason );
      if ( packet.family() != family.family() ) return;
      if ( message.type == PimType::registerData ||
           message.type == PimType::registerStop )
         return;
      family.receive( Vantu::IntfId( "eth0" ), packet, message );
   }

   // As ExpectedRoutes::states().
   std::set<std::string> states() const {
      std::set<std::string> out;
      for ( const Route& route : family.model().route() ) {
         for ( const Intf& intf : route.routeIntf() ) {
            addStates( route.key(), intf, out );
         }
         EXPECT_FALSE( route.routeIntf().empty() ) << route.key();
      }
      return out;
   }
   static void addStates( const Routing::Pim::RouteKey& key, const Intf& intf,
                          std::set<std::string>& out ) {
      EXPECT_EQ( intf.intfId(), Vantu::IntfId( "eth0" ) );
      std::string source =
         key.source.isUnspecified() ? "*" : valueToStrep( key.source );
      std::string group = valueToStrep( key.group );
      if ( intf.joinState() != Intf::noInfo ) {
         out.insert( fmt::format( "({}, {}) {}", source, group,
                                  stringValue( intf.joinState() ) ) );
      }
      if ( intf.rptState() != Intf::rptNoInfo ) {
         std::string state( stringValue( intf.rptState() ).substr( 3 ) );
         state[0] = static_cast<char>( std::tolower( state[0] ) );
         out.insert( fmt::format( "({}, {}, rpt) {}", source, group, state ) );
      }
   }
   std::map<std::string, uint64_t> refused() const {
      std::map<std::string, uint64_t> out;
      for ( uint32_t number = 0; number < refusalCount; ++number ) {
         auto reason = static_cast<Refusal>( number );
         uint64_t count = counters.refusedCount( reason );
         if ( count != 0 ) out[std::string( stringValue( reason ) )] = count;
      }
      return out;
   }
};

bool ofFamily( const ListedMessage& message, Vantu::AddressFamily family ) {
   bool ipv6 = message.sender.find( ':' ) != std::string::npos;
   return ipv6 == ( family == Vantu::AddressFamily::ipv6 );
}

TEST_P( ReplayedCaptures, LeaveWhatTheListingImplies ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto listed = listedMessages( *directory )[GetParam().capture];
   ASSERT_FALSE( listed.empty() );
   ExpectedRoutes expected( GetParam().router, GetParam().requireHello );
   size_t most = 0;
   play( *directory / GetParam().capture,
         [&]( int number, const Replay::Frame& frame ) {
            receive( frame );
            auto message = listed.find( number );
            if ( message == listed.end() ) {
               expected.passTo( frame.elapsed );
            } else if ( ofFamily( message->second, family.family() ) ) {
               expected.receive( message->second );
            }
            ASSERT_EQ( states(), expected.states() );
            most = std::max( most, states().size() );
         } );
   EXPECT_EQ( most, GetParam().most );
   EXPECT_EQ( refused(), expected.refused() );
   real.runUntil( real.now() + 250 );
   EXPECT_EQ( states(), std::set<std::string>() ) << "nobody refreshes any more";
}

// A register and the RP's answer, as the first hop and as the RP.
TEST( ReplayedRegisters, LeaveTheSourceInTheTables ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   for ( bool isRp : { false, true } ) {
      VrfConfig config =
         ReplayedFamily::configFor( isRp ? "192.168.1.254" : "192.168.0.6" );
      config.rps = { { Vantu::IpGenAddr( "192.168.1.254" ), {} } };
      config.rpfRoutes = {
         { Vantu::IpGenPrefix( "192.168.20.0/24" ), Vantu::IntfId( "eth0" ),
           Vantu::IpGenAddr( isRp ? "192.168.0.6" : "0.0.0.0" ) } };
      ReplayedFamily router( config );
      std::string history;
      const Routing::Pim::RouteKey key{ Vantu::IpGenAddr( "192.168.20.10" ),
                                        Vantu::IpGenAddr( "239.1.2.3" ) };
      const auto& tables = router.family.registers();
      router.play(
         *directory / "pim-register-stop.pcap",
         [&]( int, const Replay::Frame& frame ) {
            IpPacket packet;
            PimMessage message;
            ASSERT_EQ( decodeFrame( frame.link, frame.bytes, packet ), notDropped );
            ASSERT_EQ( decodePim( packet, message ), notDropped );
            router.family.receive( Vantu::IntfId( "eth0" ), packet, message );
            history += tables.registerOif().has( key ) ? "oif" : "";
            history += tables.noRegisterOif().has( key ) ? "no-oif" : "";
            history += tables.drDiscoveredSg().has( key ) ? " dr, " : ", ";
         } );
      EXPECT_EQ( history, isRp ? "no-oif, no-oif, " : "oif dr, no-oif dr, " );
   }
}

INSTANTIATE_TEST_SUITE_P( Routers, ReplayedCaptures, testing::ValuesIn( kRows ),
                          []( const auto& row ) { return row.param.name; } );

}
}
