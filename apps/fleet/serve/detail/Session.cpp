#include "apps/fleet/serve/detail/Session.h"

#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/read.hpp>
#include <sstream>

#include "apps/fleet/serve/Page.h"
#include "apps/fleet/serve/Server.h"
#include "apps/program/Ending.h"

namespace Fleet {

namespace http = boost::beast::http;
using std::chrono::seconds;

namespace {

constexpr size_t kLargestRequest = 8192;  // bytes
constexpr auto kPatience = seconds( 10 );
constexpr auto kTaking = seconds( 20 );
constexpr auto kComment = seconds( 15 );

// Nothing foreign, nothing inline; the picture is put into the page by its script.
constexpr const char* kPolicy =
   "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
   "img-src 'self'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'";

}

Session::Session( Clients& clients, boost::asio::ip::tcp::socket socket )
   : clients_( clients ),
     stream_( std::move( socket ) ),
     timer_( stream_.get_executor() ),
     buffer_( 2 * kLargestRequest ) {
   ++clients_.all;
}

Session::~Session() {
   if ( follower_ != 0 ) {
      --clients_.streams;
      clients_.answers.leave( follower_ );
   }
   --clients_.all;
   if ( clients_.gone ) clients_.gone();
}

void Session::start() {
   parser_.emplace();
   parser_->header_limit( kLargestRequest );
   stream_.expires_after( kPatience );
   http::async_read_header( stream_, buffer_, *parser_,
                            [self = shared_from_this()]( Error error, size_t ) {
                               self->handleRequest( error );
                            } );
}

void Session::handleRequest( Error error ) {
   if ( error == http::error::header_limit ||
        error == http::error::buffer_overflow )
      return refuse( 431, "The request is too long." );
   if ( error &&
        error.category() == make_error_code( http::error::bad_method ).category() &&
        error != http::error::end_of_stream &&
        error != http::error::partial_message )
      return refuse( 400, "This is no request of HTTP." );
   if ( error ) return;
   route( parser_->get() );
}

void Session::route( const Request& request ) {
   headOnly_ = request.method() == http::verb::head;
   const auto host = request.find( http::field::host );
   if ( host == request.end() || request.count( http::field::host ) != 1 )
      return refuse( 400, "The request names no host." );
   if ( !isOwnHost( { host->value().data(), host->value().size() },
                    clients_.host ) )
      return refuse( 403, "This host's name is not served: use its address." );
   if ( request.method() != http::verb::get && !headOnly_ )
      return refuse( 405, "Only GET and HEAD are answered." );
   if ( parser_->chunked() || parser_->content_length().value_or( 0 ) != 0 )
      return refuse( 400, "A question has no body." );
   const auto target =
      parseTarget( { request.target().data(), request.target().size() } );
   if ( !target ) return refuse( 400, "The address is malformed." );
   lastName_ = std::string( request["Last-Event-ID"] );
   ask( *target );
}

void Session::ask( const Target& target ) {
   if ( const PageFile* file = pageFile( target.path ) )
      return answer(
         { 200, std::string( file->type ), std::string( file->text ) } );
   if ( target.path == "/events" ) return follow( target );
   if ( !Answers::knows( target.path ) )
      return refuse( 404, "There is no such page." );
   stream_.expires_never();
   clients_.waiting.insert( shared_from_this() );
   clients_.answers.ask( target,
                         [weak = weak_from_this(),
                          executor = stream_.get_executor()]( const Answer& told ) {
                            boost::asio::post( executor, [weak, told] {
                               const auto self = weak.lock();
                               if ( !self ) return;
                               self->clients_.waiting.erase( self );
                               self->answer( told );
                            } );
                         } );
}

void Session::refuse( unsigned status, const std::string& sentence ) {
   Answer told;
   told.status = status;
   told.body = sentence + '\n';
   answer( told );
}

Session::Response Session::head( unsigned status, const std::string& type ) const {
   Response response;
   response.version( 11 );
   response.result( status );
   response.keep_alive( false );
   response.set( http::field::content_type, type );
   response.set( http::field::cache_control, "no-store" );
   response.set( "Content-Security-Policy", kPolicy );
   response.set( "X-Content-Type-Options", "nosniff" );
   response.set( "Referrer-Policy", "no-referrer" );
   response.set( "Cross-Origin-Resource-Policy", "same-origin" );
   if ( status == 405 ) response.set( http::field::allow, "GET, HEAD" );
   if ( status == 503 ) response.set( http::field::retry_after, "2" );
   return response;
}

void Session::answer( const Answer& told ) {
   Response response = head( told.status, told.type );
   response.content_length( told.body.size() );
   std::ostringstream text;
   text << response.base();
   output_ = text.str();
   if ( !headOnly_ ) output_ += told.body;
   write();
}

void Session::write() {
   stream_.expires_after( kTaking );
   boost::asio::async_write( stream_, boost::asio::buffer( output_ ),
                             [self = shared_from_this()]( Error error, size_t ) {
                                if ( !error ) self->finish();
                             } );
}

// The rest of the request is read away: closed before that, the kernel would take the
// answer back.
void Session::finish() {
   Error ignored;
   stream_.socket().shutdown( boost::asio::ip::tcp::socket::shutdown_send,
                              ignored );
   stream_.expires_after( seconds( 1 ) );
   watchEnd();
}

void Session::watchEnd() {
   buffer_.clear();
   stream_.async_read_some( buffer_.prepare( 1024 ),
                            [self = shared_from_this()]( Error error, size_t ) {
                               if ( !error ) return self->watchEnd();
                               self->stream_.close();
                               self->timer_.cancel();
                            } );
}

void Session::follow( const Target& target ) {
   if ( clients_.streams >= Server::mostStreams )
      return refuse( 503, "Too many pages follow a tree." );
   try {
      follower_ = clients_.answers.follow(
         target, [weak = weak_from_this(),
                  executor = stream_.get_executor()]( const Telling& telling ) {
            boost::asio::post( executor, [weak, telling] {
               if ( const auto self = weak.lock() ) self->take( telling );
            } );
         } );
   } catch ( const Mox::Error& e ) {
      return refuse( 400, e.what() );
   }
   ++clients_.streams;
   begin();
}

void Session::begin() {
   std::ostringstream text;
   text << head( 200, "text/event-stream" ).base();
   output_ = text.str();
   if ( headOnly_ ) return write();
   stream_.expires_never();
   watchEnd();
   send( "retry: 2000\n\n" );
   comment();
}

void Session::take( const Telling& telling ) {
   if ( headOnly_ || ( !telling.name.empty() && telling.name == lastName_ ) )
      return;
   lastName_ = telling.name;
   send( telling.name.empty() ? "event: problem\ndata: " + telling.text + "\n\n"
                              : "id: " + telling.name + "\nevent: tree\ndata: " +
                                   telling.text + "\n\n" );
}

void Session::comment() {
   timer_.expires_after( kComment );
   timer_.async_wait( [weak = weak_from_this()]( Error error ) {
      const auto self = weak.lock();
      if ( error || !self ) return;
      if ( !self->writing_ ) self->send( ": still here\n\n" );
      self->comment();
   } );
}

// Of what waits only the last one counts.
void Session::send( const std::string& text ) {
   next_ = text;
   if ( !writing_ ) sendNext();
}

void Session::sendNext() {
   if ( !next_ || !stream_.socket().is_open() ) return;
   output_ += *std::exchange( next_, std::nullopt );
   writing_ = true;
   stream_.expires_after( kTaking );
   boost::asio::async_write( stream_, boost::asio::buffer( output_ ),
                             [self = shared_from_this()]( Error error, size_t ) {
                                self->writing_ = false;
                                self->output_.clear();
                                if ( error ) return self->stream_.close();
                                self->sendNext();
                             } );
}

}
