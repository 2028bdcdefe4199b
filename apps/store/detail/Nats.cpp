#include "apps/store/detail/Nats.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <charconv>
#include <chrono>
#include <cstring>
#include <deque>
#include <utility>

#include "apps/store/detail/NatsNames.h"

namespace Fleet {

namespace {

constexpr int64_t kAnswer = 2000;  // ms: so long an answer may take

bool isRefusal( natsStatus status ) {
   switch ( status ) {
      case NATS_CONNECTION_AUTH_FAILED:
      case NATS_NOT_PERMITTED:
      case NATS_SSL_ERROR:
      case NATS_SECURE_CONNECTION_WANTED:
      case NATS_SECURE_CONNECTION_REQUIRED:
         return true;
      default:
         return false;
   }
}

// The library's words for the last error of this thread.
std::string lastError( natsStatus status ) {
   natsStatus last = NATS_OK;
   const char* text = nats_GetLastError( &last );
   if ( last != status || text == nullptr || *text == 0 )
      return natsStatus_GetText( status );
   // "(conn.c:733): No server": where the library says it is of use to nobody.
   const std::string all = text;
   const size_t at = all.starts_with( '(' ) ? all.find( "): " ) : std::string::npos;
   return at == std::string::npos ? all : all.substr( at + 3 );
}

// A key that others can read is no secret.
const char* secret( const std::string& path ) {
   constexpr mode_t kOthers = 077;
   struct stat status {};
   if ( stat( path.c_str(), &status ) != 0 )
      throw StoreRefuses( path + ": " + std::strerror( errno ) );
   if ( ( status.st_mode & kOthers ) != 0 )
      throw StoreRefuses( path + ": others may read it; make its mode 0600" );
   return path.c_str();
}

struct Options {
   natsOptions* own = nullptr;
   Options() { checkNats( natsOptions_Create( &own ), "the client" ); }
   Options( const Options& ) = delete;
   Options& operator=( const Options& ) = delete;
   ~Options() { natsOptions_Destroy( own ); }
};

void setSecurity( natsOptions* options, const StoreAddress& address ) {
   if ( !address.authority.empty() ) {
      checkNats( natsOptions_SetSecure( options, true ), "TLS" );
      checkNats( natsOptions_LoadCATrustedCertificates( options,
                                                        address.authority.c_str() ),
                 address.authority );
   }
   if ( !address.certificate.empty() )
      checkNats( natsOptions_LoadCertificatesChain(
                    options, address.certificate.c_str(), secret( address.key ) ),
                 address.certificate );
   if ( !address.credentials.empty() )
      checkNats( natsOptions_SetUserCredentialsFromFiles(
                    options, secret( address.credentials ), nullptr ),
                 address.credentials );
}

}

void checkNats( natsStatus status, const std::string& doing, jsErrCode code ) {
   if ( status == NATS_OK ) return;
   const std::string text = doing + ": " + lastError( status );
   if ( isRefusal( status ) ) throw StoreRefuses( text );
   if ( code == JSStreamNotFoundErr ) throw StoreMissing( text );
   throw StoreAway( text );
}

std::string headerOf( const NatsMessage& message, const char* name ) {
   const char* value = nullptr;
   if ( natsMsgHeader_Get( message.get(), name, &value ) != NATS_OK ) return "";
   return value;
}

uint64_t numberOf( const std::string& text ) {
   uint64_t number = 0;
   std::from_chars( text.data(), text.data() + text.size(), number );
   return number;
}

std::string_view dataOf( const NatsMessage& message ) {
   return { natsMsg_GetData( message.get() ),
            static_cast<size_t>( natsMsg_GetDataLength( message.get() ) ) };
}

// What the library's threads note. They may call for a moment after a connection is
// gone, so that these are kept for a minute more.
struct NatsConnection::Heard {
   using Clock = std::chrono::steady_clock;
   struct Sent {
      uint64_t round;
      size_t index;
   };
   std::mutex mutex;
   std::condition_variable changed;
   uint64_t losses = 0, rings = 0;
   std::string refusal;
   uint64_t round = 0;
   std::map<const natsMsg*, Sent> sent;
   std::vector<Outcome> outcomes;

   // Those of connections that are gone. Not destroyed at the program's end, where the
   // threads still are.
   struct Left {
      std::mutex mutex;
      std::deque<std::pair<Clock::time_point, std::unique_ptr<Heard>>> all;
   };
   static Left& left() {
      static Left& own = *new Left;
      return own;
   }
   static void leave( Heard* heard ) {
      constexpr auto kKept = std::chrono::minutes( 1 );
      const auto now = Clock::now();
      const std::lock_guard lock( left().mutex );
      auto& all = left().all;
      all.emplace_back( now, heard );
      while ( all.front().first + kKept < now ) all.pop_front();
   }

   static void lost( natsConnection*, void* own ) {
      Heard& heard = *static_cast<Heard*>( own );
      const std::lock_guard lock( heard.mutex );
      ++heard.losses;
      heard.changed.notify_all();
   }
   static void failed( natsConnection* connection, natsSubscription*,
                       natsStatus status, void* own ) {
      Heard& heard = *static_cast<Heard*>( own );
      const char* text = nullptr;
      natsConnection_GetLastError( connection, &text );
      const std::lock_guard lock( heard.mutex );
      if ( isRefusal( status ) )
         heard.refusal = text != nullptr ? text : natsStatus_GetText( status );
      heard.changed.notify_all();
   }
   static void rang( natsConnection*, natsSubscription*, natsMsg* message,
                     void* own ) {
      natsMsg_Destroy( message );
      Heard& heard = *static_cast<Heard*>( own );
      const std::lock_guard lock( heard.mutex );
      ++heard.rings;
      heard.changed.notify_all();
   }
   static void answered( jsCtx*, natsMsg* message, jsPubAck* stored,
                         jsPubAckErr* error, void* own ) {
      Heard& heard = *static_cast<Heard*>( own );
      {
         const std::lock_guard lock( heard.mutex );
         heard.note( message, stored, error );
      }
      natsMsg_Destroy( message );
   }
   void note( const natsMsg* message, const jsPubAck* stored,
              const jsPubAckErr* error ) {
      const auto found = sent.find( message );
      if ( found == sent.end() ) return;
      const Sent of = found->second;
      sent.erase( found );
      if ( of.round != round ) return;
      Outcome outcome{ of.index };
      if ( stored != nullptr ) outcome.sequence = stored->Sequence;
      if ( error != nullptr ) {
         outcome.status = error->Err;
         outcome.code = error->ErrCode;
         if ( error->ErrText != nullptr ) outcome.text = error->ErrText;
      }
      outcomes.push_back( std::move( outcome ) );
      changed.notify_all();
   }
};

NatsConnection::NatsConnection( const StoreAddress& address,
                                const std::string& writer )
   : heard_( new Heard, Heard::leave ) {
   connect( address, writer );
   jsOptions options;
   jsOptions_Init( &options );
   options.Wait = kAnswer;
   options.PublishAsync.AckHandler = Heard::answered;
   options.PublishAsync.AckHandlerClosure = heard_.get();
   const natsStatus status =
      natsConnection_JetStream( &streams_, connection_, &options );
   if ( status == NATS_OK ) return;
   natsConnection_Destroy( connection_ );
   checkNats( status, "the streams" );
}

void NatsConnection::connect( const StoreAddress& address,
                              const std::string& writer ) {
   constexpr int64_t kPause = 100, kPing = 2000;  // ms
   const Options options;
   const auto set = []( natsStatus status ) { checkNats( status, "the client" ); };
   const std::vector<std::string> servers = serversOf( address );
   std::vector<const char*> texts;
   texts.reserve( servers.size() );
   for ( const std::string& server : servers ) texts.push_back( server.c_str() );
   set( natsOptions_SetServers( options.own, texts.data(),
                                static_cast<int>( texts.size() ) ) );
   set( natsOptions_SetName( options.own,
                             writer.empty() ? "pimsm-fleet" : "pimsm-record" ) );
   set( natsOptions_SetTimeout( options.own, kAnswer ) );
   set( natsOptions_SetMaxReconnect( options.own, -1 ) );
   set( natsOptions_SetReconnectWait( options.own, kPause ) );
   set( natsOptions_SetReconnectJitter( options.own, kPause, kPause ) );
   set( natsOptions_SetPingInterval( options.own, kPing ) );
   set( natsOptions_SetWriteDeadline( options.own, kAnswer ) );
   set( natsOptions_SetFailRequestsOnDisconnect( options.own, true ) );
   // Else the library waits a millisecond for more before it sends.
   set( natsOptions_SetSendAsap( options.own, true ) );
   // Else each subscription of each bell has a thread of its own.
   set( natsOptions_UseGlobalMessageDelivery( options.own, true ) );
   if ( !writer.empty() ) {
      set( natsOptions_SetNoEcho( options.own, true ) );
      set( natsOptions_SetCustomInboxPrefix( options.own,
                                             ( "_INBOX." + writer ).c_str() ) );
      inbox_ = "_INBOX." + writer + '.';
   }
   set( natsOptions_SetErrorHandler( options.own, Heard::failed, heard_.get() ) );
   set( natsOptions_SetDisconnectedCB( options.own, Heard::lost, heard_.get() ) );
   setSecurity( options.own, address );
   const natsStatus status = natsConnection_Connect( &connection_, options.own );
   // So ends a connection whose client shows no certificate, or an unknown one.
   if ( status == NATS_PROTOCOL_ERROR && !address.authority.empty() )
      throw StoreRefuses( address.store + ": the server does not accept " +
                          ( address.certificate.empty()
                               ? "clients without a certificate"
                               : address.certificate ) );
   checkNats( status, address.store );
}

NatsConnection::~NatsConnection() {
   jsCtx_Destroy( streams_ );
   natsConnection_Destroy( connection_ );
}

bool NatsConnection::up() const {
   return natsConnection_Status( connection_ ) == NATS_CONN_STATUS_CONNECTED;
}

bool NatsConnection::closed() const {
   return natsConnection_IsClosed( connection_ );
}

uint64_t NatsConnection::losses() const {
   const std::lock_guard lock( heard_->mutex );
   return heard_->losses;
}

std::string NatsConnection::takeRefusal() {
   const std::lock_guard lock( heard_->mutex );
   return std::exchange( heard_->refusal, {} );
}

NatsSubscription NatsConnection::ring( const std::string& subject ) {
   natsSubscription* own = nullptr;
   checkNats( natsConnection_Subscribe( &own, connection_, subject.c_str(),
                                        Heard::rang, heard_.get() ),
              subject );
   return NatsSubscription( own );
}

uint64_t NatsConnection::rings() const {
   const std::lock_guard lock( heard_->mutex );
   return heard_->rings;
}

void NatsConnection::publish( NatsMessage message, uint64_t round, size_t index ) {
   natsMsg* own = message.get();
   {
      const std::lock_guard lock( heard_->mutex );
      if ( heard_->round != round ) heard_->outcomes.clear();
      heard_->round = round;
      heard_->sent[own] = { round, index };
   }
   jsPubOptions options;
   jsPubOptions_Init( &options );
   options.MaxWait = kAnswer;
   const natsStatus status = js_PublishMsgAsync( streams_, &own, &options );
   if ( own == nullptr ) (void)message.release();
   if ( status == NATS_OK ) return;
   const std::lock_guard lock( heard_->mutex );
   heard_->sent.erase( message.get() );
   checkNats( status, "publishing" );
}

std::vector<NatsConnection::Outcome> NatsConnection::outcomes( uint64_t round ) {
   constexpr auto kAWhile = std::chrono::milliseconds( 50 );
   std::unique_lock lock( heard_->mutex );
   if ( heard_->round != round ) return {};
   const uint64_t losses = heard_->losses;
   heard_->changed.wait_for( lock, kAWhile, [&] {
      return !heard_->outcomes.empty() || heard_->losses != losses;
   } );
   return std::exchange( heard_->outcomes, {} );
}

}
