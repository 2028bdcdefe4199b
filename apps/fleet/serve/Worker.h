// A thread that does one job after another. What may block a while is done there.
//
// post() and postAt() may be called by any thread, a job's own included. What waits at
// the worker's end is dropped undone; the end waits for the job that runs.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace Fleet {

class Worker {
 public:
   using Clock = std::chrono::steady_clock;
   using Job = std::function<void()>;

   // `most`: jobs of post() that may wait.
   explicit Worker( size_t most );
   ~Worker();
   Worker( const Worker& ) = delete;
   Worker& operator=( const Worker& ) = delete;

   // In order of the calls. False: too many wait already.
   bool post( Job job );
   // Not before that time. Never refused: jobs post themselves again by it.
   void postAt( Clock::time_point time, Job job );
   // Ends the thread; nothing is done from here on.
   void stop();

 private:
   void run();

   const size_t most_;
   std::mutex mutex_;
   std::condition_variable changed_;
   std::multimap<Clock::time_point, Job> jobs_;
   bool ended_ = false;
   std::thread thread_;
};

}
