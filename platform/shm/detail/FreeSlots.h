// The slots free for writing, first in, first out. A slot rests as long as
// possible, so that the writer seldom overtakes a reader still copying its former
// record.
#pragma once

#include <bit>
#include <cstdint>
#include <memory>

#include "platform/base/Assert.h"

namespace Brane::Detail {

class FreeSlots {
 public:
   FreeSlots() = default;
   // Of that many slots, those from `unused` on are free. Takes no time for each.
   FreeSlots( uint32_t slotCount, uint32_t unused )
      : ring_( std::make_unique_for_overwrite<uint32_t[]>(
           std::bit_ceil( slotCount ) ) ),
        mask_( std::bit_ceil( slotCount ) - 1 ),
        unused_( unused ),
        slotCount_( slotCount ) {}

   uint32_t size() const { return slotCount_ - unused_ + tail_ - head_; }
   void push( uint32_t slot ) { ring_[tail_++ & mask_] = slot; }
   uint32_t pop() {
      MOX_ASSERT( size() > 0 );
      return unused_ < slotCount_ ? unused_++ : ring_[head_++ & mask_];
   }
   // Calls visit( first, end ) for ranges of slots that are all those free.
   template <class Visit>
   void visitRanges( const Visit& visit ) const {
      visit( unused_, slotCount_ );
      for ( uint32_t i = head_; i != tail_; ++i )
         visit( ring_[i & mask_], ring_[i & mask_] + 1 );
   }
   // The slot that the pop after `ahead` more will give, if it is free already; 0 where
   // that is unknown.
   uint32_t peek( uint32_t ahead ) const {
      if ( ahead < slotCount_ - unused_ ) return unused_ + ahead;
      ahead -= slotCount_ - unused_;
      return ahead < tail_ - head_ ? ring_[( head_ + ahead ) & mask_] : 0;
   }

 private:
   std::unique_ptr<uint32_t[]> ring_;
   uint32_t mask_ = 0;
   uint32_t unused_ = 0;  // this and those after were never used
   uint32_t slotCount_ = 0;
   uint32_t head_ = 0;
   uint32_t tail_ = 0;
};

}
