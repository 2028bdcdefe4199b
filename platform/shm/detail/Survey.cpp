#include "platform/shm/detail/Survey.h"

#include <fmt/format.h>

#include <algorithm>

#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Line.h"

namespace Brane::Detail {

namespace {

// The number of slots by which the fetching runs ahead.
constexpr uint32_t scanAhead = 16;
constexpr Position wordsAhead = 24;

}

void addText( std::vector<Mox::String>& texts, Mox::String text ) {
   if ( texts.size() < maxTexts ) texts.push_back( std::move( text ) );
}

Mox::String placeText( const Mox::String& path, Position position, uint32_t slot ) {
   Mox::String where = position == noPosition
                          ? "no position"
                          : fmt::format( "position {}", position );
   return fmt::format( "{}: {}, slot {}", path, where, slot );
}

Survey::Survey( const ConstView& view, const Mox::String& path )
   : view_( view ), path_( path ) {
   slots_.resize( view_.geometry.slotCount );
   want_.resize( view_.geometry.positions() );
   judgeHead();
   scanSlots();
   claimWords();
   placeUnindexed();
}

// The journal's last entry has the head's sequence, and no entry has the one after
// next.
void Survey::judgeHead() {
   uint64_t head = loadWord( view_.head() );
   headSound_ = head < maxSequence && entryIsOf( *view_.journal( head ), head ) &&
                !entryIsOf( *view_.journal( head + 2 ), head + 2 );
   limit_ = headSound_ ? head + 1 : maxSequence;
   // True when a remount was killed before it moved the head.
   bool jumping =
      head < maxSequence && entryIsOf( *view_.journal( head ), head + headJump );
   if ( headSound_ || jumping ) highest_ = head;
   if ( headSound_ ) return;
   addText( texts_, fmt::format( "{}: the journal does not agree with its head {}",
                                 path_, head ) );
}

PIMSM_SHM_HOT void Survey::judgeSlot( uint32_t slot ) {
   const SlotHead* head = view_.slot( slot );
   const std::byte* record = view_.record( slot );
   uint64_t sequence = sequenceOf( head->stamp );
   uint64_t hash = keyHash( record, view_.geometry.keySize, view_.seed );
   uint32_t checksum =
      recordChecksum( record, view_.geometry.recordSize, { sequence, slot, hash } );
   bool whole = head->checksum == checksum && sequence != 0 && sequence <= limit_;
   if ( !whole ) {
      broken_.push_back( slot );
      const char* what = head->checksum != checksum
                            ? "the checksum is wrong"
                            : "the sequence is beyond the journal's";
      return report( noPosition, slot, what );
   }
   slots_[slot].hash = hash;
   slots_[slot].sequence = sequence;
   highest_ = std::max( highest_, sequence );
}

void Survey::scanSlots() {
   for ( uint32_t slot = 0; slot < slots_.size(); ++slot ) {
      if ( slot + scanAhead < slots_.size() ) {
         prefetch( view_.slotBytes( slot + scanAhead ), view_.slotSize() );
      }
      if ( stateOf( view_.slot( slot )->stamp ) == slotLive ) judgeSlot( slot );
   }
}

PIMSM_SHM_HOT void Survey::countPassed( uint64_t hash, Position position,
                                        uint64_t change ) {
   uint32_t line = view_.geometry.homeOf( hash );
   for ( ; line < position / lineWords; ++line ) {
      want_[line * lineWords + 7] += change;
   }
}

// The position before `end` of another slot with this slot's key.
PIMSM_SHM_HOT Position Survey::twinOf( uint32_t slot, Position end ) const {
   const Slot& mine = slots_[slot];
   uint32_t line = view_.geometry.homeOf( mine.hash );
   for ( ; line * lineWords < end; ++line ) {
      uint32_t found = wordsWith( &want_[line * lineWords], tagOf( mine.hash ) );
      while ( found ) {
         Position p = line * lineWords + takeFirst( found );
         if ( p < end &&
              sameBytes( view_.record( slotOf( want_[p] ) ), view_.record( slot ),
                         view_.geometry.keySize ) ) {
            return p;
         }
      }
   }
   return noPosition;
}

PIMSM_SHM_HOT bool Survey::fits( Position position, uint64_t word ) const {
   uint32_t slot = slotOf( word );
   if ( slot >= slots_.size() ) return false;
   const Slot& found = slots_[slot];
   return found.sequence && !found.indexed() &&
          word == indexWord( slot, found.hash, found.sequence ) &&
          view_.geometry.reaches( found.hash, position );
}

PIMSM_SHM_HOT void Survey::enter( uint32_t slot, Position position ) {
   Slot& found = slots_[slot];
   want_[position] = indexWord( slot, found.hash, found.sequence );
   countPassed( found.hash, position, 1 );
   found.sequence |= indexedBit;
   ++survivors_;
}

// The record there is replaced by a newer one of its key.
void Survey::leave( Position position ) {
   uint32_t slot = slotOf( want_[position] );
   countPassed( slots_[slot].hash, position, ~uint64_t( 0 ) );
   want_[position] = 0;
   slots_[slot].sequence = 0;
   older_.push_back( slot );
   --survivors_;
}

PIMSM_SHM_HOT void Survey::claim( Position position ) {
   uint64_t word = view_.index()[position];
   uint32_t slot = slotOf( word );
   if ( !fits( position, word ) ) {
      // A word that names a Removed slot is left by a killed removal: nothing to
      // report.
      bool removed = slot < slots_.size() &&
                     stateOf( view_.slot( slot )->stamp ) == slotRemoved;
      if ( !removed ) report( position, slot, "the index word does not fit" );
      return;
   }
   Position twin = twinOf( slot, position );
   if ( twin == noPosition ) return enter( slot, position );
   // Two words for one key come from damage only. The newer record stays.
   report( position, slot, "the key stands twice" );
   uint32_t other = slotOf( want_[twin] );
   if ( slots_[slot].order() < slots_[other].order() ) {
      slots_[slot].sequence = 0;
      return older_.push_back( slot );
   }
   leave( twin );
   enter( slot, position );
}

// Keeps each index word that names a whole record of the right key.
void Survey::claimWords() {
   const uint64_t* words = view_.index();
   Position end = view_.geometry.positions();
   for ( Position p = 0; p < end; ++p ) {
      uint64_t ahead = p + wordsAhead < end ? words[p + wordsAhead] : 0;
      if ( slotOf( ahead ) < slots_.size() ) {
         prefetch( reinterpret_cast<const std::byte*>( &slots_[slotOf( ahead )] ),
                   sizeof( Slot ) );
      }
      if ( isWord( p ) && words[p] ) claim( p );
   }
}

void Survey::placeUnindexed() {
   for ( uint32_t slot = 0; slot < slots_.size(); ++slot ) {
      if ( slots_[slot].sequence && !slots_[slot].indexed() ) place( slot );
   }
}

// Places a record that no word names: the writer was killed between its stamp and
// its word, or between its key's next word and its retirement.
void Survey::place( uint32_t slot ) {
   uint32_t home = view_.geometry.homeOf( slots_[slot].hash );
   Position position = twinOf( slot, ( home + view_.geometry.reach ) * lineWords );
   if ( position != noPosition ) {
      uint32_t other = slotOf( want_[position] );
      if ( slots_[other].order() > slots_[slot].order() ) {
         return older_.push_back( slot );
      }
      leave( position );
   } else {
      position = freePlace( slot );
   }
   bool room = position != noPosition && survivors_ < view_.geometry.capacity;
   if ( room ) return enter( slot, position );
   report( noPosition, slot, "there is no place for it in the index" );
   broken_.push_back( slot );
}

Position Survey::freePlace( uint32_t slot ) const {
   uint32_t home = view_.geometry.homeOf( slots_[slot].hash );
   for ( uint32_t line = home; line < home + view_.geometry.reach; ++line ) {
      uint32_t found = wordsWith( &want_[line * lineWords], 0 );
      if ( found ) return line * lineWords + takeFirst( found );
   }
   return noPosition;
}

void Survey::report( Position position, uint32_t slot, const char* what ) {
   addText( texts_, placeText( path_, position, slot ) + ": " + what );
}

}
