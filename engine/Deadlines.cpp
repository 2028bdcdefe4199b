#include "engine/Deadlines.h"

#include <algorithm>

namespace Router {

namespace {
constexpr size_t kChildren = 4;
}

void Deadlines::atMost( Deadline& deadline, double time ) {
   if ( time == never ) return;
   if ( deadline.queued() ) {
      if ( heap_[deadline.place_].time <= time ) return;
      rise( deadline.place_, { time, &deadline } );
   } else {
      heap_.emplace_back();
      rise( heap_.size() - 1, { time, &deadline } );
   }
   if ( deadline.place_ == 0 ) wake();
}

// The heap's last entry takes the place of the removed one.
void Deadlines::remove( Deadline& deadline ) {
   if ( !deadline.queued() ) return;
   const size_t place = deadline.place_;
   deadline.place_ = Deadline::none;
   const Entry last = heap_.back();
   heap_.pop_back();
   if ( last.deadline == &deadline ) return;
   if ( place > 0 && last.time < heap_[( place - 1 ) / kChildren].time ) {
      rise( place, last );
   } else {
      sink( place, last );
   }
}

void Deadlines::rise( size_t place, const Entry& entry ) {
   while ( place > 0 ) {
      const size_t parent = ( place - 1 ) / kChildren;
      if ( heap_[parent].time <= entry.time ) break;
      put( place, heap_[parent] );
      place = parent;
   }
   put( place, entry );
}

void Deadlines::sink( size_t place, const Entry& entry ) {
   for ( size_t first = kChildren * place + 1; first < heap_.size();
         first = kChildren * place + 1 ) {
      const size_t end = std::min( first + kChildren, heap_.size() );
      size_t least = first;
      for ( size_t each = first + 1; each < end; ++each ) {
         if ( heap_[each].time < heap_[least].time ) least = each;
      }
      if ( entry.time <= heap_[least].time ) break;
      put( place, heap_[least] );
      place = least;
   }
   put( place, entry );
}

// A deadline removed meanwhile leaves a wake-up with nothing due.
void Deadlines::wake() {
   wakeupTimeIs( heap_.empty() ? never : heap_.front().time );
}

void Deadlines::onTime() {
   const double time = now();
   try {
      while ( !heap_.empty() && heap_.front().time <= time ) {
         Deadline& deadline = *heap_.front().deadline;
         remove( deadline );
         due_( deadline );
      }
   } catch ( ... ) {
      wake();
      throw;
   }
   wake();
}

}
