// The start-up of a program that runs until a signal ends it.
#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

namespace Mox {

// Call this first of all. From then on the signals wait for their SignalWatcher: a
// signal during start-up is served when the loop runs. A closed output pipe does
// not end the program; what it prints then is lost.
inline void startService( std::initializer_list<int> signals ) {
   sigset_t waiting;
   sigemptyset( &waiting );
   for ( int signal : signals ) sigaddset( &waiting, signal );
   pthread_sigmask( SIG_BLOCK, &waiting, nullptr );
   std::signal( SIGPIPE, SIG_IGN );
   // Opens the standard files that are closed. Otherwise the next file opened,
   // perhaps a table, would take such a number and receive the program's messages.
   int file = 0;
   while ( file >= 0 && file <= STDERR_FILENO ) file = open( "/dev/null", O_RDWR );
   if ( file >= 0 ) close( file );
}

}
