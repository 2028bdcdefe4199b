#include "apps/record/StoreThread.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "apps/store/Clocks.h"

namespace Fleet {

namespace {

// Here, since it takes too long for the loop.
StoreThread::Standing sorted( std::map<std::string, Writer::Standing> all ) {
   StoreThread::Standing standing;
   while ( !all.empty() ) {
      auto node = all.extract( all.begin() );
      if ( const auto key = parseKey( node.key() ) )
         standing.known.emplace( *key, std::move( node.mapped() ) );
      else
         standing.unknown.push_back( std::move( node.key() ) );
   }
   return standing;
}

}

StoreThread::StoreThread( Mox::Loop& loop, Open open, Done done, Away away )
   : open_( std::move( open ) ),
     done_( std::move( done ) ),
     away_( std::move( away ) ),
     ring_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ), "eventfd" ),
     watcher_( loop, ring_.value(), [this] { heard(); } ),
     thread_( [this] { run(); } ) {}

StoreThread::~StoreThread() {
   {
      const std::lock_guard lock( mutex_ );
      ending_ = true;
   }
   wake_.notify_one();
   thread_.join();
}

void StoreThread::write( Batch batch ) {
   {
      const std::lock_guard lock( mutex_ );
      batch_ = std::move( batch );
   }
   wake_.notify_one();
}

void StoreThread::post( Answer answer ) {
   {
      const std::lock_guard lock( mutex_ );
      answers_.push_back( std::move( answer ) );
   }
   eventfd_write( ring_.value(), 1 );
}

void StoreThread::heard() {
   eventfd_t count = 0;
   eventfd_read( ring_.value(), &count );
   std::vector<Answer> answers;
   std::vector<std::string> whys;
   {
      const std::lock_guard lock( mutex_ );
      answers.swap( answers_ );
      whys.swap( whys_ );
   }
   for ( const std::string& why : whys ) away_( why );
   for ( Answer& answer : answers ) done_( std::move( answer ) );
}

// False at the end.
bool StoreThread::pause( double seconds ) {
   std::unique_lock lock( mutex_ );
   return !wake_.wait_for( lock, std::chrono::duration<double>( seconds ),
                           [this] { return ending_; } );
}

std::optional<double> StoreThread::insist( const std::function<void()>& work ) {
   constexpr double kFirstPause = 0.1, kLongestPause = 2.0;  // s
   double wait = kFirstPause;
   std::optional<double> since;
   for ( ;; ) {
      try {
         work();
         return since ? steadyNow() - *since : 0.0;
      } catch ( const StoreAway& e ) {
         if ( !since ) {
            since = steadyNow();
            const std::lock_guard lock( mutex_ );
            whys_.emplace_back( e.what() );
            eventfd_write( ring_.value(), 1 );
         }
      }
      if ( !pause( wait ) ) return std::nullopt;
      wait = std::min( wait * 2, kLongestPause );
   }
}

void StoreThread::run() {
   try {
      std::unique_ptr<Writer> writer;
      Answer opened;
      const auto away = insist( [&] {
         if ( writer == nullptr ) writer = open_();
         opened.standing = sorted( writer->standing() );
      } );
      if ( !away ) return;
      opened.away = *away;
      post( std::move( opened ) );
      serve( *writer );
   } catch ( ... ) {
      post( { true, std::nullopt, {}, 0.0, std::current_exception() } );
   }
}

// False at the end.
bool StoreThread::beat( Writer& writer ) {
   Answer answer;
   answer.batch = false;
   const auto away = insist( [&] { writer.beat(); } );
   if ( !away ) return false;
   pruneSome( writer );
   if ( *away == 0.0 ) return look( writer );
   answer.away = *away;
   if ( !reread( writer, answer ) ) return false;
   post( std::move( answer ) );
   return true;
}

bool StoreThread::reread( Writer& writer, Answer& answer ) {
   const auto away =
      insist( [&] { answer.standing = sorted( writer.standing() ); } );
   answer.away += away.value_or( 0.0 );
   return away.has_value();
}

bool StoreThread::look( Writer& writer ) {
   if ( !writer.doubted() ) return true;
   Answer answer;
   answer.batch = false;
   if ( !reread( writer, answer ) ) return false;
   post( std::move( answer ) );
   return true;
}

void StoreThread::serve( Writer& writer ) {
   constexpr double kLooking = 0.5;  // s
   double beaten = steadyNow();
   for ( ;; ) {
      Batch batch;
      {
         std::unique_lock lock( mutex_ );
         const bool woken =
            wake_.wait_for( lock, std::chrono::duration<double>( kLooking ),
                            [this] { return batch_ || ending_; } );
         if ( woken && !batch_ ) return;
         if ( woken ) {
            batch = std::move( *batch_ );
            batch_.reset();
         }
      }
      if ( batch.empty() ) {
         const bool isTime = steadyNow() >= beaten + Writer::beating;
         if ( isTime ) beaten = steadyNow();
         if ( !( isTime ? beat( writer ) : look( writer ) ) ) return;
         continue;
      }
      Answer answer;
      const auto away = insist(
         [&] { answer.noRoom = writer.write( batch.events, batch.puts ); } );
      if ( !away ) return;
      answer.away = *away;
      // The store may have come back with less than it had.
      if ( ( *away > 0.0 || batch.reread || writer.doubted() ) &&
           !reread( writer, answer ) )
         return;
      post( std::move( answer ) );
      pruneSome( writer );
   }
}

// A little between batches; old rows never hold up new ones for long.
void StoreThread::pruneSome( Writer& writer ) {
   constexpr double kInterval = 10.0;  // s
   if ( steadyNow() < pruned_ + kInterval ) return;
   try {
      if ( !writer.prune( systemNow() ) ) pruned_ = steadyNow();
   } catch ( const StoreAway& ) {
      pruned_ = steadyNow();  // the next batch will find out
   }
}

}
