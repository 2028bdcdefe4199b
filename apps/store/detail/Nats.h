// A connection to the servers of NATS, and what its client library hands out.
//
// A connection lives on when its server goes: the library finds the next one. Whoever
// uses it learns of that by losses(). Objects belong to one thread; the library calls
// back on its own threads, which only note what came.
#pragma once

#include <nats/nats.h>

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "apps/store/Store.h"

namespace Fleet {

template <class T, void ( *destroy )( T* )>
struct NatsDestroy {
   void operator()( T* object ) const { destroy( object ); }
};
using NatsMessage = std::unique_ptr<natsMsg, NatsDestroy<natsMsg, natsMsg_Destroy>>;
using NatsSubscription =
   std::unique_ptr<natsSubscription,
                   NatsDestroy<natsSubscription, natsSubscription_Destroy>>;

// Throws unless the status is NATS_OK: StoreRefuses where the server does not let us in
// or do that, StoreMissing where there is no such stream, StoreAway otherwise. `doing`
// begins the sentence: "making the stream KV_a".
void checkNats( natsStatus status, const std::string& doing,
                jsErrCode code = jsErrCode{} );

// The header's value; empty: none.
std::string headerOf( const NatsMessage& message, const char* name );
// A decimal number; 0 where there is none.
uint64_t numberOf( const std::string& text );
std::string_view dataOf( const NatsMessage& message );

class NatsConnection {
 public:
   // What became of a message that was published.
   struct Outcome {
      size_t index = 0;       // of the round
      uint64_t sequence = 0;  // in its stream; 0: it was not stored
      natsStatus status = NATS_OK;
      jsErrCode code = {};
      std::string text = {};
   };

   // `writer`: a name of ours that the subjects of answers begin with, so that the servers
   // can be told to let us hear no others, and nothing is heard that was said here. Empty:
   // a reader. Throws StoreAway if no server answers, StoreRefuses if one does not let us
   // in.
   explicit NatsConnection( const StoreAddress& address,
                            const std::string& writer = {} );
   NatsConnection( const NatsConnection& ) = delete;
   NatsConnection& operator=( const NatsConnection& ) = delete;
   ~NatsConnection();

   natsConnection* get() const { return connection_; }
   jsCtx* streams() const { return streams_; }
   // What the subjects of answers that are not the library's begin with, with a dot or
   // empty.
   const std::string& inbox() const { return inbox_; }

   // Is there a server at the moment?
   bool up() const;
   // Has the library given up? Only a new object helps then.
   bool closed() const;
   // How often a server was lost.
   uint64_t losses() const;
   // Calls; where nothing is answered because the server does not permit it, that is thrown.
   template <class Call>
   void permitted( const Call& call ) {
      try {
         call();
      } catch ( const StoreAway& ) {
         const std::string refusal = takeRefusal();
         if ( refusal.empty() ) throw;
         throw StoreRefuses( refusal );
      }
   }
   // What the server refused since this was asked last, as it said it; empty: nothing.
   std::string takeRefusal();

   // Rings at each message to the subject, without storing it.
   NatsSubscription ring( const std::string& subject );
   // How often any of them rang.
   uint64_t rings() const;

   // Publishes to a stream; what becomes of it is an outcome of the round. Throws as
   // checkNats().
   void publish( NatsMessage message, uint64_t round, size_t index );
   // Those that have come, waiting a little for the first.
   std::vector<Outcome> outcomes( uint64_t round );

 private:
   struct Heard;
   std::unique_ptr<Heard, void ( * )( Heard* )> heard_;
   natsConnection* connection_ = nullptr;
   jsCtx* streams_ = nullptr;
   std::string inbox_;

   void connect( const StoreAddress& address, const std::string& writer );
};

}
