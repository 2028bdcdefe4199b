// Reading from streams of NATS. Both throw as checkNats(); a server that does not answer
// in time is StoreAway.
#pragma once

#include <functional>

#include "apps/store/detail/Nats.h"

namespace Fleet {

struct NatsScan {
   std::string stream;
   std::string subject;  // of the messages, with wildcards
   int64_t since = 0;    // ms since 1970, as the server saw them
   uint64_t after = 0;   // sequence; with this, `since` is not looked at
   uint64_t until = 0;   // a sequence that is there to be read; 0: the last one
   // Bytes a second at most; 0: as fast as it goes. What comes faster than it is taken
   // waits in memory.
   uint64_t rate = 0;
};

struct NatsRead {
   std::string_view subject;
   uint64_t sequence = 0;
};

// All messages that are there when it begins, in order. What a server says is pending is
// but an estimate where a subject is asked for: the end is known by its sequence.
void scanNats(
   const NatsConnection& connection, const NatsScan& scan,
   const std::function<void( const NatsMessage&, const NatsRead& )>& call );

// The last message of each subject, be it a removal, asked for all at once; a null one where there is none,
// and one that natsMsg_IsNoResponders() where no server has the stream at the moment.
struct NatsExact {
   std::string stream;
   std::string subject;
};
std::vector<NatsMessage> readNats( const NatsConnection& connection,
                                   const std::vector<NatsExact>& exact );

// The subjects in the stream that the filter lets pass.
std::vector<std::string> subjectsOf( const NatsConnection& connection,
                                     const std::string& stream,
                                     const std::string& filter );

// Is the message one that its key was removed by?
bool isRemoval( const NatsMessage& message );

}
