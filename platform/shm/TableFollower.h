// Reports the keys of a table that have changed since the last call.
//
// A follower remembers the index word and the key of each position. So it misses
// nothing however far it falls behind: no vanished key, no other key at the same
// place, no new instance. The records present when the follower is made are not
// reported; every later change is, equal value or not. A table that appears later
// was empty until then: all that it holds is reported. Pending changes of one key
// come as one.
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

// Which record was told: TableFollower::stands() says whether it still stands.
struct Found {
   Position position = noPosition;
   uint64_t word = 0;  // of the index; 0: none
   uint64_t instance = 0;
};

struct Change {
   enum Kind : uint32_t { written, removed };

   Kind kind = written;
   const void* key = nullptr;       // keySize bytes; lives during the call
   const void* record = nullptr;    // a whole copy when written, null when removed
   Position position = noPosition;  // noPosition for a key only known by met()
   Found found = {};                // of a record
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
      bool stateChanged = false;  // the reader's state or instance has changed
      bool lapped = false;  // the journal was outrun: all positions were compared
      bool again = false;   // something was busy: drain again soon
      bool more = false;    // the limit was reached: drain again for the rest
   };

   // Polls the reader and reports what has changed, in no promised order. A table
   // that went away reports its keys as removed; a new instance, or a table that
   // comes back, reports the differences. While the table cannot be read (mismatch,
   // damaged) nothing is reported and nothing forgotten. The callback may look up
   // in the reader, and must not drain, poll or throw. One call reports about
   // `limit` changes at most, so that a caller can do other work between the parts
   // of a burst. A key that changes again before its report is reported once. Only
   // the difference to another instance is never divided.
   Drained drain( const Callback& callback, uint32_t limit = UINT32_MAX );

   // Records that the owner found this key by its own look-up. A later drain then
   // reports its removal, even if its addition was not reported. `key` is keySize
   // bytes.
   void met( Position position, const void* key );

   // Does the record stand, with the bytes that were told? False also where that is not
   // sure, as after a change of the instance. No system call.
   bool stands( const Found& found ) const;

   // Has the journal moved on since the last drain, or has the table grown into
   // another instance? For timers without a doorbell: two loads, no system call.
   // Does not notice an instance that another writer made.
   bool pending() const;

   // Number of keys known to stand.
   uint32_t size() const;

 private:
   friend class TableWalk;
   std::unique_ptr<Detail::Mirror> mirror_;
};

}
