#include "engine/Sender.h"

#include "engine/RouterCounters.h"

namespace Router {

bool Sender::send( const Outgoing& message ) {
   const bool left = speech_.send( message );
   if ( left ) {
      counters_.sent( message.message );
   } else {
      counters_.unsent( message.message );
   }
   return left;
}

}
