// The room that the stream of a router's state has. Servers refuse what is too much for it,
// but count less before they store than after: in between they take a message, drop what is
// oldest and say nothing. So a writer counts itself, and stops short of that.
#pragma once

#include "apps/store/detail/Nats.h"

namespace Fleet {

class NatsRoom {
 public:
   NatsRoom( const NatsConnection& connection, std::string stream )
      : connection_( connection ), stream_( std::move( stream ) ) {}

   // Before a batch: what was taken has been stored, or replaced something, or was refused.
   void begin() {
      asked_ = false;
      before_ = used_;
   }
   // Takes room for a message with so many bytes of subject, headers and value; false if
   // there is none. Asks the servers when it seems to be used up, once a batch. Throws as
   // checkNats().
   bool take( size_t bytes );
   // The same for a removal, which is always let: it makes room in the end.
   void takeAnyway( size_t bytes ) { used_ += cost( bytes ); }

 private:
   // What a server stores with a message, and somewhat more.
   static uint64_t cost( size_t bytes ) { return bytes + 64; }
   bool fits( uint64_t more ) const { return used_ + more <= limit_; }
   void ask();

   const NatsConnection& connection_;
   const std::string stream_;
   // Bytes. No less than are used: what replaces another is counted beside it.
   uint64_t used_ = 0, limit_ = 0;
   uint64_t before_ = 0;  // when the batch began
   bool asked_ = false;
};

}
