#include "apps/show/watch/StandardOutput.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>

#include "apps/program/Output.h"

namespace Show {

namespace {

// The signals wait for the loop, which may be waiting for a reader.
bool askedToEnd() {
   sigset_t waiting;
   sigpending( &waiting );
   return sigismember( &waiting, SIGTERM ) == 1 ||
          sigismember( &waiting, SIGINT ) == 1;
}

}

bool writeOut( std::string_view text ) {
   constexpr int kPatience = 200;  // ms, to look at signals
   while ( !text.empty() ) {
      pollfd out{ STDOUT_FILENO, POLLOUT, 0 };
      if ( poll( &out, 1, kPatience ) <= 0 ) {
         if ( askedToEnd() ) return false;
         continue;
      }
      // The part that a pipe with room takes without waiting.
      const ssize_t written = write( STDOUT_FILENO, text.data(),
                                     std::min<size_t>( text.size(), PIPE_BUF ) );
      if ( written >= 0 ) {
         text.remove_prefix( static_cast<size_t>( written ) );
      } else if ( errno == EPIPE ) {
         return false;
      } else if ( errno != EINTR && errno != EAGAIN ) {
         Programs::cannotWrite( "the output" );
      }
   }
   return true;
}

}
