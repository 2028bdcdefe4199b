#include "apps/show/metrics/HttpExchange.h"

#include <boost/beast/core/string.hpp>
#include <boost/beast/http.hpp>
#include <sstream>

namespace Show {

namespace http = boost::beast::http;

struct HttpExchange::Request {
   Request() {
      parser.header_limit( maxRequest );
      parser.body_limit( 0 );
   }

   std::string unread;  // bytes of a line that is not whole
   http::request_parser<http::empty_body> parser;
   http::status refusal = http::status::ok;
};

HttpExchange::HttpExchange() : request_( std::make_unique<Request>() ) {}
HttpExchange::~HttpExchange() = default;

namespace {

http::status refusalOf( const boost::beast::error_code& error ) {
   if ( error == http::error::header_limit )
      return http::status::request_header_fields_too_large;
   if ( error == http::error::body_limit || error == http::error::unexpected_body )
      return http::status::payload_too_large;
   return http::status::bad_request;
}

}

bool HttpExchange::take( std::string_view bytes ) {
   Request& request = *request_;
   if ( request.parser.is_done() || request.refusal != http::status::ok )
      return true;
   request.unread += bytes;
   boost::beast::error_code error;
   const size_t used = request.parser.put(
      boost::asio::buffer( request.unread.data(), request.unread.size() ), error );
   request.unread.erase( 0, used );
   if ( error == http::error::need_more ) error = {};
   if ( error ) request.refusal = refusalOf( error );
   // The parser counts whole lines only.
   if ( request.unread.size() > maxRequest )
      request.refusal = http::status::request_header_fields_too_large;
   return request.parser.is_done() || request.refusal != http::status::ok;
}

std::string HttpExchange::answer( const std::function<std::string()>& page ) const {
   const auto& asked = request_->parser.get();
   http::response<http::string_body> answer;
   answer.version( 11 );
   answer.keep_alive( false );
   answer.set( http::field::content_type,
               "text/plain; version=0.0.4; charset=utf-8" );
   if ( request_->refusal != http::status::ok ) {
      answer.result( request_->refusal );
   } else if ( asked.target().substr( 0, asked.target().find( '?' ) ) !=
               "/metrics" ) {
      answer.result( http::status::not_found );
   } else if ( asked.method() != http::verb::get ) {
      answer.result( http::status::method_not_allowed );
      answer.set( http::field::allow, "GET" );
   } else {
      answer.body() = page();
   }
   if ( answer.result() != http::status::ok )
      answer.body() =
         std::string( answer.reason() ) + ": metrics are at /metrics\n";
   if ( asked.method() == http::verb::head ) answer.body().clear();
   answer.prepare_payload();
   std::ostringstream text;
   text << answer;
   return text.str();
}

}
