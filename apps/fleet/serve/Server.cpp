#include "apps/fleet/serve/Server.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <charconv>
#include <csignal>
#include <sstream>

#include "apps/fleet/serve/detail/Session.h"
#include "apps/program/Ending.h"

namespace Fleet {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = boost::system::error_code;

namespace {

// Throws where there is no store: a wrong name is to be told at once.
std::unique_ptr<Reader> readerOf( const StoreAddress& store ) {
   auto reader = openReader( store );
   reader->routers();
   return reader;
}

constexpr auto kLook = std::chrono::seconds( 1 );  // after a refused accept

tcp::endpoint endpointOf( const std::string& where ) {
   const size_t colon = where.rfind( ':' );
   const std::string port =
      colon == std::string::npos ? "" : where.substr( colon + 1 );
   std::string host = where.substr( 0, colon );
   const bool bracketed =
      host.size() > 2 && host.front() == '[' && host.back() == ']';
   if ( bracketed ) host = host.substr( 1, host.size() - 2 );
   uint16_t number = 0;
   const auto [end, wrong] =
      std::from_chars( port.data(), port.data() + port.size(), number );
   Error error;
   const auto address = asio::ip::make_address( host, error );
   if ( error || address.is_v6() != bracketed || port.empty() ||
        wrong != std::errc() || end != port.data() + port.size() )
      throw Programs::WrongUsage( where +
                                  " is no ADDRESS:PORT, such as 127.0.0.1:8080 or "
                                  "[::1]:8080" );
   return { address, number };
}

}

struct Server::State {
   explicit State( const StoreAddress& store ) : answers( readerOf( store ) ) {}

   void accept() {
      waiting = true;
      acceptor.async_accept( [this]( Error error, tcp::socket socket ) {
         waiting = false;
         if ( !error )
            std::make_shared<Session>( clients, std::move( socket ) )->start();
         // Without a file to be had it tries again later.
         if ( error ) return later();
         more();
      } );
   }

   // Beyond that many, clients wait in the system's queue.
   void more() {
      if ( !waiting && clients.all < mostClients ) accept();
   }

   void later() {
      timer.expires_after( kLook );
      timer.async_wait( [this]( Error error ) {
         if ( !error ) more();
      } );
   }

   // What is destroyed last stands first: clients name what stands above them.
   Answers answers;
   Clients clients{ answers, {}, 0, 0, {}, {} };
   bool waiting = false;
   asio::io_context loop{ 1 };
   tcp::acceptor acceptor{ loop };
   asio::steady_timer timer{ loop };
   asio::signal_set ends{ loop, SIGTERM, SIGINT };
};

Server::Server( const StoreAddress& store, const std::string& where )
   : state_( std::make_unique<State>( store ) ) {
   const tcp::endpoint endpoint = endpointOf( where );
   try {
      state_->acceptor.open( endpoint.protocol() );
      state_->acceptor.set_option( tcp::acceptor::reuse_address( true ) );
      state_->acceptor.bind( endpoint );
      state_->acceptor.listen();
   } catch ( const boost::system::system_error& e ) {
      throw Programs::WrongUsage( "cannot listen at " + where + ": " +
                                  e.code().message() );
   }
   state_->clients.host = endpoint.address().to_string();
}

Server::~Server() {
   // Nothing is told to a loop that goes.
   state_->answers.stop();
   state_->clients.gone = {};
   state_->clients.waiting.clear();
}

std::string Server::address() const {
   std::ostringstream text;
   text << state_->acceptor.local_endpoint();
   return text.str();
}

bool Server::isLoopback() const {
   return state_->acceptor.local_endpoint().address().is_loopback();
}

void Server::run() {
   std::signal( SIGPIPE, SIG_IGN );
   state_->ends.async_wait( [this]( Error, int ) { state_->loop.stop(); } );
   state_->clients.gone = [this] { state_->more(); };
   state_->accept();
   state_->loop.run();
}

}
