// One request of HTTP/1.1 and its answer, without any socket: GET /metrics, and what is
// not that is refused. The connection ends with the answer.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Show {

class HttpExchange {
 public:
   static constexpr uint32_t maxRequest = 8192;  // bytes

   HttpExchange();
   ~HttpExchange();
   HttpExchange( const HttpExchange& ) = delete;
   HttpExchange& operator=( const HttpExchange& ) = delete;

   // Takes what came. Returns true when the request is whole, or refused already; what
   // comes after that is ignored.
   bool take( std::string_view bytes );

   // The whole answer. `page` is called for the metrics alone. REQUIRES: take() has
   // returned true.
   std::string answer( const std::function<std::string()>& page ) const;

 private:
   struct Request;
   std::unique_ptr<Request> request_;
};

}
