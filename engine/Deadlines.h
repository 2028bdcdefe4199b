// Deadlines of many records on one clock, with one observer of the clock for all.
//
// A record derives from Deadline, which costs four bytes and, while it is queued, 16 more in a
// heap; the four bytes are its place there. A deadline that is put off is not moved: the record
// is called at the former time, finds nothing due and queues itself anew. A refresh before that
// time therefore costs nothing. Event-loop thread.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/loop/Clock.h"

namespace Router {

class Deadlines;

// Must be removed from its queue before it is destroyed, and must not be moved while queued.
class PIMSM_API Deadline {
 public:
   Deadline() = default;
   Deadline( const Deadline& ) = delete;
   Deadline& operator=( const Deadline& ) = delete;

   bool queued() const { return place_ != none; }

 private:
   friend class Deadlines;
   static constexpr uint32_t none = UINT32_MAX;

   uint32_t place_ = none;
};

class PIMSM_API Deadlines : private Mox::Clock::Notifiee {
 public:
   static constexpr double never = Mox::Clock::never;

   // `due` is called for each deadline whose time has come, in order of time; it has left the
   // queue then. The call may queue and remove any deadline and end the due one, but must not
   // queue one for a time that has come. What it throws passes through; the others stay queued.
   Deadlines( Mox::Clock& clock, std::function<void( Deadline& )> due )
      : Notifiee( &clock ), due_( std::move( due ) ) {}

   double now() const { return clock()->now(); }

   // Makes it due at that time or earlier: an earlier time stays. `never` changes
   // nothing.
   void atMost( Deadline& deadline, double time );
   // Has no effect if it is not queued.
   void remove( Deadline& deadline );

   size_t size() const { return heap_.size(); }

 private:
   struct Entry {
      double time;
      Deadline* deadline;
   };

   void onTime() override;
   void wake();
   void put( size_t place, const Entry& entry ) {
      heap_[place] = entry;
      entry.deadline->place_ = static_cast<uint32_t>( place );
   }
   void rise( size_t place, const Entry& entry );
   void sink( size_t place, const Entry& entry );

   std::function<void( Deadline& )> due_;
   // A heap: each entry is due no later than those at 4 * its place + 1 to + 4.
   std::vector<Entry> heap_;
};

}
