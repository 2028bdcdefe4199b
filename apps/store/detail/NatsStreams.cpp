#include "apps/store/detail/NatsStreams.h"

#include <fmt/format.h>

namespace Fleet {

namespace {

constexpr int64_t kSecond = 1'000'000'000;  // ns
constexpr double kPerSecond = 1e9;          // nanoseconds

jsStreamConfig configOf( const std::string& name, const char** subject,
                         const Keeping& keeping ) {
   jsStreamConfig config;
   jsStreamConfig_Init( &config );
   config.Name = name.c_str();
   config.Subjects = subject;
   config.SubjectsLen = 1;
   config.Storage = js_FileStorage;
   config.Replicas = static_cast<int64_t>( keeping.replicas );
   config.AllowDirect = true;
   return config;
}

// Of the state it must be ours: one that drops what is oldest would lose the routes that
// have been stable longest, and say nothing.
void requireOurs( const jsStreamConfig& standing, const jsStreamConfig& wanted ) {
   if ( standing.Discard == wanted.Discard &&
        ( wanted.MaxMsgsPerSubject == 0 ||
          standing.MaxMsgsPerSubject == wanted.MaxMsgsPerSubject ) &&
        standing.AllowDirect )
      return;
   throw StoreRefuses( fmt::format(
      "the stream {} was made otherwise than by pimsm-record; remove it, or record "
      "under another name",
      wanted.Name ) );
}

bool stands( const NatsConnection& connection, const jsStreamConfig& wanted ) {
   jsStreamInfo* info = nullptr;
   jsErrCode code{};
   const natsStatus status =
      js_GetStreamInfo( &info, connection.streams(), wanted.Name, nullptr, &code );
   if ( code == JSStreamNotFoundErr || status == NATS_NOT_FOUND ) return false;
   checkNats( status, std::string( "asking for the stream " ) + wanted.Name, code );
   const std::unique_ptr<jsStreamInfo,
                         NatsDestroy<jsStreamInfo, jsStreamInfo_Destroy>>
      owner( info );
   requireOurs( *info->Config, wanted );
   return true;
}

std::string noRoom( const jsStreamConfig& wanted, const std::string& text ) {
   return fmt::format(
      "{}; the servers reserve {} bytes in each of {} replicas for the "
      "stream {}: make it smaller (--state-bytes, --keep-bytes), or "
      "give them more room",
      text, wanted.MaxBytes, wanted.Replicas, wanted.Name );
}

// True if it was missing.
bool ensure( const NatsConnection& connection, jsStreamConfig& wanted ) {
   if ( stands( connection, wanted ) ) return false;
   jsErrCode code{};
   const natsStatus status =
      js_AddStream( nullptr, connection.streams(), &wanted, nullptr, &code );
   // Another recorder may have been faster.
   if ( code == JSStreamNameExistErr ) return false;
   try {
      checkNats( status, std::string( "making the stream " ) + wanted.Name, code );
   } catch ( const StoreAway& e ) {
      if ( code == JSStorageResourcesExceededErr )
         throw StoreRefuses( noRoom( wanted, e.what() ) );
      // A cluster says the same while one of its servers is away.
      if ( code == JSClusterNoPeersErr || code == JSInsufficientResourcesErr )
         throw StoreAway( noRoom( wanted, e.what() ) );
      if ( code == JSStreamReplicasNotSupportedErr )
         throw StoreRefuses( e.what() + std::string( " (--replicas)" ) );
      throw;
   }
   return true;
}

}

bool ensureStreams( const NatsConnection& connection, const NatsNames& names,
                    const std::string& router, const Keeping& keeping ) {
   const std::string liveName = names.liveStream();
   const std::string liveSubjects = names.liveSubject( ">" );
   const char* liveSubject = liveSubjects.c_str();
   jsStreamConfig live = configOf( liveName, &liveSubject, keeping );
   live.MaxMsgsPerSubject = 1;
   live.Discard = js_DiscardNew;
   live.MaxAge = lifetime * kSecond;
   live.Duplicates = live.MaxAge;  // no longer than the age
   ensure( connection, live );

   const std::string historyName = names.historyStream();
   const std::string historySubjects = "pimsm." + names.fleet + ".history.>";
   const char* historySubject = historySubjects.c_str();
   jsStreamConfig history = configOf( historyName, &historySubject, keeping );
   history.Discard = js_DiscardOld;
   history.MaxAge = static_cast<int64_t>( keeping.age * kPerSecond );
   history.MaxBytes = static_cast<int64_t>( keeping.bytes );
   history.Duplicates = std::min( repeatable * kSecond, history.MaxAge );
   ensure( connection, history );

   const std::string stateName = names.stateStream( router );
   const std::string stateSubjects = names.statePrefix( router ) + '>';
   const char* stateSubject = stateSubjects.c_str();
   jsStreamConfig state = configOf( stateName, &stateSubject, keeping );
   state.MaxMsgsPerSubject = 1;
   state.Discard = js_DiscardNew;
   state.MaxBytes = static_cast<int64_t>( keeping.stateBytes );
   return ensure( connection, state );
}

}
