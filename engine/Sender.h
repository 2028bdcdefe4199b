// What the engines send, and the random times at which they do.
#pragma once

#include <functional>

#include "packet/Message.h"
#include "platform/net/IntfId.h"

namespace Router {

struct Outgoing {
   Vantu::IntfId intfId;  // empty: wherever the host's routes lead
   Vantu::IpGenAddr source;
   Vantu::IpGenAddr destination;
   Message message;
};

// A router's way out. The functions are called on the event loop's thread and must
// not call the router.
struct Speech {
   // Sends the message; returns false if it could not leave. Empty: the router
   // listens only.
   std::function<bool( const Outgoing& )> send;
   // A random number from 0 to below 1. REQUIRES: not empty where `send` is not.
   std::function<double()> uniform;
};

class RouterCounters;

class PIMSM_API Sender {
 public:
   // The counters outlive it.
   Sender( Speech speech, RouterCounters& counters )
      : speech_( std::move( speech ) ), counters_( counters ) {}

   // False: the router listens only. REQUIRES true for all below.
   bool speaks() const { return speech_.send != nullptr; }
   // Counts the message by its kind and outcome; false: it could not leave.
   bool send( const Outgoing& message );
   static constexpr double retry = 1.0;  // s, for messages that must not be missed
   // A random time from 0 to below `most`.
   double randomTime( double most ) const { return speech_.uniform() * most; }
   uint32_t randomWord() const {
      return static_cast<uint32_t>( speech_.uniform() * 4294967296.0 );
   }

 private:
   Speech speech_;
   RouterCounters& counters_;
};

}
