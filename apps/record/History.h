// Lines of history: what changed, as JSON, from the values before and after. Event-loop
// thread only.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/record/Queue.h"
#include "apps/store/Store.h"
#include "published/EventLog.h"

namespace Fleet {

class History {
 public:
   // `instance`: of this recorder's run.
   History( std::string router, std::string instance );

   // The lines of a change of a key's value; an empty text is no value. None for keys
   // without history: counters.
   std::vector<Event> changes( const Key& key, const std::string& before,
                               const std::string& after, const Touch& touch );

   // A line of a VRF and family, or of the router: "vrf-gone", "store-back" with `more`.
   Event line(
      const char* op, const Scope& scope, double at,
      const nlohmann::ordered_json& more = nlohmann::ordered_json::object() );

   // An event that the agent ("agent") or the forwarding process ("mfib") logged.
   Event logged( const char* log, const Published::EventReader::Entry& entry );

 private:
   Event eventOf( nlohmann::ordered_json line, const Scope& scope, int64_t at );

   std::string router_, instance_;
   uint64_t sequence_ = 0;
};

}
