// Runs programs as child processes: reads their output while they run, signals
// them, and returns how they ended. Every wait has a deadline and none sleeps. A
// program that still runs is killed with the object, or with the thread that made
// it.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace Mox::Test {

class Program {
 public:
   using Arguments = std::vector<std::string>;

   // Longer than a loaded machine takes with sanitizers.
   static constexpr std::chrono::seconds deadline{ 30 };

   // arguments[0] is the program's path.
   explicit Program( const Arguments& arguments )
      : out_( "pipe" ), err_( "pipe" ), pid_( spawn( arguments ) ) {
      out_.closeWriter();
      err_.closeWriter();
   }
   ~Program() {
      if ( ended_ ) return;
      signal( SIGKILL );
      waitpid( pid_, nullptr, 0 );
   }
   Program( const Program& ) = delete;
   Program& operator=( const Program& ) = delete;

   pid_t pid() const { return pid_; }
   // Its output so far.
   const std::string& out() const { return out_.text; }
   const std::string& err() const { return err_.text; }

   // Closes the reading end of its standard error.
   void closeErr() {
      close( std::exchange( err_.reader, -1 ) );
      err_.open = false;
   }

   void signal( int number ) const { kill( pid_, number ); }

   // Reads on until `holds` returns true. Returns false if it ended or the deadline
   // came before.
   bool until( const std::function<bool()>& holds ) {
      auto end = Clock::now() + deadline;
      while ( !holds() ) {
         if ( !read( end ) ) return holds();
      }
      return true;
   }
   bool untilErr( const std::string& text ) {
      return until( [&] { return err().find( text ) != std::string::npos; } );
   }

   // Waits for its end and returns the exit status, or minus the number of the
   // signal that ended it. Throws at the deadline.
   int wait() {
      auto end = Clock::now() + deadline;
      while ( read( end ) ) continue;
      if ( ended_ ) return status_;
      Pipe handle( static_cast<int>( syscall( SYS_pidfd_open, pid_, 0 ) ) );
      pollfd item{ handle.reader, POLLIN, 0 };
      if ( poll( &item, 1, millisecondsTo( end ) ) != 1 ) {
         throw std::runtime_error( "a program did not end in time" );
      }
      int status = 0;
      waitpid( pid_, &status, 0 );
      ended_ = true;
      status_ = WIFEXITED( status ) ? WEXITSTATUS( status ) : -WTERMSIG( status );
      return status_;
   }

 private:
   using Clock = std::chrono::steady_clock;

   struct Pipe {
      explicit Pipe( int file ) : reader( file ) {}
      explicit Pipe( const char* what ) {
         int ends[2];
         if ( pipe2( ends, O_CLOEXEC ) != 0 ) {
            throw std::system_error( errno, std::generic_category(), what );
         }
         reader = ends[0];
         writer = ends[1];
      }
      ~Pipe() {
         closeWriter();
         if ( reader >= 0 ) close( reader );
      }
      Pipe( const Pipe& ) = delete;
      Pipe& operator=( const Pipe& ) = delete;

      void closeWriter() {
         if ( writer >= 0 ) close( writer );
         writer = -1;
      }

      int reader = -1;
      int writer = -1;
      bool open = true;
      std::string text;
   };

   pid_t spawn( const Arguments& arguments ) {
      std::vector<char*> argv;
      for ( const std::string& text : arguments ) {
         argv.push_back( const_cast<char*>( text.c_str() ) );
      }
      argv.push_back( nullptr );
      pid_t pid = fork();
      if ( pid != 0 ) return pid;
      // Kills the program even if the test is killed first.
      prctl( PR_SET_PDEATHSIG, SIGKILL );
      dup2( out_.writer, STDOUT_FILENO );
      dup2( err_.writer, STDERR_FILENO );
      execv( argv[0], argv.data() );
      _exit( 127 );
   }

   static int millisecondsTo( Clock::time_point end ) {
      auto left =
         std::chrono::ceil<std::chrono::milliseconds>( end - Clock::now() );
      return left.count() > 0 ? static_cast<int>( left.count() ) : 0;
   }

   // Waits for something to read; false when both pipes are closed, or at the end.
   bool read( Clock::time_point end ) {
      if ( !out_.open && !err_.open ) return false;
      pollfd items[] = { { out_.open ? out_.reader : -1, POLLIN, 0 },
                         { err_.open ? err_.reader : -1, POLLIN, 0 } };
      if ( poll( items, 2, millisecondsTo( end ) ) <= 0 ) return false;
      if ( items[0].revents != 0 ) take( out_ );
      if ( items[1].revents != 0 ) take( err_ );
      return true;
   }
   static void take( Pipe& pipe ) {
      char buffer[4096];
      ssize_t count = ::read( pipe.reader, buffer, sizeof buffer );
      if ( count > 0 ) {
         pipe.text.append( buffer, static_cast<size_t>( count ) );
      } else {
         pipe.open = false;
      }
   }

   Pipe out_;
   Pipe err_;
   pid_t pid_;
   bool ended_ = false;
   int status_ = 0;
};

// The kernel's value of a process under the key, or "none".
inline std::string statusLine( pid_t pid, const std::string& key ) {
   std::ifstream status( "/proc/" + std::to_string( pid ) + "/status" );
   for ( std::string line; std::getline( status, line ); ) {
      if ( line.rfind( key + ":", 0 ) == 0 )
         return line.substr( line.find_last_of( " \t" ) + 1 );
   }
   return "none";
}

// The first child of a process; 0 if there is none.
inline pid_t childOf( pid_t parent ) {
   const std::string pid = std::to_string( parent );
   std::ifstream children( "/proc/" + pid + "/task/" + pid + "/children" );
   pid_t child = 0;
   children >> child;
   return child;
}

// The result of a program that ends by itself.
struct Ended {
   int status = 0;
   std::string out;
   std::string err;
};
inline Ended runToEnd( const Program::Arguments& arguments ) {
   Program program( arguments );
   int status = program.wait();
   return { status, program.out(), program.err() };
}

}
