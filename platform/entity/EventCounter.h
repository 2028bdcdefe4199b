// Event counters: named 64-bit counts in one registry of the process.
//
// An owner holds its counters as members; each registers itself when constructed
// and leaves the registry when destroyed. Counts wrap around. Event-loop thread
// only.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Mox {

class PIMSM_API EventCounter {
 public:
   // `owner`, for instance a mount path, distinguishes counters of the same name.
   EventCounter( StringView owner, StringView name );
   ~EventCounter();
   EventCounter( const EventCounter& ) = delete;
   EventCounter& operator=( const EventCounter& ) = delete;

   const String& owner() const { return owner_; }
   const String& name() const { return name_; }
   uint64_t value() const { return value_; }
   void inc( uint64_t n = 1 ) {
      value_ += n;
      if ( !changed_ ) noteChange();
   }

 private:
   friend struct EventCounterChanges;
   friend PIMSM_API const std::vector<const EventCounter*>& eventCounters();

   void noteChange();

   String owner_;
   String name_;
   uint64_t value_ = 0;
   mutable uint32_t place_ = 0;  // in the registry
   bool changed_ = false;
};

// What has happened to the registry since the last take().
struct PIMSM_API EventCounterChanges {
   std::vector<const EventCounter*> changed;  // new ones, too
   bool gone = false;                         // some were destroyed

   // Is there anything to take?
   static bool any();
   static EventCounterChanges take();
};

// All counters in order of registration.
PIMSM_API const std::vector<const EventCounter*>& eventCounters();

// Null when there is none. The first registered wins.
PIMSM_API const EventCounter* eventCounter( StringView owner, StringView name );

}
