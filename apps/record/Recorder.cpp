#include "apps/record/Recorder.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <random>

#include "apps/json/YangData.h"
#include "apps/mirror/Events.h"
#include "apps/store/Names.h"
#include "apps/store/Untrusted.h"

namespace Fleet {

using Json = nlohmann::ordered_json;

namespace {

uint64_t randomWord() {
   std::random_device device;
   return uint64_t{ device() } << 32U | device();
}

// What a store held: null where it is too deep, discarded where it is no JSON.
Json parsed( const Packed& value ) {
   const std::string text = value.text();
   return isTooDeep( text ) ? Json() : Json::parse( text, nullptr, false );
}

}

Recorder::Recorder( Show::Mirrors& mirrors, const RecorderOptions& options,
                    Open open, Say say )
   : Notifiee( &mirrors.clock() ),
     mirrors_( mirrors ),
     options_( options ),
     say_( std::move( say ) ),
     instance_( hexText( randomWord() ) ),
     history_( options.router, instance_ ),
     log_( options.selection.root ),
     looked_( mirrors.now() - looking ),
     turnEnd_( mirrors.loop(), [this] { ++turn_; } ),
     store_(
        mirrors.loop(),
        [instance = instance_, own = std::move( open )] { return own( instance ); },
        [this]( StoreThread::Answer answer ) { handleDone( std::move( answer ) ); },
        [this]( const std::string& why ) {
           counts_.away = true;
           ++counts_.outages;
           say_( why + "; trying again until it succeeds" );
        } ) {
   recorder_ = { { "format", storeFormat },
                 { "version", PIMSM_VERSION },
                 { "boot", bootId() },
                 { "instance", instance_ },
                 { "host", hostRouter() },
                 { "pid", getpid() },
                 { "started", Show::utcOf( mirrors.now() ) },
                 { "complete", false } };
   follow();
}

Recorder::~Recorder() = default;

void Recorder::rethrow() const {
   if ( end_ != nullptr ) std::rethrow_exception( end_ );
}

std::string Recorder::metrics() {
   std::string text;
   const auto add = [&]( const char* name, const char* type, const char* help,
                         auto value ) {
      text += fmt::format(
         "# HELP pimsm_record_{0} {1}\n# TYPE pimsm_record_{0} {2}\n"
         "pimsm_record_{0} {3}\n",
         name, help, type, value );
   };
   add( "store_up", "gauge", "Does the store take what is written?",
        counts_.away || !open_ ? 0 : 1 );
   add( "complete", "gauge", "Does the store have all that the tables have?",
        counts_.complete ? 1 : 0 );
   add( "queued_keys", "gauge", "Keys that wait to be written.", counts_.queued );
   add( "puts_total", "counter", "Values written.", counts_.puts );
   add( "deletes_total", "counter", "Values removed.", counts_.deletes );
   add( "events_total", "counter", "Lines of history written.", counts_.events );
   add( "comparisons_total", "counter", "Comparisons of the store with the tables.",
        counts_.compared );
   add( "outages_total", "counter", "Times that the store could not be reached.",
        counts_.outages );
   add( "refused_keys", "gauge", "Keys that the store has no room for.",
        counts_.noRoom );
   add( "too_large_total", "counter", "Values left out for their size.",
        counts_.tooLarge );
   add( "late_seconds", "gauge",
        "The longest, since the last time, by which the loop was late.",
        std::exchange( counts_.late, 0.0 ) );
   return text;
}

void Recorder::wakeBy( double time ) {
   wakeupTimeIs( std::min( wakeupTime(), time ) );
}

void Recorder::touch( const Key& key ) {
   // The comparison with a store that opens names everything.
   if ( !open_ && !comparing_ ) return;
   scopes_[key.scope].queue.touch( key, mirrors_.now(), turn_, comparing_ );
   wakeBy( mirrors_.now() + gathering );
}

void Recorder::onTime() {
   const double now = mirrors_.now();
   if ( now >= looked_ + looking ) look();
   if ( open_ && now >= compared_ + comparing ) {
      compared_ = now;
      batch_.reread = true;
   }
   if ( now >= retried_ + retrying ) retryNoRoom();
   if ( open_ && !busy_ ) fill();
   const bool more =
      std::any_of( scopes_.begin(), scopes_.end(), [&]( const auto& each ) {
         return each.second.watched != nullptr && !each.second.queue.empty() &&
                !each.second.watched->rests( now );
      } );
   wakeupTimeIs( more && !busy_ ? now : looked_ + looking );
   counts_.queued = 0;
   for ( const auto& [scope, each] : scopes_ ) counts_.queued += each.queue.size();
}

void Recorder::look() {
   const double now = mirrors_.now();
   counts_.late = std::max( counts_.late, now - looked_ - looking );
   looked_ = now;
   mirrors_.rescan();
   follow();
   for ( auto& [scope, each] : scopes_ ) {
      if ( each.watched == nullptr ) continue;
      each.watched->lookAtWriter( looked_ );
      if ( looked_ >= each.sampled + options_.sample ) sample( each );
   }
   if ( !open_ || busy_ ) return;
   for ( Event& event : log_.take( history_ ) )
      batch_.events.push_back( std::move( event ) );
}

void Recorder::sample( Scoped& scoped ) {
   Watched& watched = *scoped.watched;
   scoped.sampled = looked_;
   for ( const uint32_t page : watched.samples().take( looked_ ) )
      touch( { Key::rates, watched.scope(), {}, page } );
   touch( { Key::top, watched.scope() } );
   touch( { Key::table, watched.scope() } );
}

// Watches the VRFs that have come, and gives up those that have gone.
void Recorder::follow() {
   for ( const auto& mirror : mirrors_.all() ) {
      Scoped& scoped = scopes_[{ mirror->vrf(), mirror->family }];
      if ( scoped.watched != nullptr ||
           mirror->problem().kind != Show::Mirror::Problem::none )
         continue;
      const bool isNew = open_ && !first_ && !scoped.stored;
      scoped.watched =
         std::make_unique<Watched>( *mirror, options_.sample, options_.top,
                                    [this]( const Key& key ) { touch( key ); } );
      scoped.missingSince = 0.0;
      scoped.lost = false;
      if ( isNew )
         batch_.events.push_back(
            history_.line( "vrf-new", scoped.watched->scope(), mirrors_.now() ) );
      // What was stored before may have changed at any time.
      comparing_ = !isNew;
      scoped.watched->touchAll();
      comparing_ = false;
   }
   noteProblems();
   const bool any =
      std::any_of( scopes_.begin(), scopes_.end(), []( const auto& each ) {
         return each.second.watched != nullptr || !each.second.problem.empty();
      } );
   std::vector<Scope> gone, lost;
   for ( auto& [scope, each] : scopes_ ) {
      if ( each.watched != nullptr && each.watched->mirror().removed() )
         gone.push_back( scope );
      if ( each.watched != nullptr || !each.problem.empty() || !open_ ) continue;
      if ( each.missingSince == 0.0 ) each.missingSince = mirrors_.now();
      if ( mirrors_.now() < each.missingSince + lingering ) continue;
      ( any ? gone : lost ).push_back( scope );
   }
   for ( const Scope& scope : gone ) dropScope( scope );
   for ( const Scope& scope : lost ) loseScope( scope );
}

void Recorder::noteProblems() {
   using Problem = Show::Mirror::Problem;
   for ( auto& [scope, each] : scopes_ ) {
      std::string problem;
      for ( const auto& mirror : mirrors_.all() ) {
         if ( Scope{ mirror->vrf(), mirror->family } != scope ) continue;
         const Problem found = mirror->problem();
         if ( found.kind != Problem::none && !mirror->gone() ) problem = found.text;
      }
      if ( !problem.empty() && problem != each.problem )
         say_( fmt::format( "vrf {} {} is not recorded: {}", scope.vrf,
                            Show::familyName( scope.family ), problem ) );
      each.problem = std::move( problem );
   }
}

void Recorder::loseScope( const Scope& scope ) {
   Scoped& scoped = scopes_[scope];
   if ( std::exchange( scoped.lost, true ) ) return;
   const Key key{ Key::table, scope };
   const auto known = known_.find( key );
   Json json = known != known_.end() ? parsed( known->second.value ) : Json();
   if ( !json.is_object() || json.value( "writer", Json() ) == "gone" ) return;
   json["writer"] = "gone";
   put( key, { mirrors_.now(), turn_, 1, true }, valueOf( json ) );
}

void Recorder::dropScope( const Scope& scope ) {
   const auto found = scopes_.find( scope );
   if ( found->second.watched != nullptr ) {
      const Show::Mirror& mirror = found->second.watched->mirror();
      found->second.watched.reset();
      mirrors_.drop( mirror );
   }
   scopes_.erase( found );
   bool any = false;
   for ( auto at = known_.begin(); at != known_.end(); ) {
      if ( at->first.scope != scope || at->first.kind == Key::recorder ) {
         ++at;
         continue;
      }
      batch_.puts.push_back( { keyText( at->first ), std::nullopt } );
      noRoom_.erase( at->first );
      at = known_.erase( at );
      any = true;
   }
   if ( any )
      batch_.events.push_back( history_.line( "vrf-gone", scope, mirrors_.now() ) );
}

void Recorder::compare() {
   compared_ = mirrors_.now();
   comparing_ = true;
   ++counts_.compared;
   for ( auto& [scope, each] : scopes_ ) {
      if ( each.watched != nullptr ) each.watched->touchAll();
   }
   for ( const auto& [key, known] : known_ ) {
      if ( key.kind != Key::recorder ) touch( key );
   }
   comparing_ = false;
}

void Recorder::take( StoreThread::Standing standing ) {
   known_.swap( standing.known );
   for ( const auto& [key, value] : known_ )
      if ( key.kind != Key::recorder ) scopes_[key.scope].stored = true;
   for ( const std::string& text : standing.unknown )
      batch_.puts.push_back( { text, std::nullopt } );
   const auto recorder = known_.find( Key() );
   if ( !open_ && recorder != known_.end() ) {
      const Json former = parsed( recorder->second.value );
      if ( former.is_object() ) log_.positionIs( former.value( "log", Json() ) );
   }
   compare();
}

void Recorder::takeNoRoom( const std::vector<std::string>& keys ) {
   const bool wasFull = !noRoom_.empty();
   for ( const Key& key : std::exchange( tryingAgain_, {} ) ) noRoom_.erase( key );
   for ( const std::string& text : keys ) {
      const auto key = parseKey( text );
      const auto known = key ? known_.find( *key ) : known_.end();
      if ( known == known_.end() ) continue;
      // The history has the change; the value goes again as soon as it may.
      known->second.digest = 0;
      noRoom_.insert( *key );
   }
   counts_.noRoom = noRoom_.size();
   if ( noRoom_.empty() || wasFull ) return;
   counts_.complete = false;
   recorder_["complete"] = false;
   putRecorder();
   say_(
      fmt::format( "the store has no room for {} values, {} among them; trying "
                   "again until it has (--state-bytes)",
                   noRoom_.size(), keyText( *noRoom_.begin() ) ) );
}

void Recorder::retryNoRoom() {
   retried_ = mirrors_.now();
   if ( !open_ || busy_ ) return;
   for ( const Key& key : noRoom_ ) {
      if ( key.kind == Key::recorder )
         putRecorder();
      else
         touch( key );
   }
}

void Recorder::handleDone( StoreThread::Answer answer ) {
   if ( answer.batch ) busy_ = false;
   counts_.away = false;
   if ( answer.end != nullptr ) {
      busy_ = true;
      end_ = answer.end;
      mirrors_.loop().stop();
      return;
   }
   if ( answer.batch ) takeNoRoom( answer.noRoom );
   // It was read before the batch that is under way, whose changes would be told again.
   if ( !answer.batch && busy_ && answer.standing ) {
      answer.standing.reset();
      batch_.reread = true;
   }
   if ( answer.standing ) {
      first_ = !open_ && answer.standing->empty();
      take( std::move( *answer.standing ) );
   }
   if ( !open_ ) {
      open_ = true;
      Json more = Json::object();
      if ( first_ ) more["first"] = true;
      batch_.events.push_back(
         history_.line( "recorder-started", {}, mirrors_.now(), more ) );
      putRecorder();
   }
   if ( answer.away > 0.0 && counts_.complete ) {
      counts_.complete = false;
      recorder_["complete"] = false;
      putRecorder();
   }
   if ( answer.away > 0.0 ) {
      say_( fmt::format( "the store is back after {:.1f} s", answer.away ) );
      batch_.events.push_back(
         history_.line( "store-back", {}, mirrors_.now(),
                        { { "away", fmt::format( "{:.3f}", answer.away ) } } ) );
   }
   wakeBy( mirrors_.now() );
}

void Recorder::putRecorder() {
   Json position = log_.position();
   if ( !position.empty() ) recorder_["log"] = std::move( position );
   const std::string text = Show::jsonText( recorder_ );
   batch_.puts.push_back( { keyText( {} ), text, digestOf( text ) } );
   known_[{}] = { digestOf( text ), Packed( text ) };
   if ( noRoom_.contains( {} ) ) tryingAgain_.insert( Key() );
}

// Told once; `table` names it until it is smaller.
bool Recorder::isTooLarge( const Key& key, const std::optional<Value>& value ) {
   const bool is = value && value->text.size() > largestValue;
   if ( is ) ++counts_.tooLarge;
   const bool changed =
      is ? tooLarge_.insert( key ).second : tooLarge_.erase( key ) != 0;
   if ( changed ) touch( { Key::table, key.scope } );
   if ( is && changed )
      say_( fmt::format( "the value of {} has {} bytes and is left out",
                         keyText( key ), value->text.size() ) );
   return is;
}

void Recorder::put( const Key& key, const Touch& touch,
                    std::optional<Value> value ) {
   if ( isTooLarge( key, value ) ) return;
   const auto found = known_.find( key );
   const bool stood = found != known_.end();
   if ( !value && !stood ) return;
   if ( value && stood && found->second.digest == value->digest ) return;
   if ( !first_ ) {
      for ( Event& event :
            history_.changes( key, stood ? found->second.value.text() : "",
                              value ? value->text : "", touch ) )
         batch_.events.push_back( std::move( event ) );
   }
   if ( noRoom_.contains( key ) ) tryingAgain_.insert( key );
   ++( value ? counts_.puts : counts_.deletes );
   if ( !value ) {
      batch_.puts.push_back( { keyText( key ), std::nullopt } );
      known_.erase( found );
      return;
   }
   known_[key] = { value->digest, Packed( value->text ) };
   batch_.puts.push_back(
      { keyText( key ), std::move( value->text ), value->digest } );
}

// True when the time is up.
bool Recorder::fillFrom( Scoped& scoped, double until ) {
   constexpr size_t kMost = 500;
   // Of one turn: nothing changes while it lasts.
   const Values values( *scoped.watched, tooLarge_ );
   while ( !scoped.queue.empty() && batch_.puts.size() < kMost ) {
      if ( mirrors_.now() >= until ) return true;
      const auto [key, touched] = scoped.queue.take();
      std::optional<Value> value;
      try {
         value = values.of( key );
      } catch ( const Values::Unreadable& ) {
         continue;
      }
      const auto known = known_.find( key );
      const bool routesFollow =
         ( key.kind == Key::links && value && known != known_.end() &&
           known->second.digest != value->digest ) ||
         // The value names access lists, and routes follow from what they say.
         ( key.kind == Key::rps && !touched.compared );
      put( key, touched, std::move( value ) );
      if ( routesFollow ) scoped.watched->touchRoutes();
   }
   return batch_.puts.size() >= kMost;
}

void Recorder::fill() {
   constexpr double kSlice = 0.01;  // s
   const double now = mirrors_.now();
   // In turn, so that a VRF that changes all the time does not keep others waiting.
   auto at = scopes_.upper_bound( last_ );
   for ( size_t i = 0; i < scopes_.size(); ++i, ++at ) {
      if ( at == scopes_.end() ) at = scopes_.begin();
      Scoped& each = at->second;
      if ( each.watched == nullptr || each.watched->rests( now ) ) continue;
      last_ = at->first;
      if ( fillFrom( each, now + kSlice ) ) break;
   }
   const bool done = settled();
   if ( done && !counts_.complete ) {
      counts_.complete = true;
      first_ = false;
      recorder_["complete"] = true;
      putRecorder();
   } else if ( log_.position() != recorder_.value( "log", Json() ) &&
               !log_.position().empty() ) {
      putRecorder();
   }
   if ( batch_.empty() ) {
      if ( done && options_.once ) mirrors_.loop().stop();
      return;
   }
   counts_.events += batch_.events.size();
   busy_ = true;
   store_.write( std::exchange( batch_, {} ) );
}

// Has the store all that the tables have? Not before there are any.
bool Recorder::settled() const {
   if ( !noRoom_.empty() ) return false;
   bool any = false;
   for ( const auto& [scope, each] : scopes_ ) {
      // What cannot be read, or nobody publishes, stays as it was last.
      if ( !each.problem.empty() || each.lost ) {
         any = true;
         continue;
      }
      if ( each.watched == nullptr || !each.queue.empty() ) return false;
      any = true;
   }
   return any;
}

}
