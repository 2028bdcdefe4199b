#include "platform/loop/SignalWatcher.h"

#include <sys/signalfd.h>
#include <unistd.h>

namespace Mox {
namespace {

sigset_t signalSet( std::initializer_list<int> signals ) {
   sigset_t set;
   sigemptyset( &set );
   for ( int signal : signals ) sigaddset( &set, signal );
   return set;
}

}

SignalWatcher::SignalWatcher( Loop& loop, std::initializer_list<int> signals,
                              Handler handler )
   : blocked_( signalSet( signals ) ),
     fd_( signalfd( -1, &blocked_, SFD_CLOEXEC | SFD_NONBLOCK ), "signalfd" ),
     handler_( std::move( handler ) ),
     watcher_( loop, fd_.value(), [this] { readable(); } ) {
   sigset_t former;
   pthread_sigmask( SIG_BLOCK, &blocked_, &former );
   for ( int signal : signals ) {
      if ( sigismember( &former, signal ) == 1 ) sigdelset( &blocked_, signal );
   }
}

// Drains first: a waiting second SIGTERM must not end an orderly shutdown.
SignalWatcher::~SignalWatcher() {
   while ( next() != 0 ) continue;
   pthread_sigmask( SIG_UNBLOCK, &blocked_, nullptr );
}

int SignalWatcher::next() {
   signalfd_siginfo info{};
   ssize_t size = read( fd_.value(), &info, sizeof info );
   return size == sizeof info ? static_cast<int>( info.ssi_signo ) : 0;
}

// One signal a turn, and a copy of the handler, which may destroy the watcher.
void SignalWatcher::readable() {
   Handler handler = handler_;
   int signal = next();
   if ( signal != 0 ) handler( signal );
}

}
