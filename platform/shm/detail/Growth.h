// The next, larger instance of a table, which is made while the table is being
// written: a part of it with each new key, so that no put waits for all of it.
//
// What is copied follows the table: its owner repeats each change here. A record that was
// not copied yet is copied later, as it stands then.
#pragma once

#include <vector>

#include "platform/shm/detail/NewInstance.h"

namespace Brane::Detail {

class Growth {
 public:
   // `former` is the table's instance, of half the capacity at least, with the same
   // seed; its records are those in the `live` slots. Throws CreateError.
   Growth( const WriterView& former, std::vector<bool> live, const Layout& layout,
           const HeaderValues& values, const Mox::String& path );

   // Does so much that `part` of `whole` is done. Throws CreateError.
   void advance( uint32_t part, uint32_t whole );
   bool complete() const { return steps_ == allSteps(); }

   // The record stands in the former instance's slot now. Throws CreateError where the
   // key has no place.
   void put( const void* record, const RecordIdentity& identity );
   // A slot of the former instance is free, since its record was replaced or removed.
   void release( uint32_t slot ) { live_[slot] = false; }
   // The key has gone.
   void remove( const void* key, uint64_t hash );

   // The table made its last change with that sequence. REQUIRES: complete().
   NewInstance& finish( uint64_t sequence );
   const std::shared_ptr<Mapping>& mapping() const { return next_.mapping(); }
   // The first slot that was never used, and those that are free again before it.
   uint32_t firstFree() const { return nextSlot_; }
   const std::vector<uint32_t>& freed() const { return freed_; }

 private:
   uint64_t allSteps() const { return allocations_ + copies_; }
   void step();
   void copy( uint32_t end );
   uint64_t hashOf( uint32_t slot ) const;
   void fetchLine( uint64_t hash ) const;
   void copyRecord( uint32_t slot, uint64_t hash );
   uint32_t write( const void* record, const RecordIdentity& former );
   uint32_t takeSlot();
   Place placeOf( const void* key, uint64_t hash ) const;

   WriterView former_;
   std::vector<bool> live_;  // its slots; the stamps there may be damaged
   NewInstance next_;
   uint64_t allocations_;  // steps of each kind
   uint64_t copies_;
   uint64_t steps_ = 0;   // done
   uint32_t copied_ = 0;  // this slot and those after are not
   uint32_t nextSlot_ = 0;
   std::vector<uint32_t> freed_;
};

}
