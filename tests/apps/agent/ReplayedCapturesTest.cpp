// Captures of real packets, replayed for routers on their link, packet by packet.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "apps/agent/FamilyInstance.h"
#include "apps/agent/Replay.h"
#include "apps/config/ConfigReader.h"
#include "platform/loop/TestClock.h"
#include "tests/apps/agent/ExpectedRoutes.h"
#include "tests/support/TempRoot.h"

namespace Agent {
namespace {

using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

// A router on the link of a capture, for its packets to be played into.
struct ReplayedFamily {
   explicit ReplayedFamily( const VrfConfig& config )
      : family( config.interfaces[0].addresses[0].address.family(), config, manager,
                real, clock, counters ) {
      while ( !family.router().ready() ) real.runPass();
      family.router().adopt();
   }

   // As assumed for the router's address; small.
   static VrfConfig configFor( const char* router ) {
      VrfConfig config =
         assumedConfig( Vantu::IpGenAddr( Mox::StringView( router ) ) ).vrfs[0];
      config.maxRoutes = config.maxRouteIntfs = 100;
      return config;
   }

   // Each frame at its time, with its number from 1 on; until one fails fatally.
   void play(
      const std::string& path,
      const std::function<void( int number, const Replay::Frame& )>& receive ) {
      Replay replay( { { path, "" } } );
      replay.start( clock, real.now() );
      for ( int number = 1; !replay.atEnd(); ++number ) {
         SCOPED_TRACE( fmt::format( "{} packet {}", path, number ) );
         replay.play(
            clock, [] { return true; },
            [&]( const Replay::Frame& frame ) { receive( number, frame ); } );
         if ( testing::Test::HasFatalFailure() ) return;
      }
   }

   Mox::Test::TempRoot root;
   Mox::TestClock real{ 10000.0 };
   AgentClock clock{ real };
   RouterCounters counters;
   Corvex::EntityManager manager{ real, nullptr, root.path() };
   FamilyInstance family;
};

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
   { "NotToAllRouters", "pim-assortment-a.pcap", "10.0.0.73", false, 0 },
   { "FromAnother", "pim-assortment-a.pcap", "10.0.0.105", false, 12 },
   { "Sender", "pim-assortment-a.pcap", "10.0.0.2", false, 0 },
   // All groups of these are of link-local scope.
   { "Ipv6First", "pim-assortment-a.pcap", "1::9", false, 0 },
   { "Ipv6TooEarly", "pim-assortment-a.pcap", "1::9", true, 0 },
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
      family.router().receive( Vantu::IntfId( "eth0" ), packet, message );
   }

   // As ExpectedRoutes::states().
   std::set<std::string> states() const {
      std::set<std::string> out;
      for ( const Route& route : family.router().model().route() ) {
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

INSTANTIATE_TEST_SUITE_P( Routers, ReplayedCaptures, testing::ValuesIn( kRows ),
                          []( const auto& row ) { return row.param.name; } );

// Groups with the time until which they have members: hosts in these captures want all
// sources or none, and their queriers ask with the default times.
class ExpectedMembers {
 public:
   // "192.0.2.7 IGMPv3 Membership Report 239.1.1.1 TO_EX".
   void receive( const std::string& line, double now ) {
      std::istringstream words( line );
      std::string sender, text, group, record;
      words >> sender;
      for ( std::string word; words >> word; ) {
         if ( word.find( '.' ) != std::string::npos ||
              word.find( ':' ) != std::string::npos ) {
            group = word;
            break;
         }
         text += ( text.empty() ? "" : " " ) + word;
      }
      words >> record;
      if ( group == "0.0.0.0" ) return;
      bool query = text.find( "Query" ) != std::string::npos;
      bool leave = record == "TO_IN" || text.find( "Leave" ) != std::string::npos ||
                   text.find( "Done" ) != std::string::npos;
      if ( !query && refused( group ) ) return;
      if ( query || leave ) {
         auto found = until_.find( group );
         if ( found != until_.end() )
            found->second = std::min( found->second, now + 2 );
      } else {
         until_[group] = now + 260;
      }
   }
   std::set<std::string> at( double now ) {
      std::erase_if( until_, [&]( auto& entry ) { return entry.second <= now; } );
      std::set<std::string> out;
      for ( const auto& [group, until] : until_ ) out.insert( group );
      return out;
   }
   uint64_t linkLocal = 0;
   uint64_t unicast = 0;

 private:
   bool refused( const std::string& group ) {
      bool local =
         group.rfind( "224.0.0.", 0 ) == 0 || group.rfind( "ff02:", 0 ) == 0;
      int first = std::atoi( group.c_str() );
      bool multicast = local || ( first >= 224 && first < 240 );
      linkLocal += local ? 1 : 0;
      unicast += multicast ? 0 : 1;
      return local || !multicast;
   }

   std::map<std::string, double> until_;
};

// `most`: groups at the fullest, counted by hand in the listing.
struct MembersRow {
   const char* capture;
   const char* router;
   size_t most;
};

const MembersRow kMembersRows[] = {
   { "igmpv2.pcap", "192.168.1.99", 4 },
   { "igmpv2-v3.pcap", "192.168.1.99", 1 },
   { "igmpv3-asm.pcap", "20.0.1.99", 3 },
   { "igmpv3-report-sources.pcap", "192.0.2.1", 0 },
   { "mldv1.pcap", "fe80::99", 0 } };

TEST( ReplayedMembership, LeavesTheMembersThatTheListingImplies ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto listed = listedMemberships( *directory );
   for ( const MembersRow& row : kMembersRows ) {
      ReplayedFamily router( ReplayedFamily::configFor( row.router ) );
      auto members = [&] {
         std::set<std::string> out;
         for ( const auto& route : router.family.router().model().route() ) {
            if ( route.routeIntf( Vantu::IntfId( "eth0" ) )
                    ->localReceiverInclude() )
               out.insert( valueToStrep( route.key().group ) );
         }
         return out;
      };
      ExpectedMembers expected;
      size_t most = 0;
      router.play( *directory / row.capture, [&]( int number,
                                                  const Replay::Frame& frame ) {
         IpPacket packet;
         Message message;
         ASSERT_EQ( decodeFrame( frame.link, frame.bytes, packet ), notDropped );
         ASSERT_EQ( decodeMessage( packet, message ), notDropped );
         router.family.router().receive( Vantu::IntfId( "eth0" ), packet, message );
         for ( const std::string& line : listed[row.capture][number] )
            expected.receive( line, frame.elapsed );
         ASSERT_EQ( members(), expected.at( frame.elapsed ) );
         most = std::max( most, members().size() );
      } );
      EXPECT_EQ( most, row.most ) << row.capture;
      EXPECT_EQ( router.counters.refusedCount( linkLocalGroup ),
                 expected.linkLocal );
      EXPECT_EQ( router.counters.refusedCount( notMulticast ), expected.unicast );
      router.real.runUntil( router.real.now() + 261 );
      EXPECT_EQ( members(), std::set<std::string>() ) << row.capture;
   }
}

}
}
