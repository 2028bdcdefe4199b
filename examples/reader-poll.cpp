// Follows an agent's tables on the host's own poll(2): one descriptor, one call.
// Ends when its input ends. usage: reader-poll [DIRECTORY OF THE TABLES]
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "Following.h"

namespace {

// Returns true while the host's own input continues; the example discards it.
bool readOn( int input ) {
   char buffer[256];
   return read( input, buffer, sizeof buffer ) > 0;
}

}

int main( int argc, char** argv ) try {
   Mox::Loop loop;
   Following following( loop,
                        argc > 1 ? argv[1] : Corvex::EntityManager::defaultRoot );
   // [loop]
   pollfd files[] = { { STDIN_FILENO, POLLIN, 0 }, { loop.fd(), POLLIN, 0 } };
   for ( ;; ) {
      if ( poll( files, 2, -1 ) < 0 && errno != EINTR ) return perror( "poll" ), 1;
      if ( files[1].revents != 0 ) loop.dispatch();
      if ( files[0].revents != 0 && !readOn( STDIN_FILENO ) ) return 0;
   }
   // [loop]
} catch ( const std::exception& e ) {
   std::cerr << "reader-poll: " << e.what() << '\n';
   return 1;
}
