#include "apps/fleet/serve/Worker.h"

namespace Fleet {

Worker::Worker( size_t most ) : most_( most ), thread_( [this] { run(); } ) {}

Worker::~Worker() {
   stop();
}

bool Worker::post( Job job ) {
   const std::lock_guard lock( mutex_ );
   if ( jobs_.size() >= most_ ) return false;
   jobs_.emplace( Clock::now(), std::move( job ) );
   changed_.notify_one();
   return true;
}

void Worker::postAt( Clock::time_point time, Job job ) {
   const std::lock_guard lock( mutex_ );
   jobs_.emplace( time, std::move( job ) );
   changed_.notify_one();
}

void Worker::stop() {
   {
      const std::lock_guard lock( mutex_ );
      ended_ = true;
      changed_.notify_one();
   }
   if ( thread_.joinable() ) thread_.join();
   jobs_.clear();
}

void Worker::run() {
   std::unique_lock lock( mutex_ );
   while ( !ended_ ) {
      if ( jobs_.empty() ) {
         changed_.wait( lock );
         continue;
      }
      const auto next = jobs_.begin();
      if ( next->first > Clock::now() ) {
         changed_.wait_until( lock, next->first );
         continue;
      }
      // A job goes without the lock, and its captures before the next one.
      Job job = std::move( next->second );
      jobs_.erase( next );
      lock.unlock();
      job();
      job = nullptr;
      lock.lock();
   }
}

}
