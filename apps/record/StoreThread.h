// The thread that writes to the store, so that a store that blocks does not block the
// loop. Batches pass one after the other; nothing else is shared.
//
// The object belongs to the loop's thread, which is called back.
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "apps/store/Store.h"
#include "platform/loop/Loop.h"

namespace Fleet {

struct Batch {
   std::vector<Event> events;
   std::vector<Writer::Put> puts;
   bool reread = false;  // tell what stands afterwards
   bool empty() const { return events.empty() && puts.empty() && !reread; }
};

class StoreThread {
 public:
   struct Standing {
      std::map<Key, Writer::Standing> known;
      std::vector<std::string> unknown;  // what is no key of this format
      bool empty() const { return known.empty() && unknown.empty(); }
   };
   struct Answer {
      bool batch = true;  // to a batch, or to opening; false: unasked
      // What stands, when the store was opened and whenever it may have lost something, or
      // have something else than was written.
      std::optional<Standing> standing = std::nullopt;
      // Keys that have no room; their former values stand.
      std::vector<std::string> noRoom = {};
      double away = 0.0;                 // s that it was, before this answer
      std::exception_ptr end = nullptr;  // the store will take no more
   };
   // After the store was opened, and after each batch has been written.
   using Done = std::function<void( Answer )>;
   // The store cannot be reached; told once each time.
   using Away = std::function<void( const std::string& why )>;
   using Open = std::function<std::unique_ptr<Writer>()>;

   StoreThread( Mox::Loop& loop, Open open, Done done, Away away );
   // Waits until the batch is written, or fails.
   ~StoreThread();
   StoreThread( const StoreThread& ) = delete;
   StoreThread& operator=( const StoreThread& ) = delete;

   // REQUIRES: the former batch was answered.
   void write( Batch batch );

 private:
   void run();
   void serve( Writer& writer );
   // Does it again and again until it is done, or this ends. Returns for how long the
   // store was away, s; nothing at the end.
   std::optional<double> insist( const std::function<void()>& work );
   // Shows readers that the recorder lives, and prunes.
   bool beat( Writer& writer );
   // Tells what stands where that may be something else than was written.
   bool look( Writer& writer );
   // False at the end.
   bool reread( Writer& writer, Answer& answer );
   void pruneSome( Writer& writer );
   void post( Answer answer );
   void heard();
   bool pause( double seconds );

   Open open_;
   Done done_;
   Away away_;
   std::mutex mutex_;
   std::condition_variable wake_;
   std::optional<Batch> batch_;
   std::vector<Answer> answers_;
   std::vector<std::string> whys_;
   bool ending_ = false;
   double pruned_ = 0.0;  // of the thread alone
   Mox::Loop::Fd ring_;
   Mox::Loop::FdWatcher watcher_;
   std::thread thread_;
};

}
