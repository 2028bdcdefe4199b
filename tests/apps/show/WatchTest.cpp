#include "apps/show/Watch.h"

#include <gtest/gtest.h>

#include <chrono>

#include "tests/apps/show/Published.h"

namespace Show {
namespace {

// The tool's side in this process, on the real clock and its loop.
class Watching : public testing::Test {
 protected:
   Watching() { mirrors.load(); }

   // The lines of what comes until there are so many, or the deadline.
   std::string lines( size_t wanted, const RouteFilter& filter = {} ) {
      std::string out;
      const auto end =
         std::chrono::steady_clock::now() + std::chrono::seconds( 30 );
      while ( std::chrono::steady_clock::now() < end ) {
         router.ipv4.manager.dispatch();
         mirrors.loop().dispatch();
         for ( const Change& change : feed.take( filter, mirrors.now() + ahead ) ) {
            out += changeText( feed.mirror(), change, kTime ).substr( 26 ) + '\n';
            json.push_back( changeJson( feed.mirror(), change, kTime ) );
            if ( --wanted == 0 ) return out;
         }
      }
      return out + "deadline\n";
   }

   static constexpr const char* kTime = "2024-05-01T10:00:02.114Z";
   ShownRouter router;
   Mirrors mirrors{ { router.root.path(), "default", Vantu::AddressFamily::ipv4 } };
   ChangeFeed feed{ *mirrors.all()[0], [] {} };
   double ahead = 0.0;  // s, of the real clock
   std::vector<nlohmann::ordered_json> json;
};

TEST_F( Watching, TellsWhatIsNewWhatIsOtherAndWhatWent ) {
   auto sg = router.ipv4.vrf().sg( "198.51.100.7", "239.1.2.3" );
   sg->spTreeIs( false );
   router.ipv4.publish();
   EXPECT_EQ( lines( 1 ), "update (198.51.100.7, 239.1.2.3): is-spt yes -> no\n" );
   EXPECT_EQ(
      json[0].dump(),
      R"({"time":"2024-05-01T10:00:02.114Z","vrf":"default","family":"ipv4",)"
      R"("op":"update","group":"239.1.2.3","source-address":"198.51.100.7",)"
      R"("is-rpt":false,"changed":{"is-spt":[true,false]}})" );
   sg.intf( "eth4" )->forwardIs( false );
   router.ipv4.publish();
   EXPECT_EQ( lines( 1 ),
              "update (198.51.100.7, 239.1.2.3) eth4: forwarding yes -> "
              "no\n" );
   sg.intf( "eth2" )->forwardIs( false );
   sg.intf( "eth5" )->forwardIs( false );
   router.ipv4.vrf()->routeDel( SmTest::wcKey( "239.1.10.1" ) );
   router.ipv4.publish();
   RouteFilter filter;
   filter.iface = "eth5";
   EXPECT_EQ( lines( 1, filter ),
              "update (198.51.100.7, 239.1.2.3) eth5: forwarding "
              "yes -> no\n" );
   router.ipv4.vrf()
      .sg( "198.51.100.9", "239.1.2.3" )
      .rpf( SmTest::rpfBy( "eth9", "203.0.113.132" ) );
   router.ipv4.publish();
   filter.iface = "";
   filter.iif = "eth0";  // where the shared tree comes in
   EXPECT_EQ( lines( 1, filter ),
              "update (198.51.100.9, 239.1.2.3): rpf-neighbor "
              "203.0.113.131 -> 203.0.113.132\n" );
}

TEST_F( Watching, ARestartIsGoneAndBackAndWhatDiffers ) {
   router.ipv4.vrf()->routeDel( SmTest::wcKey( "239.1.10.1" ) );
   router.ipv4.publish();
   router.ipv4.writer.reset();
   router.ipv4.restart.reset();
   router.ipv4.tables.reset();
   EXPECT_EQ( lines( 1 ), "writer-gone\n" );
   router.ipv4.mount();
   EXPECT_EQ( lines( 1 ), "writer-back\n" );
   EXPECT_TRUE( feed.take( {}, mirrors.now() ).empty() ) << "not at once";
   ahead += ChangeFeed::restartPause;
   EXPECT_EQ( lines( 1 ), "delete (*, 239.1.10.1)\n" );
}

// Faster than it is looked at: values are skipped, never the last one, and a line says
// when.
TEST_F( Watching, SaysThatItFellBehind ) {
   auto sg = router.ipv4.vrf().sg( "198.51.100.7", "239.1.2.3" );
   for ( int i = 0; i < 100; ++i ) {
      sg.intf( "eth3" )->forwardIs( i % 2 == 0 );
      router.ipv4.publish();
   }
   sg.intf( "eth3" )->forwardIs( true );
   router.ipv4.publish();
   std::string told = lines( 2 );
   EXPECT_NE( told.find( "sweep: fell behind" ), std::string::npos ) << told;
   EXPECT_NE( told.find( "eth3: forwarding no -> yes\n" ), std::string::npos )
      << told;
}

}
}
