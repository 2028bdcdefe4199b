// Servers of NATS with streams, on free ports of the loopback address, with their files
// in a directory of their own; killed with the object.
#pragma once

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Program.h"
#include "tests/support/TempRoot.h"

namespace Mox::Test {

class NatsServers {
 public:
   // Whether a program of them is there: where tools/install-dependencies unpacks it, or
   // installed.
   static std::string program() {
      for ( const char* path :
            { PIMSM_NATS_SERVER, "/usr/sbin/nats-server", "/usr/bin/nats-server" } )
         if ( access( path, X_OK ) == 0 ) return path;
      return "";
   }

   // `more`: text for the configuration of each. Their directory is made in `in`.
   explicit NatsServers( size_t count, std::string more = "",
                         const std::string& in = "/dev/shm" )
      : root_( TempRoot::InDirectory{ in } ), more_( std::move( more ) ) {
      for ( size_t i = 0; i < 2 * count; ++i ) ports_.push_back( freePort() );
      for ( int socket : sockets_ ) close( socket );
      running_.resize( count );
      for ( size_t i = 0; i < count; ++i ) start( i );
      for ( size_t i = 0; i < count; ++i ) untilReady( i );
   }

   size_t size() const { return running_.size(); }
   std::string url() const {
      std::string text = "nats://";
      for ( size_t i = 0; i < size(); ++i )
         text += ( i == 0 ? "" : "," ) + where( ports_[i] );
      return text;
   }
   int port( size_t i ) const { return ports_[i]; }
   const std::string& directory() const { return root_.path(); }

   void kill( size_t i ) {
      running_[i]->signal( SIGKILL );
      running_[i]->wait();
   }
   void signal( size_t i, int number ) { running_[i]->signal( number ); }
   void start( size_t i ) {
      removeIndexes( i );
      const std::string path = fmt::format( "{}/{}.conf", directory(), i );
      std::ofstream( path ) << configuration( i );
      running_[i] =
         std::make_unique<Program>( Program::Arguments{ program(), "-c", path } );
   }
   void untilReady( size_t i ) {
      if ( !running_[i]->untilErr( "Server is ready" ) )
         throw std::runtime_error( "no server of NATS: " + running_[i]->err() );
   }

 private:
   static std::string where( int port ) {
      return "127.0.0.1:" + std::to_string( port );
   }

   // A server of 2.9 that was killed may trust an index by subject that is behind its
   // messages, and then never finds them by name; without one it makes it anew.
   void removeIndexes( size_t i ) const {
      namespace fs = std::filesystem;
      const fs::path files = fmt::format( "{}/{}", directory(), i );
      if ( !fs::exists( files ) ) return;
      for ( const auto& each : fs::recursive_directory_iterator( files ) )
         if ( each.path().extension() == ".fss" ) fs::remove( each.path() );
   }

   // All are held until all are known.
   int freePort() {
      const int socket = ::socket( AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0 );
      sockets_.push_back( socket );
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_addr.s_addr = htonl( INADDR_LOOPBACK );
      socklen_t length = sizeof address;
      if ( bind( socket, reinterpret_cast<sockaddr*>( &address ), length ) != 0 ||
           getsockname( socket, reinterpret_cast<sockaddr*>( &address ),
                        &length ) != 0 )
         throw std::runtime_error( "no free port" );
      return ntohs( address.sin_port );
   }

   std::string configuration( size_t i ) const {
      std::string text = fmt::format(
         "server_name: n{0}\nlisten: \"{1}\"\n"
         "jetstream {{ store_dir: \"{2}/{0}\", max_file_store: 4GB,"
         " max_memory_store: 64MB }}\n",
         i, where( ports_[i] ), directory() );
      if ( size() > 1 ) {
         text += fmt::format( "cluster {{ name: c, listen: \"{}\", routes: [",
                              where( ports_[size() + i] ) );
         for ( size_t other = 0; other < size(); ++other )
            text += fmt::format( "{}\"nats://{}\"", other == 0 ? "" : ", ",
                                 where( ports_[size() + other] ) );
         text += "] }\n";
      }
      return text + more_;
   }

   TempRoot root_;
   std::string more_;
   std::vector<int> ports_, sockets_;
   std::vector<std::unique_ptr<Program>> running_;
};

}
