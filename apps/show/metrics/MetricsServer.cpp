#include "apps/show/metrics/MetricsServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "apps/program/Ending.h"
#include "apps/show/metrics/HttpExchange.h"

namespace Show {

namespace {

constexpr double kLook = 1.0;  // s, between two looks for clients that are too slow

union Address {
   sockaddr any;
   sockaddr_in ipv4;
   sockaddr_in6 ipv6;
};

[[noreturn]] void refuse( const std::string& where ) {
   throw Programs::WrongUsage( where +
                               " is neither a port nor ADDRESS:PORT, such as "
                               "127.0.0.1:9108 or [::1]:9108" );
}

Address addressOf( const std::string& where ) {
   const size_t colon = where.rfind( ':' );
   const bool portOnly = colon == std::string::npos;
   std::string host = portOnly ? "127.0.0.1" : where.substr( 0, colon );
   const std::string port = portOnly ? where : where.substr( colon + 1 );
   uint16_t number = 0;
   const auto [end, error] =
      std::from_chars( port.data(), port.data() + port.size(), number );
   if ( port.empty() || error != std::errc() || end != port.data() + port.size() )
      refuse( where );
   Address address{};
   if ( inet_pton( AF_INET, host.c_str(), &address.ipv4.sin_addr ) == 1 ) {
      address.ipv4.sin_family = AF_INET;
      address.ipv4.sin_port = htons( number );
      return address;
   }
   const bool bracketed =
      host.size() > 2 && host.front() == '[' && host.back() == ']';
   if ( bracketed ) host = host.substr( 1, host.size() - 2 );
   if ( !bracketed ||
        inet_pton( AF_INET6, host.c_str(), &address.ipv6.sin6_addr ) != 1 )
      refuse( where );
   address.ipv6.sin6_family = AF_INET6;
   address.ipv6.sin6_port = htons( number );
   return address;
}

std::string textOf( const Address& address ) {
   std::array<char, INET6_ADDRSTRLEN> host{};
   if ( address.any.sa_family == AF_INET ) {
      inet_ntop( AF_INET, &address.ipv4.sin_addr, host.data(), host.size() );
      return std::string( host.data() ) + ':' +
             std::to_string( ntohs( address.ipv4.sin_port ) );
   }
   inet_ntop( AF_INET6, &address.ipv6.sin6_addr, host.data(), host.size() );
   return '[' + std::string( host.data() ) +
          "]:" + std::to_string( ntohs( address.ipv6.sin6_port ) );
}

int listenAt( Address& address, const std::string& where ) {
   const int file = socket( address.any.sa_family,
                            SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0 );
   const int on = 1;
   socklen_t size = address.any.sa_family == AF_INET ? sizeof( sockaddr_in )
                                                     : sizeof( sockaddr_in6 );
   const bool made =
      file >= 0 &&
      setsockopt( file, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on ) == 0 &&
      bind( file, &address.any, size ) == 0 && listen( file, SOMAXCONN ) == 0 &&
      getsockname( file, &address.any, &size ) == 0;
   if ( made ) return file;
   const std::string why = std::strerror( errno );
   if ( file >= 0 ) close( file );
   throw Programs::WrongUsage( "cannot listen at " + where + ": " + why );
}

}

// A connection: its request is read, then its answer is written, then the rest of the
// request is read away: closed before that, the kernel would take the answer back.
class MetricsServer::Client {
 public:
   Client( MetricsServer& server, int file, double until )
      : server_( server ),
        socket_( file, "accept4" ),
        until_( until ),
        watcher_(
           server.loop_, file, [this] { handleReadable(); },
           [this] { handleWritable(); } ) {
      watcher_.writeWantedIs( false );
   }

   double until() const { return until_; }
   bool ended() const { return ended_; }
   void end() { ended_ = true; }

 private:
   void handleReadable() {
      std::array<char, 4096> bytes;
      const ssize_t count = read( socket_.value(), bytes.data(), bytes.size() );
      if ( count < 0 && ( errno == EAGAIN || errno == EINTR ) ) return;
      if ( count <= 0 ) return finish();
      if ( sent_ != 0 ) return;
      if ( !exchange_.take( { bytes.data(), static_cast<size_t>( count ) } ) )
         return;
      watcher_.readWantedIs( false );
      watcher_.writeWantedIs( true );
      answer_ = exchange_.answer( [this] { return server_.page(); } );
   }

   void handleWritable() {
      const ssize_t count = send( socket_.value(), answer_.data() + sent_,
                                  answer_.size() - sent_, MSG_NOSIGNAL );
      if ( count < 0 && ( errno == EAGAIN || errno == EINTR ) ) return;
      if ( count < 0 ) return finish();
      sent_ += static_cast<size_t>( count );
      if ( sent_ != answer_.size() ) return;
      shutdown( socket_.value(), SHUT_WR );
      watcher_.writeWantedIs( false );
      watcher_.readWantedIs( true );
   }

   // It goes in a later turn: this is one of its callbacks.
   void finish() {
      ended_ = true;
      server_.loop_.post( [&server = server_] { server.removeEnded(); } );
   }

   MetricsServer& server_;
   Mox::Loop::Fd socket_;
   HttpExchange exchange_;
   std::string answer_;
   size_t sent_ = 0;
   double until_;
   bool ended_ = false;
   Mox::Loop::FdWatcher watcher_;
};

MetricsServer::MetricsServer( Mox::Loop& loop, Mox::Clock& clock,
                              const std::string& where,
                              std::function<std::string()> page )
   : Notifiee( &clock ), loop_( loop ), makePage_( std::move( page ) ) {
   Address address = addressOf( where );
   socket_.emplace( listenAt( address, where ), "listen" );
   address_ = textOf( address );
   listening_.emplace( loop_, socket_->value(), [this] { accept(); } );
}

MetricsServer::~MetricsServer() = default;

// Several clients at once get one text.
std::string MetricsServer::page() {
   const double now = clock()->now();
   if ( !pageTime_ || now - *pageTime_ >= freshness ) {
      page_ = makePage_();
      pageTime_ = now;
   }
   return page_;
}

void MetricsServer::accept() {
   const int file =
      accept4( socket_->value(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC );
   // A client that went meanwhile leaves no connection; without a file to be had the
   // next look tries again.
   const bool full = clients_.size() + 1 >= maxClients;
   if ( full || ( file < 0 && ( errno == EMFILE || errno == ENFILE ) ) )
      listening_->readWantedIs( false );
   if ( file >= 0 )
      clients_.push_back(
         std::make_unique<Client>( *this, file, clock()->now() + patience ) );
   wakeupTimeIs( std::min( wakeupTime(), clock()->now() + kLook ) );
}

void MetricsServer::removeEnded() {
   clients_.remove_if( []( const auto& client ) { return client->ended(); } );
   if ( clients_.size() < maxClients ) listening_->readWantedIs( true );
}

void MetricsServer::onTime() {
   for ( const auto& client : clients_ )
      if ( client->until() <= clock()->now() ) client->end();
   removeEnded();
   if ( !clients_.empty() ) wakeupTimeIs( clock()->now() + kLook );
}

}
