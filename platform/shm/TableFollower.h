// Tells which keys of a table have changed since the last call.
//
// A follower remembers the index word and the key of each position, so that it
// misses nothing however far it falls behind: vanished keys, other keys at the same
// place and a whole new instance included. What the table holds when the follower
// is made is not reported; every later change is, equal value or not. A table that
// appears later was empty until then: all that it holds is reported.
// Pending changes of one key come as one.
//
// Memory: 12 bytes a position (twice the capacity, about) and the keys that stand.
// Same thread as its reader, which must outlive it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "platform/shm/TableReader.h"

namespace Brane {

namespace Detail {
class Mirror;
}

struct Change {
   enum Kind : uint32_t { written, removed };

   Kind kind = written;
   const void* key = nullptr;       // keySize bytes; lives during the call
   const void* record = nullptr;    // a whole copy when written, null when removed
   Position position = noPosition;  // none of a key that was only met
};

class PIMSM_API TableFollower {
 public:
   using Callback = std::function<void( const Change& )>;

   explicit TableFollower( TableReader& reader );
   ~TableFollower();
   TableFollower( const TableFollower& ) = delete;
   TableFollower& operator=( const TableFollower& ) = delete;

   struct Drained {
      uint32_t written = 0;
      uint32_t removed = 0;
      bool stateChanged = false;  // the reader's state or instance is another
      bool lapped = false;        // the journal was outrun, all positions compared
      bool again = false;         // something was busy: drain again soon
      bool more = false;          // the limit was reached: drain again for the rest
   };

   // Polls the reader and reports what has changed, in no promised order. A table
   // that went away reports its keys as removed; a new instance, or a table that
   // comes back, what differs. While what stands there cannot be read (mismatch,
   // damaged) nothing is reported and nothing forgotten. The callback may look up
   // in the reader, and must not drain, poll or throw.
   // About `limit` changes at most are told, so that a caller can do other work
   // between the parts of a burst; what changes again before it was told comes once.
   // Only the difference to another instance comes whole.
   Drained drain( const Callback& callback, uint32_t limit = UINT32_MAX );

   // The owner has found this key there by a look of its own: its end is told by a later
   // drain even where it comes before its beginning was. `key` is keySize bytes.
   void met( Position position, const void* key );

   // Has the journal moved on since the last drain? For timers where no doorbell is
   // to be had; one load, no system call, and blind to another instance.
   bool pending() const;

   // Forgets what it knew and starts from what stands now, as if new.
   void restart();

   // Keys known to stand.
   uint32_t size() const;

 private:
   std::unique_ptr<Detail::Mirror> mirror_;
};

}
