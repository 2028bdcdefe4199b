// The page and its answers by HTTP, at one address.
//
//    hears    GET and HEAD of at most 8 KiB, one a connection, in 10 s
//    writes   an answer when Answers has it, meanwhile those of others; a client that takes
//             nothing for 20 s is left
//    follows  a stream of events to each page that asks for /events, with a comment each 15 s;
//             who is slow misses changes in between, never the last one
//    refuses  other hosts' names, so that no foreign page reads what this one may
//
// All in the thread that calls run(), which blocks on nothing else.
#pragma once

#include <memory>
#include <string>

#include "apps/store/Store.h"

namespace Fleet {

class Server {
 public:
   static constexpr size_t mostClients =
      256;  // at once; others wait to be accepted
   static constexpr size_t mostStreams = 128;  // of events

   // `where`: "ADDRESS:PORT", an IPv6 address in brackets; port 0: any that is free.
   // Listens from here on. Throws Programs::WrongUsage where it cannot, or for another
   // text, and what opening the store throws.
   Server( const StoreAddress& store, const std::string& where );
   ~Server();

   // "127.0.0.1:8080"
   std::string address() const;
   bool isLoopback() const;

   // Until SIGTERM or SIGINT.
   void run();

 private:
   struct State;
   std::unique_ptr<State> state_;
};

}
