// For a program that runs until it is told to end.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace Mox {

// To be called first of all. From then on the signals wait for their SignalWatcher: one
// that comes while the program starts is served when the loop runs. A reader of its
// output that goes ends nothing; what is said then is lost.
inline void startService( std::initializer_list<int> signals ) {
   sigset_t waiting;
   sigemptyset( &waiting );
   for ( int signal : signals ) sigaddset( &waiting, signal );
   pthread_sigmask( SIG_BLOCK, &waiting, nullptr );
   std::signal( SIGPIPE, SIG_IGN );
   // Else the next file that is opened, a table perhaps, would take the number of a
   // standard file that is closed, and with it whatever is said.
   int file = 0;
   while ( file >= 0 && file <= STDERR_FILENO ) file = open( "/dev/null", O_RDWR );
   if ( file >= 0 ) close( file );
}

}
