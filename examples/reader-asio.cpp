// Follows an agent's tables on a host's Boost.Asio loop. Ends by SIGINT or SIGTERM.
// usage: reader-asio [DIRECTORY OF THE TABLES]
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>

#include "Following.h"

namespace asio = boost::asio;

// [loop]
// Serves the loop whenever its descriptor is readable.
void serve( asio::posix::stream_descriptor& descriptor, Mox::Loop& loop ) {
   descriptor.async_wait( asio::posix::stream_descriptor::wait_read,
                          [&]( const boost::system::error_code& error ) {
                             if ( error ) return;
                             loop.dispatch();
                             serve( descriptor, loop );
                          } );
}

int main( int argc, char** argv ) try {
   Mox::Loop loop;
   Following following( loop,
                        argc > 1 ? argv[1] : Corvex::EntityManager::defaultRoot );
   asio::io_context host( 1 );
   asio::posix::stream_descriptor descriptor( host, loop.fd() );
   serve( descriptor, loop );
   asio::signal_set ends( host, SIGINT, SIGTERM );
   ends.async_wait( [&]( const boost::system::error_code&, int ) { host.stop(); } );
   host.run();
   descriptor.release();  // the descriptor is the loop's
   // [loop]
} catch ( const std::exception& e ) {
   std::cerr << "reader-asio: " << e.what() << '\n';
   return 1;
}
