// A reader's view of a ring that another process writes; as robust as a table's (see
// TableReader.h). Any number of readers; each belongs to one thread.
#pragma once

#include <memory>

#include "platform/shm/TableReader.h"

namespace Brane {

class PIMSM_API RingReader {
 public:
   // Attaches to the ring if it exists; a missing one is no error. Throws
   // Mox::RangeError on a bad layout, CreateError when the system refuses for another
   // reason than absence.
   RingReader( const Mox::String& path, const Layout& layout );
   ~RingReader();
   RingReader( const RingReader& ) = delete;
   RingReader& operator=( const RingReader& ) = delete;

   // Looks whether the ring has come, gone or been made anew; true if so. Sequences
   // begin anew with a ring that was not taken over.
   bool poll();
   ReaderState state() const;
   // Why there is no usable ring; empty: none there, or a sound one.
   const Mox::String& problem() const;
   bool writerAlive() const;

   // Of the ring; another one when its records are not those of before. 0: none.
   uint64_t instanceId() const;

   // The sequences that may be read: from oldest() to newest(). 0 and 0: none.
   uint64_t oldest() const;
   uint64_t newest() const;

   struct Entry {
      uint64_t count = 0;  // how often it came, at least once
      double last = 0.0;   // when it came last, s
   };
   // Copies the record, recordSize bytes. Absent: newer ones have taken its place, or
   // it has not come yet.
   Lookup read( uint64_t sequence, void* record, Entry& entry ) const;

 private:
   struct Ring;

   std::unique_ptr<Ring> ring_;
};

}
