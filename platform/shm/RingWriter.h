// A ring of fixed-size records in shared memory: the newest ones, in the order in
// which they came. One writing process, any number of readers, in a file that
// outlives the writer; a kill loses at most the record that was being written.
//
// The process that holds the ring's WriterSeat (its lock and bell) is the writer.
// Owner's thread only.
#pragma once

#include <memory>

#include "platform/shm/Error.h"
#include "platform/shm/Layout.h"
#include "platform/shm/WriterSeat.h"

namespace Brane {

class PIMSM_API RingWriter {
 public:
   static constexpr uint32_t maxEntries = 1u << 24;

   // Makes the ring, or takes over the one of this boot with that layout; of one with
   // another number of entries the newest records are copied. Of the layout, sizes
   // and fields count; a ring has no keys. Throws SecondWriterError, CreateError,
   // Mox::RangeError (layout, 0 or too many entries).
   RingWriter( const Mox::String& path, const Layout& layout, uint32_t entries );
   ~RingWriter();
   RingWriter( const RingWriter& ) = delete;
   RingWriter& operator=( const RingWriter& ) = delete;

   // Writes a record over the oldest one and returns its sequence. `at`: seconds.
   uint64_t add( const void* record, double at );
   // The record came once more: counts it, and `at` is its last time. False if newer
   // records have taken its place.
   bool repeat( uint64_t sequence, double at );
   // The newest record's sequence; 0: none yet. The first is 1.
   uint64_t newest() const;

   // Tells readers that something has changed since the last ring.
   void ring();

   // As TableWriter's.
   bool filesStand() const;
   void restoreFiles();

   // Why a ring that stood there was not taken over; empty if it was, or there was none.
   const Mox::String& problem() const;

 private:
   struct Ring;

   std::unique_ptr<Ring> ring_;
};

}
