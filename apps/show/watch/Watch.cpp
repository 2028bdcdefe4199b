#include "apps/show/watch/Watch.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <ctime>

#include "apps/json/ChangeJson.h"
#include "apps/json/ChangeLines.h"
#include "apps/json/YangData.h"
#include "apps/program/Output.h"
#include "apps/program/Printable.h"
#include "apps/show/text/ChangeText.h"
#include "apps/show/watch/WatchScreen.h"
#include "platform/loop/SignalWatcher.h"

namespace Show {

namespace {

// Calls back when standard output has lost its reader.
class HangUp {
 public:
   HangUp( Mox::Loop& loop, Mox::Loop::Function gone )
      : epoll_( epoll_create1( EPOLL_CLOEXEC ), "epoll_create1" ),
        watcher_( loop, epoll_.value(), std::move( gone ) ) {
      // Polls for errors and hang-ups only. A file cannot be polled and has no
      // reader.
      epoll_event none{};
      epoll_ctl( epoll_.value(), EPOLL_CTL_ADD, STDOUT_FILENO, &none );
   }

 private:
   Mox::Loop::Fd epoll_;
   Mox::Loop::FdWatcher watcher_;
};

// The signals wait for the loop, which may be waiting for a reader.
bool askedToEnd() {
   sigset_t waiting;
   sigpending( &waiting );
   return sigismember( &waiting, SIGTERM ) == 1 ||
          sigismember( &waiting, SIGINT ) == 1;
}

// Writes to standard output. Returns false when it has no reader any more, or when
// a signal asks to end while the reader is slow. Throws OutputError.
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

std::string textLine( const Mirror& mirror, const Change& change,
                      const std::string& time ) {
   return Programs::printable( changeText( mirror, change, time ) );
}

std::string jsonLine( const Mirror& mirror, const Change& change,
                      const std::string& time ) {
   return jsonText( changeJson( mirror, change, time ) );
}

}

void watch( Mirrors& mirrors, const RouteFilter& filter, WatchForm form ) {
   // A lost reader shows in the failing write, or in the poll before it.
   std::signal( SIGPIPE, SIG_IGN );
   const HangUp unread( mirrors.loop(), [&] { mirrors.loop().stop(); } );
   Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                            [&]( int ) { mirrors.loop().stop(); } );
   if ( form == watchScreen ) return watchOnScreen( mirrors, filter );
   const ChangeLines lines( mirrors, filter,
                            form == watchJsonLines ? jsonLine : textLine,
                            [&]( std::string_view text ) {
                               if ( !writeOut( text ) ) mirrors.loop().stop();
                            } );
   mirrors.loop().run();
}

}
