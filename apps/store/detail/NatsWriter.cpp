#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "apps/store/Clocks.h"
#include "apps/store/Names.h"
#include "apps/store/detail/NatsRead.h"
#include "apps/store/detail/NatsStore.h"
#include "apps/store/detail/NatsStreams.h"

namespace Fleet {

namespace {

constexpr const char* kFormat = "Pimsm-Format";
constexpr const char* kDigest = "Pimsm-Digest";
constexpr const char* kInstance = "Pimsm-Instance";
constexpr const char* kOperation = "KV-Operation";
constexpr const char* kMark = "mark";  // a key of nothing
constexpr const char* kId = "Nats-Msg-Id";

}

NatsWriter::NatsWriter( const StoreAddress& address, const std::string& router,
                        const std::string& instance, const Keeping& keeping )
   : address_( address ),
     router_( router ),
     instance_( instance ),
     keeping_( keeping ),
     names_{ address.fleet },
     prefix_( names_.statePrefix( router ) ) {
   connect();
}

void NatsWriter::connect() {
   lease_.reset();
   room_.reset();
   foreign_.reset();
   connection_.reset();
   connection_ =
      std::make_unique<NatsConnection>( address_, names_.writer( router_ ) );
   requireSize();
   connection_->permitted( [&] {
      ensureStreams( *connection_, names_, router_, keeping_ );
      lease_ =
         std::make_unique<NatsLease>( *connection_, names_, router_, instance_ );
   } );
   room_.emplace( *connection_, names_.stateStream( router_ ) );
   foreign_ = connection_->ring( prefix_ + '>' );
   losses_ = connection_->losses();
   rings_ = connection_->rings();
   doubted_ = true;
}

// What is larger than that would be tried again for ever.
void NatsWriter::requireSize() const {
   constexpr int64_t kWanted =
      largestValue + 100'000;  // with headers, or as an event
   const int64_t most = natsConnection_GetMaxPayload( connection_->get() );
   if ( most < kWanted )
      throw StoreRefuses(
         fmt::format( "{}: the server takes messages of {} bytes, and a router's "
                      "values may have "
                      "{}: make its max_payload 1MB",
                      address_.store, most, kWanted ) );
}

void NatsWriter::requireStore() {
   // Without a connection it was closed, and could not be made anew.
   if ( connection_ == nullptr || connection_->closed() || lease_ == nullptr )
      connect();
   if ( !connection_->up() )
      throw StoreAway( address_.store + ": no server answers" );
   insured( [&] { lease_->renew(); } );
}

template <class Call>
void NatsWriter::insured( const Call& call ) {
   try {
      call();
   } catch ( const StoreAway& e ) {
      failed( e.what() );
   } catch ( const StoreMissing& e ) {
      failed( e.what() );
   }
}

std::map<std::string, Writer::Standing> NatsWriter::standing() {
   requireStore();
   // A server may be behind the others, and would read out what stood once. What it reads
   // out is all if this is in it.
   const std::string mark = prefix_ + kMark;
   std::vector<Sending> marks{ { mark, instance_, { { kInstance, instance_ } } } };
   send( marks, {} );
   std::map<std::string, Standing> all;
   removals_.clear();
   const auto take = [&]( const NatsMessage& message, const NatsRead& read ) {
      lease_->renew();  // it may take longer than that lasts
      const std::string key( read.subject.substr( prefix_.size() ) );
      if ( key == kMark ) return;
      if ( isRemoval( message ) ) {
         all.erase( key );
         noteRemoval( key, read.sequence );
         return;
      }
      const uint64_t format = numberOf( headerOf( message, kFormat ) );
      if ( format > storeFormat )
         throw StoreFormat(
            fmt::format( "{} has format {}, and this program knows {}",
                         names_.stateStream( router_ ), format, storeFormat ) );
      all[key] = { hexOf( headerOf( message, kDigest ) ).value_or( 0 ),
                   Packed( dataOf( message ) ) };
   };
   constexpr uint64_t kRate = 50'000'000;  // about as fast as it is packed
   // Not the last of each subject, but all: that asks no index, and a key has but one.
   insured( [&] {
      scanNats(
         *connection_,
         { names_.stateStream( router_ ), ">", 0, 0, marks[0].sequence, kRate },
         take );
   } );
   doubted_ = false;
   return all;
}

std::vector<std::string> NatsWriter::write( const std::vector<Event>& events,
                                            const std::vector<Put>& puts ) {
   requireStore();
   if ( !firstTry_ )
      firstTry_ = systemNow();
   else
      findStored( events );
   writeEvents( events );
   writeState( puts );
   std::vector<std::string> noRoom;
   for ( const Put& put : puts ) {
      const auto stored = storedKeys_.find( put.key );
      if ( stored == storedKeys_.end() )
         noRoom.push_back( put.key );
      else if ( put.value )
         removals_.erase( put.key );
      else
         noteRemoval( put.key, stored->second );
   }
   storedEvents_.clear();
   storedKeys_.clear();
   firstTry_.reset();
   troubledSince_.reset();
   let_ = true;
   return noRoom;
}

// The servers know an event again that is sent twice, but not for ever.
void NatsWriter::findStored( const std::vector<Event>& events ) {
   constexpr int64_t kMargin = 60'000;  // ms, of clocks
   if ( events.empty() || systemNow() < *firstTry_ + repeatable * 1000 / 2 ) return;
   std::map<std::string, int64_t> wanted;
   for ( const Event& event : events )
      wanted[fmt::format( "{}-{}", instance_, event.id )] = event.id;
   const auto note = [&]( const NatsMessage& message, const NatsRead& ) {
      const auto found = wanted.find( headerOf( message, kId ) );
      if ( found != wanted.end() ) storedEvents_.insert( found->second );
   };
   try {
      scanNats( *connection_,
                { names_.historyStream(), names_.historyPrefix( router_ ) + '>',
                  *firstTry_ - kMargin },
                note );
   } catch ( const StoreMissing& ) {
      // Nothing is stored.
   } catch ( const StoreAway& e ) {
      // A recorder need not be let read: a line that stands twice is better than none.
      if ( connection_->takeRefusal().empty() ) failed( e.what() );
   }
   firstTry_ = systemNow();
}

void NatsWriter::writeEvents( const std::vector<Event>& events ) {
   std::vector<Sending> all;
   std::vector<int64_t> ids;
   for ( const Event& event : events ) {
      if ( storedEvents_.contains( event.id ) ) continue;
      ids.push_back( event.id );
      all.push_back( { names_.subjectOf( router_, event ),
                       event.body,
                       { { kId, fmt::format( "{}-{}", instance_, event.id ) },
                         { "Pimsm-At", std::to_string( event.at ) },
                         { "Pimsm-Op", event.op },
                         { "Pimsm-Source", event.source } } } );
   }
   send( all, [&]( size_t i ) { storedEvents_.insert( ids[i] ); } );
   for ( const Sending& each : all )
      if ( each.noRoom ) failed( "the history has no room" );
}

void NatsWriter::writeState( const std::vector<Put>& puts ) {
   std::vector<Sending> all;
   std::vector<const std::string*> keys;
   // Of a key that is there twice, the last one is the truth.
   std::map<std::string_view, size_t> last;
   for ( size_t i = 0; i < puts.size(); ++i ) last[puts[i].key] = i;
   room_->begin();
   for ( size_t i = 0; i < puts.size(); ++i ) {
      const Put& put = puts[i];
      if ( last[put.key] != i || storedKeys_.contains( put.key ) ) continue;
      Sending sending{ prefix_ + put.key, {}, { { kInstance, instance_ } } };
      if ( put.value ) {
         sending.data = *put.value;
         sending.headers.emplace_back( kFormat, std::to_string( storeFormat ) );
         sending.headers.emplace_back( kDigest, hexText( put.digest ) );
      } else {
         sending.headers.emplace_back( kOperation, "DEL" );
      }
      if ( !hasRoom( sending, !put.value ) ) continue;
      keys.push_back( &put.key );
      all.push_back( std::move( sending ) );
   }
   send( all, [&]( size_t i ) { storedKeys_[*keys[i]] = all[i].sequence; } );
}

bool NatsWriter::hasRoom( const Sending& sending, bool removes ) {
   size_t bytes = sending.subject.size() + sending.data.size();
   for ( const auto& [name, value] : sending.headers )
      bytes += std::strlen( name ) + value.size() + std::strlen( ": \r\n" );
   if ( removes ) return room_->takeAnyway( bytes ), true;
   bool has = false;
   insured( [&] { has = room_->take( bytes ); } );
   return has;
}

void NatsWriter::publish( const Sending& sending, size_t index ) {
   natsMsg* own = nullptr;
   checkNats(
      natsMsg_Create( &own, sending.subject.c_str(), nullptr, sending.data.data(),
                      static_cast<int>( sending.data.size() ) ),
      "a message" );
   NatsMessage message( own );
   // The library reads no header of a message that has an empty one.
   for ( const auto& [name, value] : sending.headers )
      if ( !value.empty() )
         checkNats( natsMsgHeader_Set( own, name, value.c_str() ), "a header" );
   connection_->publish( std::move( message ), round_, index );
}

void NatsWriter::send( std::vector<Sending>& all, const Stored& stored ) {
   constexpr double kPatience = 2.5;  // s, somewhat more than an answer may take
   ++round_;
   const uint64_t losses = connection_->losses();
   size_t waiting = 0, next = 0;
   std::string trouble;
   double heard = steadyNow();
   while ( next < all.size() || waiting != 0 ) {
      for ( ; next < all.size() && waiting < inFlight && trouble.empty(); ++next ) {
         publish( all[next], next );
         ++waiting;
      }
      if ( !trouble.empty() && waiting == 0 ) break;
      const size_t before = waiting;
      take( all, waiting, trouble, stored );
      if ( waiting != before ) heard = steadyNow();
      if ( connection_->losses() != losses )
         failed( address_.store + ": the server was lost" );
      if ( steadyNow() > heard + kPatience ) failed( "the store does not answer" );
   }
   if ( !trouble.empty() ) failed( trouble );
}

void NatsWriter::take( std::vector<Sending>& all, size_t& waiting,
                       std::string& trouble, const Stored& stored ) {
   for ( NatsConnection::Outcome& outcome : connection_->outcomes( round_ ) ) {
      --waiting;
      Sending& sending = all[outcome.index];
      sending.sequence = outcome.sequence;
      if ( outcome.sequence != 0 ) {
         if ( stored ) stored( outcome.index );
         continue;
      }
      sending.noRoom = outcome.code == JSStreamStoreFailedErr &&
                       outcome.text.find( "maximum bytes" ) != std::string::npos;
      if ( sending.noRoom ) continue;
      trouble =
         outcome.status == NATS_NO_RESPONDERS
            ? "no server has the stream of " + sending.subject
            : "storing " + sending.subject + ": " +
                 ( outcome.text.empty() ? natsStatus_GetText( outcome.status )
                                        : outcome.text );
   }
}

void NatsWriter::failed( const std::string& trouble ) {
   constexpr double kPatience =
      2.0;  // s; an election takes longer, and is not this
   const std::string refusal = connection_->takeRefusal();
   if ( !refusal.empty() && !let_ ) throw StoreRefuses( refusal );
   if ( !refusal.empty() ) throw StoreAway( refusal );
   const double now = steadyNow();
   if ( !troubledSince_ ) troubledSince_ = now;
   // A stream that is missing answers as one without a leader.
   if ( connection_->up() && now > *troubledSince_ + kPatience ) {
      troubledSince_ = now;
      ensureAgain();
   }
   throw StoreAway( trouble );
}

// Who has written once waits for what is refused later.
void NatsWriter::ensureAgain() {
   ensured_ = steadyNow();
   try {
      if ( !ensureStreams( *connection_, names_, router_, keeping_ ) ) return;
      doubted_ = true;
      storedKeys_.clear();
   } catch ( const StoreRefuses& e ) {
      if ( !let_ ) throw;
      throw StoreAway( e.what() );
   }
}

void NatsWriter::beat() {
   constexpr double kLooking = 30.0;  // s, for a stream that somebody removed
   requireStore();
   if ( steadyNow() > ensured_ + kLooking ) insured( [&] { ensureAgain(); } );
}

bool NatsWriter::doubted() {
   const uint64_t rings = connection_->rings(), losses = connection_->losses();
   // Not before there is a server again, or it could not be compared.
   if ( !connection_->up() ) return false;
   if ( rings != std::exchange( rings_, rings ) ) doubted_ = true;
   if ( losses != std::exchange( losses_, losses ) ) doubted_ = true;
   return doubted_;
}

void NatsWriter::noteRemoval( const std::string& key, uint64_t sequence ) {
   removals_[key] = { steadyNow(), sequence };
}

// What marks a removal is kept for those that watch, and then is of no use.
bool NatsWriter::prune( int64_t ) {
   constexpr double kKept = 600.0;  // s
   constexpr size_t kSome = 100;
   if ( !connection_->up() ) return false;
   const double before = steadyNow() - kKept;
   size_t purged = 0;
   for ( auto at = removals_.begin(); at != removals_.end(); ) {
      if ( at->second.at > before ) {
         ++at;
         continue;
      }
      if ( purged++ == kSome ) return true;
      if ( !purge( at->first, at->second.sequence ) ) return false;
      at = removals_.erase( at );
   }
   return false;
}

// False: the stream is missing; the next look makes it anew.
bool NatsWriter::purge( const std::string& key, uint64_t sequence ) {
   const std::string subject = prefix_ + key;
   const std::string stream = names_.stateStream( router_ );
   jsOptions options;
   jsOptions_Init( &options );
   options.Stream.Purge.Subject = subject.c_str();
   // Nothing that has been written there since.
   options.Stream.Purge.Sequence = sequence + 1;
   jsErrCode code{};
   const natsStatus status =
      js_PurgeStream( connection_->streams(), stream.c_str(), &options, &code );
   if ( code == JSStreamNotFoundErr ) doubted_ = true;
   if ( code == JSStreamNotFoundErr ) return false;
   checkNats( status, "purging " + subject, code );
   return true;
}

}
