// What a client meets that is slow, or one of many. The transcript `serve` has the
// answers themselves.
#include "apps/show/metrics/MetricsServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "apps/program/Ending.h"
#include "platform/loop/TestClock.h"

namespace Show {
namespace {

class ServedMetrics : public testing::Test {
 protected:
   ~ServedMetrics() override {
      for ( int each : open ) close( each );
   }
   int connected() {
      sockaddr_in to{};
      to.sin_family = AF_INET;
      const std::string& at = server.address();
      to.sin_port = htons(
         static_cast<uint16_t>( std::stoi( at.substr( at.rfind( ':' ) + 1 ) ) ) );
      to.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      const int file = socket( AF_INET, SOCK_STREAM, 0 );
      EXPECT_EQ( connect( file, reinterpret_cast<sockaddr*>( &to ), sizeof to ),
                 0 );
      open.push_back( file );
      return file;
   }
   void turns() {
      for ( int i = 0; i < 200; ++i ) {
         loop.dispatch();
         clock.runPass();
      }
   }
   // All that has come until now; "closed" where the server has ended it.
   static std::string heard( int file ) {
      std::string text( 1 << 20, ' ' );
      const ssize_t count = recv( file, text.data(), text.size(), MSG_DONTWAIT );
      if ( count == 0 ) return "closed";
      text.resize( count < 0 ? 0 : static_cast<size_t>( count ) );
      return text;
   }
   static void say( int file, const std::string& text ) {
      EXPECT_EQ( send( file, text.data(), text.size(), MSG_NOSIGNAL ),
                 static_cast<ssize_t>( text.size() ) );
   }

   Mox::Loop loop;
   Mox::TestClock clock{ 1000.0 };
   int pages = 0;
   MetricsServer server{ loop, clock, "0",
                         [this] { return "page " + std::to_string( ++pages ); } };
   std::vector<int> open;
};

TEST_F( ServedMetrics, SlowClientsGoAndThoseThatWaitedCome ) {
   std::vector<int> idle;
   for ( size_t i = 0; i < MetricsServer::maxClients; ++i )
      idle.push_back( connected() );
   turns();
   const int late = connected();
   say( late, "GET /metrics HTTP/1.1\r\n\r\n" );
   turns();
   EXPECT_EQ( heard( late ), "" ) << "all places are taken";
   say( idle[1], "GET /metrics HTTP/1.1\r\n" );
   clock.nowIs( clock.now() + MetricsServer::patience + 1 );
   turns();
   EXPECT_EQ( heard( idle[0] ), "closed" );
   EXPECT_EQ( heard( idle[1] ), "closed" ) << "a request in the making";
   EXPECT_NE( heard( late ).find( "200 OK" ), std::string::npos );
}

TEST_F( ServedMetrics, APageIsMadeOnceASecond ) {
   const auto page = [this] {
      const int client = connected();
      // In parts, as networks deliver it.
      for ( const char* part :
            { "GET /met", "rics HTTP/1.1\r\nHo", "st: x\r\n\r", "\n" } ) {
         say( client, part );
         turns();
      }
      const std::string text = heard( client );
      return text.substr( text.rfind( '\n' ) + 1 );
   };
   EXPECT_EQ( page(), "page 1" );
   EXPECT_EQ( page(), "page 1" );
   clock.nowIs( clock.now() + 1.0 );
   EXPECT_EQ( page(), "page 2" );
}

TEST_F( ServedMetrics, AnAddressIsWhole ) {
   for ( const char* where :
         { "", ":", ":80", "80x", "65536", "localhost:80", "::1:80", "[::1]",
           "[127.0.0.1]:80", "192.0.2.77:0" } )
      EXPECT_THROW( MetricsServer( loop, clock, where, [] { return ""; } ),
                    Programs::WrongUsage )
         << where;
   EXPECT_THROW( MetricsServer( loop, clock, server.address(), [] { return ""; } ),
                 Programs::WrongUsage )
      << "in use";
}

}
}
