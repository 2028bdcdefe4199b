#include "apps/store/detail/NatsLease.h"

#include <fmt/format.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>

#include "apps/store/Clocks.h"
#include "apps/store/Names.h"
#include "apps/store/Untrusted.h"
#include "apps/store/detail/NatsRead.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

namespace {

// What numbers of processes mean here: the same in another container are others.
std::string processes() {
   std::string boot;
   std::getline( std::ifstream( "/proc/sys/kernel/random/boot_id" ), boot );
   struct stat names {};
   stat( "/proc/self/ns/pid", &names );
   return fmt::format( "{} {}", boot, names.st_ino );
}

Json parsed( std::string_view value ) {
   if ( isTooDeep( value ) ) return {};
   Json json = Json::parse( value, nullptr, false );
   return json.is_object() ? json : Json();
}

std::string textOf( const Json& json, const char* name ) {
   const Json value = json.is_object() ? json.value( name, Json() ) : Json();
   return value.is_string() ? value.get<std::string>() : "";
}

bool isGone( const Json& holder ) {
   const Json pid = holder.is_object() ? holder.value( "pid", Json() ) : Json();
   if ( !pid.is_number_unsigned() || textOf( holder, "processes" ) != processes() )
      return false;
   // Processes of others may be hidden in /proc, and are there all the same.
   return kill( pid.get<pid_t>(), 0 ) != 0 && errno == ESRCH;
}

}

NatsLease::NatsLease( NatsConnection& connection, const NatsNames& names,
                      const std::string& router, const std::string& instance )
   : connection_( connection ),
     stream_( names.liveStream() ),
     subject_( names.liveSubject( router ) ) {
   value_ = Json{ { "host", hostRouter() },
                  { "pid", getpid() },
                  { "processes", processes() },
                  { "instance", instance } }
               .dump();
   take();
}

NatsLease::~NatsLease() {
   if ( !connection_.up() ) return;
   natsMsg* own = nullptr;
   if ( natsMsg_Create( &own, subject_.c_str(), nullptr, nullptr, 0 ) != NATS_OK )
      return;
   const NatsMessage message( own );
   natsMsgHeader_Set( own, "KV-Operation", "DEL" );
   natsMsgHeader_Set( own, "Nats-Expected-Last-Subject-Sequence",
                      std::to_string( revision_ ).c_str() );
   natsConnection_PublishMsg( connection_.get(), own );
   constexpr int64_t kShort = 500;  // ms
   natsConnection_FlushTimeout( connection_.get(), kShort );
}

// Puts it where the key stands at that revision; false if it does not.
bool NatsLease::claim( uint64_t revision ) {
   jsPubOptions options;
   jsPubOptions_Init( &options );
   options.ExpectLastSubjectSeq = revision;
   options.ExpectNoMessage = revision == 0;
   jsPubAck* ack = nullptr;
   jsErrCode code{};
   const natsStatus status =
      js_Publish( &ack, connection_.streams(), subject_.c_str(), value_.data(),
                  static_cast<int>( value_.size() ), &options, &code );
   if ( code == JSStreamWrongLastSequenceErr ) return false;
   checkNats( status, "holding " + subject_, code );
   revision_ = ack->Sequence;
   jsPubAck_Destroy( ack );
   renewed_ = steadyNow();
   return true;
}

void NatsLease::take() {
   // Between two looks it may expire, or another may be faster.
   for ( int tries = 0; tries < 3; ++tries ) {
      natsMsg* own = nullptr;
      jsErrCode code{};
      const natsStatus status =
         js_GetLastMsg( &own, connection_.streams(), stream_.c_str(),
                        subject_.c_str(), nullptr, &code );
      const NatsMessage message( own );
      if ( status == NATS_NOT_FOUND ) {
         if ( claim( 0 ) ) return;
         continue;
      }
      checkNats( status, "asking for " + subject_, code );
      const Json holder = parsed( dataOf( message ) );
      const bool own_ = instanceOf( dataOf( message ) ) == instanceOf( value_ );
      if ( !isRemoval( message ) && !own_ && !isGone( holder ) )
         throw StoreHeld( fmt::format(
            "process {} on {} records this router; if it is gone, its right ends "
            "15 s "
            "after its last sign of life",
            holder.is_object() ? holder.value( "pid", Json() ).dump() : "?",
            textOf( holder, "host" ) ) );
      if ( claim( natsMsg_GetSequence( own ) ) ) return;
   }
   throw StoreAway( subject_ + " changes all the time" );
}

void NatsLease::renew() {
   if ( steadyNow() < renewed_ + interval ) return;
   if ( !claim( revision_ ) ) take();
}

std::string NatsLease::instanceOf( std::string_view value ) {
   return textOf( parsed( value ), "instance" );
}

}
