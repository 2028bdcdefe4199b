// A proxy before a server of NATS that kills a recorder between two things that it does.
#pragma once

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

namespace Routing::Pim::SparseMode {

class NatsCut {
 public:
   enum Point {
      eventSent,    // lines went to the server, and no answer came back
      eventStored,  // they were acknowledged, and no state of them went out
      stateSent     // state went out, and no answer came back
   };

   explicit NatsCut( int port ) : server_( port ) {
      listener_ = socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      sockaddr_in address = loopback( 0 );
      socklen_t length = sizeof address;
      if ( bind( listener_, reinterpret_cast<sockaddr*>( &address ), length ) !=
              0 ||
           listen( listener_, 4 ) != 0 ||
           getsockname( listener_, reinterpret_cast<sockaddr*>( &address ),
                        &length ) != 0 )
         throw std::runtime_error( "no proxy" );
      port_ = ntohs( address.sin_port );
      thread_ = std::thread( [this] { run(); } );
   }
   ~NatsCut() {
      ending_ = true;
      thread_.join();
      close( listener_ );
   }
   NatsCut( const NatsCut& ) = delete;
   NatsCut& operator=( const NatsCut& ) = delete;

   std::string url() const { return fmt::format( "nats://127.0.0.1:{}", port_ ); }
   // Kills it at that point of a batch, after so many others.
   void arm( Point point, unsigned after, pid_t pid ) {
      point_ = point;
      after_ = after;
      pid_ = pid;
   }
   // Messages with routes that passed.
   uint64_t states() const { return states_; }

 private:
   static sockaddr_in loopback( int port ) {
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      address.sin_port = htons( static_cast<uint16_t>( port ) );
      return address;
   }
   static void forward( int to, std::string_view text ) {
      while ( !text.empty() ) {
         const ssize_t sent = send( to, text.data(), text.size(), MSG_NOSIGNAL );
         if ( sent <= 0 ) return;
         text.remove_prefix( static_cast<size_t>( sent ) );
      }
   }

   void run() {
      while ( !ending_ ) {
         pollfd item{ listener_, POLLIN, 0 };
         if ( poll( &item, 1, 100 ) != 1 ) continue;
         const int client = accept4( listener_, nullptr, nullptr, SOCK_CLOEXEC );
         const int server = socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
         sockaddr_in address = loopback( server_ );
         if ( connect( server, reinterpret_cast<sockaddr*>( &address ),
                       sizeof address ) == 0 )
            serve( client, server );
         close( client );
         close( server );
      }
   }

   void serve( int client, int server ) {
      char buffer[1 << 16];
      while ( !ending_ ) {
         pollfd items[] = { { client, POLLIN, 0 }, { server, POLLIN, 0 } };
         if ( poll( items, 2, 100 ) <= 0 ) continue;
         for ( const pollfd& item : items ) {
            if ( item.revents == 0 ) continue;
            const ssize_t count = read( item.fd, buffer, sizeof buffer );
            if ( count <= 0 ) return;
            const std::string_view text( buffer, static_cast<size_t>( count ) );
            if ( item.fd == server )
               forward( client, text );
            else if ( !pass( server, text ) )
               return;
         }
      }
   }

   // False when the recorder is to go, and has gone.
   bool pass( int server, std::string_view text ) {
      const size_t event = text.find( "HPUB pimsm." );
      const size_t state =
         text.find( ".route.", text.find( "HPUB $KV.pimsm-state" ) );
      for ( size_t at = 0; ( at = text.find( "HPUB $KV", at ) ) != text.npos; ++at )
         states_ +=
            text.substr( at, text.find( '\n', at ) - at ).find( ".route." ) !=
            text.npos;
      const pid_t pid = pid_;
      const bool is = ( point_ == eventSent ? event : state ) != text.npos;
      if ( pid == 0 || !is || --after_ != 0 ) {
         forward( server, text );
         return true;
      }
      if ( point_ != eventStored ) forward( server, text );
      kill( pid, SIGKILL );
      pid_ = 0;
      return false;
   }

   int server_, listener_ = -1, port_ = 0;
   std::atomic<bool> ending_ = false;
   std::atomic<Point> point_ = eventSent;
   std::atomic<unsigned> after_ = 0;
   std::atomic<pid_t> pid_ = 0;
   std::atomic<uint64_t> states_ = 0;
   std::thread thread_;
};

}
