// The logs of the agent and the forwarding process, from where the last recorder of the
// router ended. Event-loop thread only.
#pragma once

#include <array>

#include "apps/record/History.h"

namespace Fleet {

class LogTail {
 public:
   explicit LogTail( const std::string& root );

   // Where to go on, as position() told it in an earlier run; anything else: from the
   // oldest event.
   void positionIs( const nlohmann::ordered_json& position );
   nlohmann::ordered_json position() const;

   // The next events, no more than so many at once.
   std::vector<Event> take( History& history );

 private:
   static constexpr size_t most = 2000;

   struct Log {
      const char* name;
      Published::EventReader reader;
      std::string instance = {};  // of the log that was read last
      uint64_t sequence = 0;      // of the last event taken from it
      uint64_t missed = 0;        // as told
   };
   std::string instanceOf( const Log& log ) const;

   std::array<Log, 2> logs_;
};

}
