#include "apps/mfib/Keeper.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <system_error>

#include "apps/program/Capabilities.h"
#include "platform/loop/SignalWatcher.h"

namespace Forwarding {
namespace {

constexpr int kFirstSocket = 3;       // as sd_listen_fds(3) has it
constexpr size_t kMaxMessage = 4096;  // bytes
constexpr size_t kMaxAttached = 16;   // sockets of one message
constexpr int kNotStarted = 127;
// The limit of a turn; more than the kernel queues (net.unix.max_dgram_qlen).
constexpr unsigned kMaxMessages = 1024;

// Binds to an address of the kernel's choice, without a file.
std::string bindAnywhere( int file ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   socklen_t size = sizeof address.sun_family;
   if ( bind( file, reinterpret_cast<sockaddr*>( &address ), size ) != 0 )
      throw std::system_error( errno, std::generic_category(), "keeper's socket" );
   int on = 1;
   setsockopt( file, SOL_SOCKET, SO_PASSCRED, &on, sizeof on );
   size = sizeof address;
   getsockname( file, reinterpret_cast<sockaddr*>( &address ), &size );
   return "@" + std::string( address.sun_path + 1,
                             size - offsetof( sockaddr_un, sun_path ) - 1 );
}

struct Attached {
   pid_t sender = 0;
   std::vector<SharedFd> sockets;
};

Attached readAttached( msghdr& envelope ) {
   Attached out;
   for ( cmsghdr* part = CMSG_FIRSTHDR( &envelope ); part != nullptr;
         part = CMSG_NXTHDR( &envelope, part ) ) {
      if ( part->cmsg_level != SOL_SOCKET ) continue;
      size_t size = part->cmsg_len - CMSG_LEN( 0 );
      if ( part->cmsg_type == SCM_CREDENTIALS && size >= sizeof( ucred ) ) {
         ucred sender;
         std::memcpy( &sender, CMSG_DATA( part ), sizeof sender );
         out.sender = sender.pid;
      }
      if ( part->cmsg_type != SCM_RIGHTS ) continue;
      for ( size_t at = 0; at + sizeof( int ) <= size; at += sizeof( int ) ) {
         int file = -1;
         std::memcpy( &file, CMSG_DATA( part ) + at, sizeof file );
         out.sockets.push_back(
            std::make_shared<Mox::Loop::Fd>( file, "kept socket" ) );
      }
   }
   return out;
}

}

Keeper::Keeper( Mox::Loop& loop, Mox::Clock& clock,
                std::vector<std::string> program,
                std::function<void( const std::string& )> say )
   : Notifiee( &clock ),
     loop_( loop ),
     program_( std::move( program ) ),
     say_( std::move( say ) ),
     messages_( socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0 ),
                "keeper's socket" ),
     watcher_( loop, messages_.value(), [this] { readMessages(); } ),
     address_( bindAnywhere( messages_.value() ) ) {}

Keeper::~Keeper() = default;

int Keeper::run() {
   Mox::SignalWatcher signals( loop_, { SIGTERM, SIGINT, SIGHUP, SIGCHLD },
                               [this]( int signal ) { handleSignal( signal ); } );
   spawn();
   loop_.run();
   return status_;
}

// A lasting problem is reported once.
void Keeper::onTime() {
   try {
      spawn();
      problem_.clear();
   } catch ( const std::system_error& e ) {
      if ( problem_ != e.what() )
         say_( fmt::format( "{}; trying again", e.what() ) );
      problem_ = e.what();
      wakeupTimeIs( clock()->now() + pause_.next( 0.0 ) );
   }
}

void Keeper::spawn() {
   started_ = clock()->now();
   pid_t parent = getpid();
   pid_t child = fork();
   if ( child < 0 )
      throw std::system_error( errno, std::generic_category(), "fork" );
   if ( child > 0 ) {
      child_ = child;
      return;
   }
   prctl( PR_SET_PDEATHSIG, SIGTERM );
   if ( getppid() != parent ) _exit( kNotStarted );
   becomeProgram();
}

// This process has one thread: calls that are safe before the fork are safe here.
void Keeper::becomeProgram() {
   // The other signals wait until the program handles them.
   sigset_t own;
   sigemptyset( &own );
   sigaddset( &own, SIGCHLD );
   sigprocmask( SIG_UNBLOCK, &own, nullptr );
   // Copies first: a socket may have a number that another one needs.
   std::vector<int> copies;
   std::string names;
   for ( const auto& [name, socket] : kept_ ) {
      copies.push_back( fcntl( socket->value(), F_DUPFD_CLOEXEC,
                               kFirstSocket + static_cast<int>( kept_.size() ) ) );
      names += ( names.empty() ? "" : ":" ) + name;
   }
   int target = kFirstSocket;
   for ( int copy : copies ) dup2( copy, target++ );
   setenv( "NOTIFY_SOCKET", address_.c_str(), 1 );
   setenv( "LISTEN_PID", std::to_string( getpid() ).c_str(), 1 );
   setenv( "LISTEN_FDS", std::to_string( copies.size() ).c_str(), 1 );
   setenv( "LISTEN_FDNAMES", names.c_str(), 1 );
   std::vector<char*> arguments;
   for ( std::string& text : program_ ) arguments.push_back( text.data() );
   arguments.push_back( nullptr );
   execv( arguments[0], arguments.data() );
   _exit( kNotStarted );
}

void Keeper::handleSignal( int signal ) {
   if ( signal != SIGCHLD ) {
      ending_ = ending_ || signal != SIGHUP;
      if ( child_ != 0 ) {
         kill( child_, signal );
      } else if ( ending_ ) {
         loop_.stop();
      }
      return;
   }
   int status = 0;
   if ( child_ == 0 || waitpid( child_, &status, WNOHANG ) != child_ ) return;
   // The program's last messages still count.
   readMessages();
   child_ = 0;
   handleEnd( status );
}

void Keeper::handleEnd( int status ) {
   bool died = WIFSIGNALED( status );
   status_ = died ? 128 + WTERMSIG( status ) : WEXITSTATUS( status );
   if ( ending_ || status_ == 0 || !wasReady_ ) {
      loop_.stop();
      return;
   }
   double pause = pause_.next( clock()->now() - started_ );
   say_( fmt::format( "{} {}; starting again{} with {} kept sockets",
                      died ? "ended by signal" : "failed with status",
                      died ? WTERMSIG( status ) : status_,
                      pause == 0.0 ? "" : fmt::format( " in {:.1f} s", pause ),
                      kept_.size() ) );
   wakeupTimeIs( clock()->now() + pause );
}

void Keeper::readMessages() {
   for ( unsigned count = 0; count < kMaxMessages && readMessage(); ) ++count;
}

// Returns false without a message.
bool Keeper::readMessage() {
   char text[kMaxMessage];
   alignas( cmsghdr ) char control[CMSG_SPACE( sizeof( ucred ) ) +
                                   CMSG_SPACE( kMaxAttached * sizeof( int ) )];
   iovec part = { text, sizeof text };
   msghdr envelope{};
   envelope.msg_iov = &part;
   envelope.msg_iovlen = 1;
   envelope.msg_control = control;
   envelope.msg_controllen = sizeof control;
   ssize_t count = recvmsg( messages_.value(), &envelope, MSG_CMSG_CLOEXEC );
   if ( count < 0 ) return false;
   Attached attached = readAttached( envelope );
   // Any process on the host may write to the address.
   bool whole = ( envelope.msg_flags & ( MSG_TRUNC | MSG_CTRUNC ) ) == 0;
   if ( child_ != 0 && attached.sender == child_ && whole ) {
      handleMessage( std::string( text, static_cast<size_t>( count ) ),
                     std::move( attached.sockets ) );
   }
   return true;
}

void Keeper::handleMessage( const std::string& text,
                            std::vector<SharedFd> sockets ) {
   std::map<std::string, std::string> fields;
   std::istringstream lines( text );
   for ( std::string line; std::getline( lines, line ); ) {
      size_t equals = line.find( '=' );
      if ( equals != std::string::npos )
         fields[line.substr( 0, equals )] = line.substr( equals + 1 );
   }
   const std::string& name = fields["FDNAME"];
   if ( fields["FDSTOREREMOVE"] == "1" ) kept_.erase( name );
   bool fits = kept_.size() < maxSockets || kept_.count( name ) != 0;
   if ( fields["FDSTORE"] == "1" && sockets.size() == 1 && fits &&
        name.find( ':' ) == std::string::npos )
      kept_[name] = sockets.front();
   if ( fields["READY"] == "1" && !std::exchange( wasReady_, true ) )
      Programs::dropCapabilities();
}

}
