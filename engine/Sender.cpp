#include "engine/Sender.h"

#include "engine/RouterCounters.h"

namespace Router {

void Sender::send( const Outgoing& message ) {
   if ( speech_.send( message ) ) {
      counters_.sent( message.message );
   } else {
      counters_.unsent( message.message );
   }
}

}
