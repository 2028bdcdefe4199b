// The true records of a table, judged by its slots' checksums alone, and the index
// that it should have. Stores nothing.
#pragma once

#include <vector>

#include "platform/shm/AttachReport.h"
#include "platform/shm/detail/Geometry.h"

namespace Brane::Detail {

// The distance by which a repair moves the head: farther than any follower's
// generations reach, and a whole number of journals, so that its entry takes the
// former head's place.
constexpr uint64_t headJump = uint64_t( 1 ) << 30;

// The number of lines of text on one table's damage, at most.
constexpr size_t maxTexts = 32;
void addText( std::vector<Mox::String>& texts, Mox::String text );

// "place P, slot S": where damage was found.
Mox::String placeText( const Mox::String& path, Position position, uint32_t slot );

class Survey {
 public:
   Survey( const ConstView& view, const Mox::String& path );

   // Index words and passed counts as they should be, 8 words a line.
   const std::vector<uint64_t>& index() const { return want_; }
   // Live slots whose key stands in a newer one.
   const std::vector<uint32_t>& older() const { return older_; }
   // Slots that say Live and are not.
   const std::vector<uint32_t>& broken() const { return broken_; }

   // Does the index name the slot?
   bool names( uint32_t slot ) const { return slots_[slot].indexed(); }

   uint32_t survivors() const { return survivors_; }
   // The highest sequence of the whole records, and of the head as far as it is
   // credible.
   uint64_t highestSequence() const { return highest_; }
   // Does the journal agree with its head? Also false when a repair that would have
   // moved the head was killed.
   bool headSound() const { return headSound_; }
   const std::vector<Mox::String>& texts() const { return texts_; }

 private:
   // The content of a slot. Sequence 0: no whole record.
   struct Slot {
      uint64_t hash = 0;
      uint64_t sequence = 0;
      bool indexed() const { return sequence & indexedBit; }
      uint64_t order() const { return sequence & ~indexedBit; }
   };
   static constexpr uint64_t indexedBit = uint64_t( 1 ) << 63;
   static_assert( maxSequence < indexedBit );

   void judgeHead();
   void scanSlots();
   void judgeSlot( uint32_t slot );
   void claimWords();
   void claim( Position position );
   bool fits( Position position, uint64_t word ) const;
   void placeUnindexed();
   void place( uint32_t slot );
   Position twinOf( uint32_t slot, Position end ) const;
   Position freePlace( uint32_t slot ) const;
   void enter( uint32_t slot, Position position );
   void leave( Position position );
   void countPassed( uint64_t hash, Position position, uint64_t change );
   void report( Position position, uint32_t slot, const char* what );

   ConstView view_;
   Mox::String path_;
   bool headSound_ = true;
   uint64_t limit_ = 0;  // the highest credible sequence
   uint64_t highest_ = 0;
   uint32_t survivors_ = 0;
   std::vector<Slot> slots_;
   std::vector<uint64_t> want_;
   std::vector<uint32_t> older_;
   std::vector<uint32_t> broken_;
   std::vector<Mox::String> texts_;
};

}
