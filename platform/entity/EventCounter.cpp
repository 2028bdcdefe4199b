#include "platform/entity/EventCounter.h"

#include <unordered_set>
#include <utility>

namespace Mox {
namespace {

struct Registry {
   std::vector<const EventCounter*> all;  // null where one was destroyed
   bool holes = false;
   std::unordered_set<EventCounter*> changed;
   bool gone = false;
};

Registry& registry() {
   // Never destroyed: counters with static owners unregister late in static
   // destruction.
   static auto* the = new Registry;
   return *the;
}

}

EventCounter::EventCounter( StringView owner, StringView name )
   : owner_( owner ),
     name_( name ),
     place_( static_cast<uint32_t>( registry().all.size() ) ) {
   registry().all.push_back( this );
   noteChange();
}

EventCounter::~EventCounter() {
   registry().all[place_] = nullptr;
   registry().holes = registry().gone = true;
   if ( changed_ ) registry().changed.erase( this );
}

void EventCounter::noteChange() {
   changed_ = true;
   registry().changed.insert( this );
}

const std::vector<const EventCounter*>& eventCounters() {
   auto& all = registry().all;
   if ( !std::exchange( registry().holes, false ) ) return all;
   std::erase( all, nullptr );
   for ( uint32_t place = 0; place < all.size(); ++place )
      all[place]->place_ = place;
   return all;
}

const EventCounter* eventCounter( StringView owner, StringView name ) {
   for ( const EventCounter* counter : eventCounters() )
      if ( counter->owner() == owner && counter->name() == name ) return counter;
   return nullptr;
}

bool EventCounterChanges::any() {
   return registry().gone || !registry().changed.empty();
}

EventCounterChanges EventCounterChanges::take() {
   EventCounterChanges out;
   out.gone = std::exchange( registry().gone, false );
   for ( EventCounter* counter : std::exchange( registry().changed, {} ) ) {
      counter->changed_ = false;
      out.changed.push_back( counter );
   }
   return out;
}

}
