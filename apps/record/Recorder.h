// Keeps a store equal to the tables of one router, and tells its history every change.
//
//   watches  the tables of all VRFs and families, the logs, VRFs that come and go
//   writes   to the store, in its own thread; a batch at a time
//   wakes    at most 20 ms after a change, five times a second to look around, and for
//            each sample of counters
//
// What the store holds is compared with the tables at the start, when the store was away,
// and once an hour. Event-loop thread only.
#pragma once

#include <memory>
#include <optional>

#include "apps/mirror/Mirrors.h"
#include "apps/record/LogTail.h"
#include "apps/record/StoreThread.h"
#include "apps/record/Values.h"

namespace Fleet {

struct RecorderOptions {
   Show::Selection selection;
   std::string router;
   double sample = 10.0;  // s between two samples of counters
   size_t top = 100;      // streams that are listed as the fastest
   bool once = false;     // end when the store equals the tables
};

// What it did, for metrics.
struct RecorderCounts {
   uint64_t puts = 0, deletes = 0, events = 0, compared = 0, tooLarge = 0;
   uint64_t outages = 0;
   double late = 0.0;  // s, the longest by which it looked around too late, lately
   size_t queued = 0, noRoom = 0;
   bool away = false;
   bool complete = false;
};

class Recorder : public Mox::Clock::Notifiee {
 public:
   using Say = std::function<void( const std::string& )>;
   // Opens the store for a run of that name. Called by the store's thread.
   using Open =
      std::function<std::unique_ptr<Writer>( const std::string& instance )>;

   // Stops the loop at the end: when it is done with `once`, or when the store takes no
   // more, which rethrow() tells. The mirrors outlive it.
   Recorder( Show::Mirrors& mirrors, const RecorderOptions& options, Open open,
             Say say );
   ~Recorder() override;

   const RecorderCounts& counts() const { return counts_; }
   // Prometheus text of them. "Lately" is since the last call.
   std::string metrics();
   // Throws the reason for which the store takes no more, if there is one.
   void rethrow() const;

 private:
   static constexpr double gathering =
      0.02;  // s after a change, for others of a burst
   static constexpr double looking = 0.2;  // s between two looks around
   static constexpr double comparing = 3600.0;
   static constexpr double retrying = 1.0;  // s, of what the store has no room for
   // A VRF that the store has and the tables have not is given up after that time: at a
   // start the agent makes one after the other.
   static constexpr double lingering = 10.0;

   struct Scoped {
      std::unique_ptr<Watched> watched;  // null: the tables have no such VRF
      Queue queue;
      bool stored = false;  // did the store have it when it was opened?
      bool lost = false;    // nobody publishes it, as after a restart of the host
      std::string problem;  // why its tables cannot be read; else empty
      double missingSince = 0.0;
      double sampled = 0.0;
   };

   void onTime() override;
   void wakeBy( double time );
   void look();
   void follow();
   void sample( Scoped& scoped );
   void touch( const Key& key );
   // Queues all that the tables and the store have.
   void compare();
   void dropScope( const Scope& scope );
   // Notes which VRFs are there and cannot be read, and says so once.
   void noteProblems();
   // Tells that nobody publishes the VRF now; its state stays.
   void loseScope( const Scope& scope );

   void handleDone( StoreThread::Answer answer );
   void take( StoreThread::Standing standing );
   // Notes the values that the store has no room for; they are tried again.
   void takeNoRoom( const std::vector<std::string>& keys );
   void retryNoRoom();
   // Fills a batch for some ms and hands it over.
   void fill();
   bool fillFrom( Scoped& scoped, double until );
   bool isTooLarge( const Key& key, const std::optional<Value>& value );
   void put( const Key& key, const Touch& touch, std::optional<Value> value );
   void putRecorder();
   bool settled() const;

   Show::Mirrors& mirrors_;
   RecorderOptions options_;
   Say say_;
   std::string instance_;
   History history_;
   LogTail log_;
   std::map<Scope, Scoped> scopes_;
   std::map<Key, Writer::Standing> known_;
   std::set<Key> tooLarge_;
   std::set<Key> noRoom_;
   std::set<Key> tryingAgain_;  // those of the batch that is with the store
   double retried_ = 0.0;
   nlohmann::ordered_json recorder_;  // as it stands
   Batch batch_;
   RecorderCounts counts_;
   bool open_ = false;   // has the store been opened?
   bool busy_ = true;    // has the store's thread a batch, or does it open?
   bool first_ = false;  // the store was empty: what stands now is no change
   bool comparing_ = false;
   Scope last_;  // that was filled from
   double compared_ = 0.0, looked_;
   uint64_t turn_ = 0;
   std::exception_ptr end_;
   Mox::Loop::TurnEnd turnEnd_;
   StoreThread store_;  // last: its thread ends first
};

}
