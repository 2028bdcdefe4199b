#include "apps/store/detail/NatsRead.h"

#include <charconv>

namespace Fleet {

namespace {

constexpr int64_t kAnswer = 2000;            // ms: so long an answer may take
constexpr int64_t kNanoseconds = 1'000'000;  // of a ms

// How many the consumer will deliver, or has delivered.
uint64_t countOf( natsSubscription* subscription, const std::string& stream ) {
   jsConsumerInfo* info = nullptr;
   jsErrCode code{};
   checkNats(
      natsSubscription_GetConsumerInfo( &info, subscription, nullptr, &code ),
      "reading " + stream, code );
   const uint64_t count = info->NumPending + info->Delivered.Consumer;
   jsConsumerInfo_Destroy( info );
   return count;
}

NatsSubscription consume( const NatsConnection& connection, const NatsScan& scan ) {
   jsSubOptions options;
   jsSubOptions_Init( &options );
   options.Stream = scan.stream.c_str();
   options.Ordered = true;
   options.Config.DeliverPolicy =
      scan.last ? js_DeliverLastPerSubject : js_DeliverAll;
   if ( scan.after != 0 ) {
      options.Config.DeliverPolicy = js_DeliverByStartSequence;
      options.Config.OptStartSeq = scan.after + 1;
   } else if ( scan.since > 0 ) {
      options.Config.DeliverPolicy = js_DeliverByStartTime;
      options.Config.OptStartTime = scan.since * kNanoseconds;
   }
   natsSubscription* own = nullptr;
   jsErrCode code{};
   const natsStatus status = js_SubscribeSync(
      &own, connection.streams(), scan.subject.c_str(), nullptr, &options, &code );
   NatsSubscription subscription( own );
   checkNats( status, "reading " + scan.stream, code );
   natsSubscription_SetPendingLimits( own, -1, -1 );
   return subscription;
}

// Nothing within the time of an answer: null.
NatsMessage next( natsSubscription* subscription ) {
   natsMsg* own = nullptr;
   const natsStatus status =
      natsSubscription_NextMsg( &own, subscription, kAnswer );
   if ( status == NATS_TIMEOUT ) return nullptr;
   checkNats( status, "waiting for an answer" );
   return NatsMessage( own );
}

// Requests that are on their way, and where their answers come.
class Burst {
 public:
   Burst( const NatsConnection& connection, const std::vector<NatsExact>& exact )
      : connection_( connection ), exact_( exact ), found_( exact.size() ) {
      natsInbox* inbox = nullptr;
      checkNats( natsInbox_Create( &inbox ), "an inbox" );
      prefix_ = std::string( inbox ) + '.';
      natsInbox_Destroy( inbox );
      natsSubscription* own = nullptr;
      checkNats( natsConnection_SubscribeSync( &own, connection.get(),
                                               ( prefix_ + '*' ).c_str() ),
                 "an inbox" );
      subscription_.reset( own );
      natsSubscription_SetPendingLimits( own, -1, -1 );
   }

   std::vector<NatsMessage> run() {
      constexpr size_t kMost = 256;
      for ( size_t sent = 0, heard = 0; heard < exact_.size(); ++heard ) {
         while ( sent < exact_.size() && sent < heard + kMost ) ask( sent++ );
         hear();
      }
      return std::move( found_ );
   }

 private:
   void ask( size_t i ) {
      const NatsExact& of = exact_[i];
      const std::string subject =
         "$JS.API.DIRECT.GET." + of.stream + '.' + of.subject;
      const std::string reply = prefix_ + std::to_string( i );
      checkNats( natsConnection_PublishRequest( connection_.get(), subject.c_str(),
                                                reply.c_str(), nullptr, 0 ),
                 "reading " + of.stream );
   }

   void hear() {
      NatsMessage message = next( subscription_.get() );
      if ( message == nullptr ) throw StoreAway( "the store does not answer" );
      const std::string_view subject = natsMsg_GetSubject( message.get() );
      size_t i = 0;
      std::from_chars( subject.data() + prefix_.size(),
                       subject.data() + subject.size(), i );
      if ( i >= exact_.size() ) return;
      if ( natsMsg_IsNoResponders( message.get() ) )
         throw StoreAway( "no server has " + exact_[i].stream + " at the moment" );
      if ( headerOf( message, "Status" ).empty() && !isRemoval( message ) )
         found_[i] = std::move( message );
   }

   const NatsConnection& connection_;
   const std::vector<NatsExact>& exact_;
   std::vector<NatsMessage> found_;
   std::string prefix_;
   NatsSubscription subscription_;
};

struct Meta {
   explicit Meta( const NatsMessage& message ) {
      checkNats( natsMsg_GetMetaData( &own, message.get() ), "a message" );
   }
   Meta( const Meta& ) = delete;
   Meta& operator=( const Meta& ) = delete;
   ~Meta() { jsMsgMetaData_Destroy( own ); }
   jsMsgMetaData* own = nullptr;
};

}

void scanNats(
   const NatsConnection& connection, const NatsScan& scan,
   const std::function<void( const NatsMessage&, const NatsRead& )>& call ) {
   const NatsSubscription subscription = consume( connection, scan );
   if ( countOf( subscription.get(), scan.stream ) == 0 ) return;
   for ( ;; ) {
      const NatsMessage message = next( subscription.get() );
      if ( message == nullptr )
         throw StoreAway( "reading " + scan.stream +
                          ": no server goes on with it" );
      const Meta meta( message );
      call( message,
            { natsMsg_GetSubject( message.get() ), meta.own->Sequence.Stream } );
      if ( meta.own->NumPending == 0 ) return;
   }
}

std::vector<NatsMessage> readNats( const NatsConnection& connection,
                                   const std::vector<NatsExact>& exact ) {
   if ( exact.empty() ) return {};
   return Burst( connection, exact ).run();
}

bool isRemoval( const NatsMessage& message ) {
   return !headerOf( message, "KV-Operation" ).empty();
}

}
