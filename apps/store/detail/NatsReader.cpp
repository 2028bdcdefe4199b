#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

#include "apps/store/Clocks.h"
#include "apps/store/Names.h"
#include "apps/store/detail/NatsRead.h"
#include "apps/store/detail/NatsStore.h"
#include "apps/store/detail/NatsStreams.h"

namespace Fleet {

namespace {

bool nobodyHas( const NatsMessage& message ) {
   return message != nullptr && natsMsg_IsNoResponders( message.get() );
}

bool stands( const NatsMessage& message ) {
   return message != nullptr && !isRemoval( message );
}

void requireServer( const NatsMessage& message, const std::string& router ) {
   if ( nobodyHas( message ) )
      throw StoreAway( "no server has the state of " + router + " at the moment" );
}

// Whoever hears of a value may be faster than the server that stores it: the second ring
// of each comes a little later.
class SubjectBell : public Bell {
 public:
   SubjectBell( const StoreAddress& address,
                const std::vector<std::string>& subjects )
      : connection_( address ) {
      for ( const std::string& subject : subjects )
         rings_.push_back( connection_.ring( subject ) );
   }

   bool rang() override {
      const uint64_t heard = connection_.rings() + connection_.losses();
      const bool is = !heard_ || heard != *heard_ || again_;
      again_ = !heard_ || heard != *heard_;
      heard_ = heard;
      return is;
   }

 private:
   NatsConnection connection_;
   std::vector<NatsSubscription> rings_;
   std::optional<uint64_t> heard_;
   bool again_ = false;
};

}

NatsReader::NatsReader( const StoreAddress& address )
   : address_( address ), names_{ address.fleet } {}

const NatsConnection& NatsReader::connection() {
   if ( connection_ == nullptr || connection_->closed() )
      connection_ = std::make_unique<NatsConnection>( address_ );
   return *connection_;
}

void NatsReader::requireName( const std::string& router ) {
   if ( !isName( router ) ) throw StoreMissing( "No router has such a name" );
}

std::vector<std::string> NatsReader::routers() {
   jsStreamNamesList* list = nullptr;
   jsErrCode code{};
   const natsStatus status =
      js_StreamNames( &list, connection().streams(), nullptr, &code );
   if ( status == NATS_NOT_FOUND ) return {};
   // While the servers elect who answers that, the routers are those of before.
   if ( status != NATS_OK && !known_.empty() ) return known_;
   checkNats( status, "asking for the routers", code );
   const std::unique_ptr<jsStreamNamesList,
                         NatsDestroy<jsStreamNamesList, jsStreamNamesList_Destroy>>
      owner( list );
   std::vector<std::string> names;
   for ( int i = 0; i < list->Count; ++i ) {
      std::string name = names_.routerOf( list->List[i] );
      if ( !name.empty() ) names.push_back( std::move( name ) );
   }
   std::sort( names.begin(), names.end() );
   known_ = names;
   return names;
}

std::vector<NatsMessage> NatsReader::readWithLives(
   const std::vector<std::string>& routers, std::vector<NatsExact> more ) {
   constexpr double kFresh = 1.0;  // s
   const size_t others = more.size();
   const double now = steadyNow();
   std::vector<Life*> asked;
   for ( const std::string& router : routers ) {
      Life& life = lives_[router];
      if ( life.looked != 0.0 && now < life.looked + kFresh ) continue;
      asked.push_back( &life );
      more.push_back( { names_.liveStream(), names_.liveSubject( router ) } );
   }
   std::vector<NatsMessage> messages = readNats( connection(), more );
   for ( size_t i = 0; i < asked.size(); ++i ) {
      const NatsMessage& message = messages[others + i];
      // Before the first recorder there are no lives; and a leader comes again.
      if ( nobodyHas( message ) ) continue;
      Life& life = *asked[i];
      const uint64_t revision =
         stands( message ) ? numberOf( headerOf( message, "Nats-Sequence" ) ) : 0;
      if ( revision != life.revision ) life.moved = now;
      life.revision = revision;
      life.looked = now;
      life.instance =
         stands( message ) ? NatsLease::instanceOf( dataOf( message ) ) : "";
   }
   return messages;
}

const NatsReader::Life& NatsReader::lifeOf( const std::string& router ) {
   requireName( router );
   readWithLives( { router }, {} );
   return lives_[router];
}

// A server that has stopped expiring keys is found out by our own clock.
bool NatsReader::lives( const std::string& router ) {
   const Life& life = lifeOf( router );
   return life.revision != 0 && life.looked < life.moved + lifetime;
}

std::string NatsReader::instance( const std::string& router ) {
   return lifeOf( router ).instance;
}

std::string NatsReader::valueOf( const std::string& router, const std::string& key,
                                 const NatsMessage& message ) const {
   const uint64_t format = numberOf( headerOf( message, "Pimsm-Format" ) );
   if ( format > storeFormat )
      throw StoreFormat(
         fmt::format( "{} of {} has format {}, and this program knows {}", key,
                      router, format, storeFormat ) );
   return std::string( dataOf( message ) );
}

void NatsReader::foresee( const std::vector<std::string>& routers,
                          const std::vector<std::string>& keys ) {
   foreseen_.clear();
   foresaw_ = steadyNow();
   std::vector<NatsExact> exact;
   for ( const std::string& router : routers )
      for ( const std::string& key : keys )
         exact.push_back(
            { names_.stateStream( router ), names_.statePrefix( router ) + key } );
   std::vector<NatsMessage> messages = readWithLives( routers, std::move( exact ) );
   size_t i = 0;
   for ( const std::string& router : routers )
      for ( const std::string& key : keys )
         foreseen_[{ router, key }] = std::move( messages[i++] );
}

std::map<std::string, std::string> NatsReader::values(
   const std::string& router, const std::vector<std::string>& keys ) {
   requireName( router );
   constexpr double kFresh = 5.0;  // s
   if ( steadyNow() > foresaw_ + kFresh ) foreseen_.clear();
   std::map<std::string, std::string> found;
   const auto take = [&]( const std::string& key, const NatsMessage& message ) {
      requireServer( message, router );
      if ( stands( message ) ) found[key] = valueOf( router, key, message );
   };
   std::vector<NatsExact> exact;
   std::vector<std::string> missing;
   for ( const std::string& key : keys ) {
      const auto known = foreseen_.extract( { router, key } );
      if ( !known.empty() ) {
         take( key, known.mapped() );
         continue;
      }
      missing.push_back( key );
      exact.push_back(
         { names_.stateStream( router ), names_.statePrefix( router ) + key } );
   }
   const std::vector<NatsMessage> messages = readNats( connection(), exact );
   for ( size_t i = 0; i < messages.size(); ++i ) take( missing[i], messages[i] );
   return found;
}

void NatsReader::each(
   const std::string& router, const std::string& prefix,
   const std::function<void( const std::string&, const std::string& )>& call ) {
   requireName( router );
   const std::string stream = names_.stateStream( router );
   const std::string keys = names_.statePrefix( router ), wanted = keys + prefix;
   std::map<std::string, std::string> all;
   const auto take = [&]( std::string_view subject, const NatsMessage& message ) {
      if ( !subject.starts_with( wanted ) ) return;
      std::string key( subject.substr( keys.size() ) );
      all.erase( key );
      if ( !stands( message ) ) return;
      std::string value = valueOf( router, key, message );
      all[std::move( key )] = std::move( value );
   };
   // A few are asked for by name, which any server answers; for many, one is given the
   // task to read all out. So it is where a server does not find what another one names:
   // the index of one that was killed may lack it for good.
   constexpr size_t kFew = 1000;
   const auto subjects = subjectsOf( connection(), stream, wanted + '>' );
   bool whole = subjects.size() > kFew;
   std::vector<NatsExact> exact;
   for ( size_t i = 0; i < subjects.size() && !whole; ++i )
      exact.push_back( { stream, subjects[i] } );
   const auto messages = readNats( connection(), exact );
   for ( size_t i = 0; i < messages.size() && !whole; ++i ) {
      requireServer( messages[i], router );
      whole = messages[i] == nullptr;
      if ( !whole ) take( subjects[i], messages[i] );
   }
   if ( whole )
      scanNats( connection(), { stream, ">" },
                [&]( const NatsMessage& message, const NatsRead& read ) {
                   take( read.subject, message );
                } );
   for ( const auto& [key, value] : all ) call( key, value );
}

void NatsReader::history( const std::string& router, const Past& past,
                          const std::function<void( const Event& )>& call ) {
   constexpr int64_t kMargin = 60'000;  // ms, of the clocks of recorder and server
   requireName( router );
   std::vector<Event> all;
   const auto take = [&]( const NatsMessage& message, const NatsRead& read ) {
      Event event;
      if ( !names_.fill( event, router, read.subject ) ) return;
      event.id = static_cast<int64_t>( read.sequence );
      event.at =
         static_cast<int64_t>( numberOf( headerOf( message, "Pimsm-At" ) ) );
      event.op = headerOf( message, "Pimsm-Op" );
      event.source = headerOf( message, "Pimsm-Source" );
      if ( event.at < past.since || event.at > past.until ) return;
      if ( !past.source.empty() && event.source != past.source &&
           event.source != "*" )
         return;
      event.body = dataOf( message );
      all.push_back( std::move( event ) );
   };
   scanNats( connection(),
             { names_.historyStream(), names_.subjectOf( router, past ),
               past.since - kMargin, static_cast<uint64_t>( past.after ) },
             take );
   if ( past.after == 0 )
      std::stable_sort(
         all.begin(), all.end(),
         []( const Event& a, const Event& b ) { return a.at < b.at; } );
   for ( const Event& event : all ) call( event );
}

int64_t NatsReader::newest( const std::string& router ) {
   requireName( router );
   const auto last = readNats(
      connection(),
      { { names_.historyStream(), names_.historyPrefix( router ) + '>' } } );
   requireServer( last[0], router );
   const uint64_t number =
      last[0] == nullptr ? 0 : numberOf( headerOf( last[0], "Nats-Sequence" ) );
   uint64_t& known = newest_[router];
   // The server that answered may be behind the others.
   if ( number < known && lastOfHistory() >= known )
      return static_cast<int64_t>( known );
   known = number;
   return static_cast<int64_t>( number );
}

// Of all routers, as the one says that leads.
uint64_t NatsReader::lastOfHistory() {
   jsStreamInfo* info = nullptr;
   jsErrCode code{};
   const std::string stream = names_.historyStream();
   const natsStatus status = js_GetStreamInfo( &info, connection().streams(),
                                               stream.c_str(), nullptr, &code );
   checkNats( status, "asking for the stream " + stream, code );
   const uint64_t last = info->State.LastSeq;
   jsStreamInfo_Destroy( info );
   return last;
}

std::unique_ptr<Bell> NatsReader::bell( const Scope& scope,
                                        const Vantu::IpGenAddr& group ) {
   std::vector<std::string> subjects;
   const auto add = [&]( const std::string& keys ) {
      subjects.push_back( "$KV.*." + keys );
   };
   for ( const Key::Kind kind : { Key::table, Key::links, Key::rps } )
      add( keyText( { kind, scope } ) );
   for ( const Key::Kind kind : { Key::route, Key::registers } )
      add( keyPrefix( kind, scope, group ) + '*' );
   subjects.push_back( "$KV.*.recorder" );
   subjects.push_back( names_.liveSubject( ">" ) );
   return std::make_unique<SubjectBell>( address_, subjects );
}

void NatsReader::forget( const std::string& router ) {
   lives_.erase( router );
   if ( lives( router ) )
      throw StoreHeld( "a recorder keeps " + router +
                       " up to date; stop it before its state is removed" );
   // The state last: while it stands, what is left can be removed again.
   jsErrCode code{};
   jsOptions options;
   jsOptions_Init( &options );
   const std::string subject = names_.historyPrefix( router ) + '>';
   options.Stream.Purge.Subject = subject.c_str();
   natsStatus status = js_PurgeStream(
      connection().streams(), names_.historyStream().c_str(), &options, &code );
   const bool none = code == JSStreamNotFoundErr;
   connection_->permitted( [&] {
      if ( !none ) checkNats( status, "removing the history of " + router, code );
   } );
   const std::string stream = names_.stateStream( router );
   status =
      js_DeleteStream( connection().streams(), stream.c_str(), nullptr, &code );
   if ( status == NATS_NOT_FOUND )
      throw StoreMissing( "the store has no router " + router );
   connection_->permitted(
      [&] { checkNats( status, "removing " + stream, code ); } );
}

}
