#include "apps/store/detail/NatsRead.h"

#include <charconv>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace Fleet {

namespace {

constexpr int64_t kAnswer = 2000;               // ms: so long an answer may take
constexpr int64_t kPerMillisecond = 1'000'000;  // nanoseconds

NatsSubscription consume( const NatsConnection& connection, const NatsScan& scan ) {
   jsSubOptions options;
   jsSubOptions_Init( &options );
   options.Stream = scan.stream.c_str();
   options.Ordered = true;
   options.Config.DeliverPolicy = js_DeliverAll;
   options.Config.RateLimit = 8 * scan.rate;
   if ( scan.after != 0 ) {
      options.Config.DeliverPolicy = js_DeliverByStartSequence;
      options.Config.OptStartSeq = scan.after + 1;
   } else if ( scan.since > 0 ) {
      options.Config.DeliverPolicy = js_DeliverByStartTime;
      options.Config.OptStartTime = scan.since * kPerMillisecond;
   }
   // With a server of three gone, the others may give the task to it.
   constexpr int kTries = 3;
   natsSubscription* own = nullptr;
   jsErrCode code{};
   natsStatus status = NATS_TIMEOUT;
   for ( int i = 0; i < kTries && status == NATS_TIMEOUT; ++i )
      status = js_SubscribeSync( &own, connection.streams(), scan.subject.c_str(),
                                 nullptr, &options, &code );
   NatsSubscription subscription( own );
   checkNats( status, "reading " + scan.stream, code );
   natsSubscription_SetPendingLimits( own, -1, -1 );
   return subscription;
}

// "2026-11-22T22:56:29.968123456Z" as ms since 1970, rounded up.
int64_t millisecondsOf( const std::string& text ) {
   std::tm time{};
   std::istringstream( text ) >> std::get_time( &time, "%Y-%m-%dT%H:%M:%S" );
   return ( int64_t{ timegm( &time ) } + 1 ) * 1000;
}

// Null if nothing comes within the time of an answer, or the server is lost meanwhile.
NatsMessage next( const NatsConnection& connection,
                  natsSubscription* subscription ) {
   constexpr int64_t kSlice = 100;  // ms
   const uint64_t losses = connection.losses();
   for ( int64_t waited = 0; waited < kAnswer; waited += kSlice ) {
      natsMsg* own = nullptr;
      const natsStatus status =
         natsSubscription_NextMsg( &own, subscription, kSlice );
      if ( status == NATS_OK ) return NatsMessage( own );
      if ( status != NATS_TIMEOUT ) checkNats( status, "waiting for an answer" );
      if ( connection.losses() != losses || !connection.up() ) return nullptr;
   }
   return nullptr;
}

// Requests that are on their way, and where their answers come.
class Burst {
 public:
   Burst( const NatsConnection& connection, const std::vector<NatsExact>& exact )
      : connection_( connection ), exact_( exact ), found_( exact.size() ) {
      natsInbox* inbox = nullptr;
      checkNats( natsInbox_Create( &inbox ), "an inbox" );
      prefix_ = connection.inbox() + inbox + '.';
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
      NatsMessage message = next( connection_, subscription_.get() );
      if ( message == nullptr ) throw StoreAway( "the store does not answer" );
      const std::string_view subject = natsMsg_GetSubject( message.get() );
      if ( !subject.starts_with( prefix_ ) ) return;
      size_t i = 0;
      std::from_chars( subject.data() + prefix_.size(),
                       subject.data() + subject.size(), i );
      if ( i >= exact_.size() ) return;
      if ( headerOf( message, "Status" ).empty() ||
           natsMsg_IsNoResponders( message.get() ) )
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

// The sequence of the last message that the scan is to find; 0: it will find none.
uint64_t lastOf( const NatsConnection& connection, const NatsScan& scan ) {
   const auto found = readNats( connection, { { scan.stream, scan.subject } } );
   const NatsMessage& message = found[0];
   if ( message == nullptr ) return 0;
   if ( natsMsg_IsNoResponders( message.get() ) ) {
      jsStreamInfo* info = nullptr;
      jsErrCode code{};
      const natsStatus status = js_GetStreamInfo(
         &info, connection.streams(), scan.stream.c_str(), nullptr, &code );
      jsStreamInfo_Destroy( info );
      checkNats( status, "reading " + scan.stream, code );
      throw StoreAway( "no server has " + scan.stream + " at the moment" );
   }
   if ( scan.after == 0 &&
        millisecondsOf( headerOf( message, "Nats-Time-Stamp" ) ) < scan.since )
      return 0;
   const std::string text = headerOf( message, "Nats-Sequence" );
   uint64_t sequence = 0;
   std::from_chars( text.data(), text.data() + text.size(), sequence );
   return sequence;
}

}

void scanNats(
   const NatsConnection& connection, const NatsScan& scan,
   const std::function<void( const NatsMessage&, const NatsRead& )>& call ) {
   uint64_t end = scan.until != 0 ? scan.until : lastOf( connection, scan );
   if ( end <= scan.after ) return;
   const NatsSubscription subscription = consume( connection, scan );
   uint64_t sequence = 0;
   while ( sequence < end ) {
      const NatsMessage message = next( connection, subscription.get() );
      if ( message == nullptr ) {
         // What was to be the last may have gone since.
         if ( scan.until == 0 && lastOf( connection, scan ) <= sequence ) return;
         throw StoreAway( "reading " + scan.stream +
                          ": no server goes on with it" );
      }
      const Meta meta( message );
      sequence = meta.own->Sequence.Stream;
      call( message, { natsMsg_GetSubject( message.get() ), sequence } );
   }
}

std::vector<NatsMessage> readNats( const NatsConnection& connection,
                                   const std::vector<NatsExact>& exact ) {
   if ( exact.empty() ) return {};
   return Burst( connection, exact ).run();
}

std::vector<std::string> subjectsOf( const NatsConnection& connection,
                                     const std::string& stream,
                                     const std::string& filter ) {
   jsOptions options;
   jsOptions_Init( &options );
   options.Stream.Info.SubjectsFilter = filter.c_str();
   jsStreamInfo* info = nullptr;
   jsErrCode code{};
   const natsStatus status = js_GetStreamInfo( &info, connection.streams(),
                                               stream.c_str(), &options, &code );
   const std::unique_ptr<jsStreamInfo,
                         NatsDestroy<jsStreamInfo, jsStreamInfo_Destroy>>
      owner( info );
   checkNats( status, "reading " + stream, code );
   std::vector<std::string> subjects;
   const jsStreamStateSubjects* const found = info->State.Subjects;
   for ( int i = 0; found != nullptr && i < found->Count; ++i )
      subjects.emplace_back( found->List[i].Subject );
   return subjects;
}

bool isRemoval( const NatsMessage& message ) {
   return !headerOf( message, "KV-Operation" ).empty();
}

}
