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
   void inc( uint64_t n = 1 ) { value_ += n; }

 private:
   String owner_;
   String name_;
   uint64_t value_ = 0;
};

// All counters in order of registration.
PIMSM_API const std::vector<const EventCounter*>& eventCounters();

// Null when there is none. The first registered wins.
PIMSM_API const EventCounter* eventCounter( StringView owner, StringView name );

}
