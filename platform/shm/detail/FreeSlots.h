// The slots free for writing, first in, first out. A slot rests as long as
// possible, so that the writer seldom overtakes a reader still copying its former
// record.
#pragma once

#include <bit>
#include <cstdint>
#include <vector>

#include "platform/base/Assert.h"

namespace Brane::Detail {

class FreeSlots {
 public:
   FreeSlots() = default;
   // Makes room for that many slots; empty at first.
   explicit FreeSlots( uint32_t slotCount )
      : ring_( std::bit_ceil( slotCount ) ),
        mask_( uint32_t( ring_.size() ) - 1 ) {}

   uint32_t size() const { return tail_ - head_; }
   void push( uint32_t slot ) { ring_[tail_++ & mask_] = slot; }
   uint32_t pop() {
      MOX_ASSERT( size() > 0 );
      return ring_[head_++ & mask_];
   }
   // The slot that the pop after `ahead` more will give, if it is free already.
   uint32_t peek( uint32_t ahead ) const {
      return ring_[( head_ + ( ahead < size() ? ahead : 0 ) ) & mask_];
   }

 private:
   std::vector<uint32_t> ring_;
   uint32_t mask_ = 0;
   uint32_t head_ = 0;
   uint32_t tail_ = 0;
};

}
