#include "apps/fleet/serve/detail/Child.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "apps/fleet/serve/Layout.h"

namespace Fleet {

namespace {

constexpr rlim_t kSeconds = 5;
constexpr rlim_t kMemory = 512ULL << 20U;
constexpr size_t kLargestAnswer = 16ULL << 20U;  // bytes

std::string found( const std::string& program ) {
   const char* path = std::getenv( "PATH" );
   std::istringstream folders( path == nullptr ? "/usr/bin" : path );
   for ( std::string folder; std::getline( folders, folder, ':' ); ) {
      const std::string file = folder + '/' + program;
      if ( access( file.c_str(), X_OK ) == 0 ) return file;
   }
   throw NoLayout( "the program " + program +
                   " is missing; install the package graphviz" );
}

void limit( __rlimit_resource what, rlim_t most ) {
   const rlimit limits{ most, most };
   setrlimit( what, &limits );
}

// In the child of a process with threads: system calls only.
[[noreturn]] void become( const char* file, char* const* arguments, int socket ) {
   prctl( PR_SET_PDEATHSIG, SIGKILL );
   limit( RLIMIT_CPU, kSeconds );
   limit( RLIMIT_AS, kMemory );
   limit( RLIMIT_CORE, 0 );
   limit( RLIMIT_FSIZE, 0 );
   dup2( socket, STDIN_FILENO );
   dup2( socket, STDOUT_FILENO );
   dup2( open( "/dev/null", O_WRONLY ), STDERR_FILENO );
   close_range( 3, ~0U, 0 );
   execv( file, arguments );
   _exit( 127 );
}

class Child {
 public:
   Child( const std::string& file, const char* argument ) {
      std::array<int, 2> ends{};
      if ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data() ) != 0 )
         throw NoLayout( std::string( "no socket: " ) + std::strerror( errno ) );
      std::string name = file, option = argument;
      std::array<char*, 3> arguments{ name.data(), option.data(), nullptr };
      process_ = fork();
      if ( process_ == 0 ) become( file.c_str(), arguments.data(), ends[1] );
      const int error = errno;
      close( ends[1] );
      socket_ = ends[0];
      if ( process_ > 0 ) return;
      close( socket_ );
      throw NoLayout( std::string( "no process: " ) + std::strerror( error ) );
   }
   ~Child() {
      close( socket_ );
      kill( process_, SIGKILL );
      waitpid( process_, nullptr, 0 );
   }
   Child( const Child& ) = delete;
   Child& operator=( const Child& ) = delete;

   int socket() const { return socket_; }

 private:
   pid_t process_ = 0;
   int socket_ = -1;
};

// Writes and reads at once: neither may fill up while the other is waited for.
std::string exchanged( int socket, const std::string& input ) {
   using Clock = std::chrono::steady_clock;
   const auto until = Clock::now() + std::chrono::seconds( kSeconds );
   std::string output;
   size_t sent = 0;
   for ( ;; ) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
         until - Clock::now() );
      const bool sends = sent < input.size();
      pollfd ready{ socket, static_cast<short>( POLLIN | ( sends ? POLLOUT : 0 ) ),
                    0 };
      if ( left.count() <= 0 ||
           poll( &ready, 1, static_cast<int>( left.count() ) ) == 0 )
         throw NoLayout( "Graphviz did not get done in 5 s" );
      if ( ( ready.revents & POLLOUT ) != 0 ) {
         const ssize_t count =
            send( socket, input.data() + sent, input.size() - sent,
                  MSG_NOSIGNAL | MSG_DONTWAIT );
         if ( count > 0 ) sent += static_cast<size_t>( count );
         if ( sent == input.size() ) shutdown( socket, SHUT_WR );
      }
      if ( ( ready.revents & ( POLLIN | POLLHUP | POLLERR ) ) == 0 ) continue;
      std::array<char, 65536> bytes;
      const ssize_t count =
         recv( socket, bytes.data(), bytes.size(), MSG_DONTWAIT );
      if ( count < 0 && ( errno == EAGAIN || errno == EINTR ) ) continue;
      if ( count <= 0 ) return output;
      output.append( bytes.data(), static_cast<size_t>( count ) );
      if ( output.size() > kLargestAnswer )
         throw NoLayout( "Graphviz answers too much" );
   }
}

}

std::string childsAnswer( const std::string& program, const char* argument,
                          const std::string& input ) {
   const Child child( found( program ), argument );
   return exchanged( child.socket(), input );
}

}
