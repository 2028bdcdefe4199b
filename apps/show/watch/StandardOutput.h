// Standard output of a command that runs until it is left.
#pragma once

#include <sys/epoll.h>

#include <string_view>

#include "platform/loop/Loop.h"

namespace Show {

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

// Writes to standard output. Returns false when it has no reader any more, or when
// a signal asks to end while the reader is slow. Throws OutputError.
bool writeOut( std::string_view text );

}
