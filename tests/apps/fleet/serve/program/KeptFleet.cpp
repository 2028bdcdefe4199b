// A fleet that is recorded and changes line by line: kept-fleet DIRECTORY FILE. The file has
// the lines of tests/apps/fleet/path/Fixture.h for the stream (198.51.100.7, 239.1.2.3).
// "tree ROUTERS" as its only line makes a tree of that many, three below each. Then each
// line on standard input changes something, and "kept" says so:
//    r2 sg: OLD => NEW      a text in the lines that begin so
//    put r1 KEY VALUE
//    tell r2 BODY           a line of the stream's history, JSON

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <sstream>

#include "tests/apps/fleet/path/Fixture.h"

namespace {

using namespace Fleet;
using Lines = std::vector<std::string>;

const RouteKey kStream{ Vantu::IpGenAddr( "198.51.100.7" ),
                        Vantu::IpGenAddr( "239.1.2.3" ) };

// Of links 10.X.Y.0 above each router but the first.
Lines treeOf( unsigned routers ) {
   const auto address = []( unsigned link, unsigned end ) {
      return fmt::format( "10.{}.{}.{}", link / 256, link % 256, end );
   };
   Lines lines{ "link /24 r0.eth0 198.51.100.1" };
   for ( unsigned i = 0; i < routers; ++i ) {
      std::string route =
         i == 0 ? "r0 sg in eth0 attached;"
                : fmt::format( "r{} sg in eth0 via {};", i, address( i, 1 ) );
      for ( unsigned port = 1; port <= 3; ++port ) {
         const unsigned below = 3 * i + port;
         if ( below < routers ) {
            lines.push_back( fmt::format( "link /24 r{}.eth{} {} r{}.eth0 {}", i,
                                          port, address( below, 1 ), below,
                                          address( below, 2 ) ) );
            route += fmt::format( " eth{} join,", port );
         } else if ( port == 1 ) {
            lines.push_back( fmt::format( "link /24 r{}.eth1 172.{}.{}.1", i,
                                          i / 256, i % 256 ) );
            route += " eth1 member,";
         }
      }
      route.pop_back();
      lines.push_back( route );
   }
   return lines;
}

Lines linesOf( const std::string& file ) {
   Lines lines;
   std::ifstream in( file );
   for ( std::string line; std::getline( in, line ); ) lines.push_back( line );
   if ( lines.size() == 1 && lines[0].starts_with( "tree " ) )
      return treeOf( static_cast<unsigned>( std::stoul( lines[0].substr( 5 ) ) ) );
   return lines;
}

// Like "r2 sg: eth1 join => eth1 off": in the lines that begin so.
void replace( Lines& lines, const std::string& order ) {
   const size_t colon = order.find( ": " ), arrow = order.find( " => " );
   const std::string begin = order.substr( 0, colon );
   const std::string before = order.substr( colon + 2, arrow - colon - 2 );
   const std::string after = order.substr( arrow + 4 );
   for ( std::string& line : lines ) {
      const size_t at = line.find( before );
      if ( line.starts_with( begin ) && at != std::string::npos )
         line.replace( at, before.size(), after );
   }
}

Event eventOf( const std::string& body ) {
   Event event;
   event.at = std::chrono::duration_cast<std::chrono::milliseconds>(
                 std::chrono::system_clock::now().time_since_epoch() )
                 .count();
   event.vrf = "default";
   event.ipVersion = 4;
   event.group = Vantu::valueToStrep( kStream.group );
   event.source = Vantu::valueToStrep( kStream.source );
   event.op = body.find( "\"op\":\"log\"" ) == std::string::npos ? "update" : "log";
   event.body = body;
   return event;
}

// A line of standard input; meanwhile the recorders live.
bool heard( Test::Fixture& fleet, std::string& line ) {
   pollfd input{ STDIN_FILENO, POLLIN, 0 };
   while ( std::cin.rdbuf()->in_avail() == 0 && poll( &input, 1, 3000 ) == 0 )
      fleet.beat();
   return bool( std::getline( std::cin, line ) );
}

}

int main( int argc, char** argv ) {
   if ( argc != 3 ) return 2;
   std::ios::sync_with_stdio( false );  // so that it says what it has read already
   Lines lines = linesOf( argv[2] );
   Test::Fixture fleet( argv[1], lines, kStream );
   std::cout << "kept" << std::endl;
   for ( std::string line; heard( fleet, line ); ) {
      if ( line.starts_with( "tell " ) ) {
         const std::string router = line.substr( 5, line.find( ' ', 5 ) - 5 );
         fleet.tell( router, eventOf( line.substr( 6 + router.size() ) ) );
      } else if ( line.starts_with( "put " ) ) {
         std::istringstream in( line.substr( 4 ) );
         std::string router, key, value;
         in >> router >> key >> value;
         fleet.put( router, key, value );
      } else {
         replace( lines, line );
         fleet.change( lines, kStream );
      }
      std::cout << "kept" << std::endl;
   }
}
