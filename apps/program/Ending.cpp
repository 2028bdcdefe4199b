#include "apps/program/Ending.h"

#include <sys/resource.h>

#include <csignal>
#include <iostream>
#include <new>

#include "apps/program/Output.h"
#include "apps/program/Printable.h"
#include "platform/shm/Error.h"

namespace Programs {

namespace {

ExitStatus tried( const char* program, const std::function<ExitStatus()>& work ) {
   try {
      return work();
   } catch ( const WrongUsage& e ) {
      return complain( program, wrongUsage, e.what() );
   } catch ( const HeldByAnother& e ) {
      return complain( program, heldByAnother, e.what() );
   } catch ( const Brane::SecondWriterError& e ) {
      return complain(
         program, heldByAnother,
         std::string( e.what() ) + ": stop it, or name another --root" );
   } catch ( const std::bad_alloc& ) {
      return complain( program, systemRefused, "memory ran out" );
   } catch ( const std::exception& e ) {
      return complain( program, systemRefused, e.what() );
   }
}

// Tables, bells and sockets need a descriptor each, and the soft limit is made for programs
// that use select(). Where it cannot be raised, whoever needs more says so.
void raiseFileLimit() {
   rlimit limit{};
   if ( getrlimit( RLIMIT_NOFILE, &limit ) != 0 ||
        limit.rlim_cur == limit.rlim_max )
      return;
   limit.rlim_cur = limit.rlim_max;
   setrlimit( RLIMIT_NOFILE, &limit );
}

}

ExitStatus complain( const char* program, ExitStatus status,
                     const std::string& text ) {
   std::cerr << program << ": " << printable( text ) << std::endl;
   return status;
}

ExitStatus ending( const char* program, const std::function<ExitStatus()>& work ) {
   std::signal( SIGXFSZ, SIG_IGN );
   raiseFileLimit();
   const ExitStatus status = tried( program, work );
   return tried( program, [&] {
      flushOutput();
      return status;
   } );
}

std::string filled( const std::string& text ) {
   return text.empty() ? "must not be empty" : "";
}

}
