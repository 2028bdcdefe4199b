// Positions in the order of their slots: who reads many records so goes through memory
// once, and meets together what was written together.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/shm/detail/Order.h"

namespace Brane::Detail {

class SlotOrder {
 public:
   explicit SlotOrder( uint32_t slotCount )
      : groups_( slotCount / groupSlots + 2 ) {}

   // A slot beyond the table's, as that of a free word, comes last.
   void add( Position position, uint32_t slot ) {
      const auto last = static_cast<uint32_t>( groups_.size() ) - 2;
      const uint32_t group = std::min( slot / groupSlots, last );
      ++groups_[group + 1];
      found_.push_back( { position, group } );
   }

   // The positions added, by groups of slots. Once.
   std::vector<Position> take() {
      for ( size_t i = 1; i < groups_.size(); ++i ) groups_[i] += groups_[i - 1];
      std::vector<Position> ordered( found_.size() );
      for ( const Found& each : found_ )
         ordered[groups_[each.group]++] = each.position;
      return ordered;
   }

 private:
   struct Found {
      Position position;
      uint32_t group;
   };
   static constexpr uint32_t groupSlots = 32;

   std::vector<Found> found_;
   std::vector<uint32_t> groups_;  // how many come before each
};

// Of an instance's words, those that name a record.
template <class View>
std::vector<Position> standingBySlot( const View& view ) {
   SlotOrder order( view.geometry.slotCount );
   for ( Position p = 0; p < view.geometry.positions(); ++p ) {
      if ( !isWord( p ) ) continue;
      const uint64_t word = loadWord( view.index() + p );
      if ( word ) order.add( p, slotOf( word ) );
   }
   return order.take();
}

}
