#include "platform/entity/EventCounter.h"

#include <algorithm>

namespace Mox {
namespace {

std::vector<const EventCounter*>& registry() {
   // Never destroyed: counters with static owners unregister late in static
   // destruction.
   static auto* all = new std::vector<const EventCounter*>;
   return *all;
}

}

EventCounter::EventCounter( StringView owner, StringView name )
   : owner_( owner ), name_( name ) {
   registry().push_back( this );
}

EventCounter::~EventCounter() {
   std::erase( registry(), this );
}

const std::vector<const EventCounter*>& eventCounters() {
   return registry();
}

const EventCounter* eventCounter( StringView owner, StringView name ) {
   auto found = std::find_if(
      registry().begin(), registry().end(), [&]( const EventCounter* counter ) {
         return counter->owner() == owner && counter->name() == name;
      } );
   return found == registry().end() ? nullptr : *found;
}

}
