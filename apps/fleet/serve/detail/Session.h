// A client's connection: one request, then one answer or a stream of events.
#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "apps/fleet/serve/Answers.h"

namespace Fleet {

class Session;

// What the connections of a server share; outlives them.
struct Clients {
   Answers& answers;
   std::string host;  // that is listened at: "127.0.0.1"
   size_t all = 0, streams = 0;
   std::function<void()> gone = {};  // a connection has ended
   // Those that wait for an answer. The answers' threads do not hold them: one of them
   // would end there.
   std::set<std::shared_ptr<Session>> waiting = {};
};

// Lives until its last operation is done. The server's thread only.
class Session : public std::enable_shared_from_this<Session> {
 public:
   Session( Clients& clients, boost::asio::ip::tcp::socket socket );
   ~Session();

   void start();

 private:
   using Request = boost::beast::http::request<boost::beast::http::empty_body>;
   using Response = boost::beast::http::response<boost::beast::http::string_body>;
   using Error = boost::beast::error_code;

   void handleRequest( Error error );
   void route( const Request& request );
   void ask( const Target& target );
   void refuse( unsigned status, const std::string& sentence );
   void answer( const Answer& answer );
   Response head( unsigned status, const std::string& type ) const;
   void write();
   void finish();

   void follow( const Target& target );
   void begin();
   void watchEnd();
   void take( const Telling& telling );
   void comment();
   void send( const std::string& text );
   void sendNext();

   Clients& clients_;
   boost::beast::tcp_stream stream_;
   boost::asio::steady_timer timer_;  // of comments
   boost::beast::flat_buffer buffer_;
   std::optional<boost::beast::http::request_parser<boost::beast::http::empty_body>>
      parser_;
   bool headOnly_ = false;
   std::string output_;               // being written
   uint64_t follower_ = 0;            // 0: not following
   std::string lastName_;             // of the tree that the page knows
   std::optional<std::string> next_;  // while something is written
   bool writing_ = false;
};

}
