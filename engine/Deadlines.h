// Deadlines of many records on one clock, which has one observer for all of them.
//
// A record is a Deadline, or has one; it costs four bytes and, while it is queued, 16 in a heap
// that knows its place. What is put off is not moved: when the former time comes, the record is
// told, finds nothing due and queues anew. So a refresh that comes before its time costs nothing.
// Event-loop thread.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/loop/Clock.h"

namespace Router {

class Deadlines;

// Taken from its queue before it goes. Stays where it is while queued.
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

   // `due` is called for each deadline whose time has come, in order of time; it is not
   // queued any more then. The call may queue and remove any, and end the due one.
   Deadlines( Mox::Clock& clock, std::function<void( Deadline& )> due )
      : Notifiee( &clock ), due_( std::move( due ) ) {}
   // What is still queued must not be used with another queue.

   double now() const { return clock()->now(); }

   // It is due at that time at the latest. One that is due before stays so. Never: no change.
   void atMost( Deadline& deadline, double time );
   // It may be queued or not.
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
   // Each is due no later than those at 4 * its place + 1 to + 4.
   std::vector<Entry> heap_;
};

}
