#include "platform/shm/detail/Survey.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Hash.h"

namespace Brane::Detail {

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
   retireTwins();
   placeUnindexed();
   countPassed();
}

// The journal's last entry bears the head's sequence, and none the one after next.
void Survey::judgeHead() {
   uint64_t head = loadWord( view_.head() );
   headSound_ = head < maxSequence && entryIsOf( *view_.journal( head ), head ) &&
                !entryIsOf( *view_.journal( head + 2 ), head + 2 );
   limit_ = headSound_ ? head + 1 : maxSequence;
   if ( headSound_ ) return;
   addText( texts_, fmt::format( "{}: the journal does not agree with its head {}",
                                 path_, head ) );
}

void Survey::scanSlots() {
   for ( uint32_t slot = 0; slot < slots_.size(); ++slot ) {
      if ( stateOf( view_.slot( slot )->stamp ) == slotLive ) judgeSlot( slot );
   }
}

void Survey::judgeSlot( uint32_t slot ) {
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
                            ? "the checksum does not hold"
                            : "the sequence is beyond the journal's";
      return report( noPosition, slot, what );
   }
   slots_[slot].hash = hash;
   slots_[slot].sequence = sequence;
   highest_ = std::max( highest_, sequence );
}

// Keeps each index word that names a whole record of the right key.
void Survey::claimWords() {
   const uint64_t* words = view_.index();
   for ( Position p = 0; p < view_.geometry.positions(); ++p ) {
      if ( isWord( p ) && words[p] ) claim( p );
   }
}

void Survey::claim( Position position ) {
   uint64_t word = view_.index()[position];
   uint32_t slot = slotOf( word );
   if ( fits( position, word ) ) return moveTo( slot, position );
   // A killed removal leaves a word that names a Removed slot: nothing to report.
   bool known = slot < slots_.size();
   if ( known && stateOf( view_.slot( slot )->stamp ) == slotRemoved ) return;
   report( position, slot, "the index word does not fit" );
}

bool Survey::fits( Position position, uint64_t word ) const {
   uint32_t slot = slotOf( word );
   if ( slot >= slots_.size() ) return false;
   const Slot& found = slots_[slot];
   return found.sequence && found.position == noPosition &&
          word == indexWord( slot, found.hash, found.sequence ) &&
          view_.geometry.reaches( found.hash, position );
}

void Survey::moveTo( uint32_t slot, Position position ) {
   slots_[slot].position = position;
   want_[position] = indexWord( slot, slots_[slot].hash, slots_[slot].sequence );
   ++survivors_;
}

// Where another slot with this slot's key stands, before `endLine`.
Position Survey::twinOf( uint32_t slot, uint32_t endLine ) const {
   const Slot& mine = slots_[slot];
   uint32_t home = view_.geometry.homeOf( mine.hash );
   for ( Position p = home * lineWords; p < endLine * lineWords; ++p ) {
      uint64_t word = isWord( p ) ? want_[p] : 0;
      if ( !word || ( ( word ^ tagOf( mine.hash ) ) & tagMask ) ) continue;
      uint32_t other = slotOf( word );
      if ( other != slot &&
           std::memcmp( view_.record( other ), view_.record( slot ),
                        view_.geometry.keySize ) == 0 ) {
         return p;
      }
   }
   return noPosition;
}

// Two words for one key: damage only. The newer record stays.
void Survey::retireTwins() {
   for ( uint32_t slot = 0; slot < slots_.size(); ++slot ) {
      Position mine = slots_[slot].position;
      if ( mine == noPosition ) continue;
      Position twin = twinOf( slot, mine / lineWords + 1 );
      if ( twin == noPosition ) continue;
      uint32_t other = slotOf( want_[twin] );
      bool newer = slots_[slot].sequence > slots_[other].sequence;
      uint32_t loser = newer ? other : slot;
      report( slots_[loser].position, loser, "the key stands twice" );
      want_[slots_[loser].position] = 0;
      slots_[loser].position = noPosition;
      slots_[loser].sequence = 0;
      older_.push_back( loser );
      --survivors_;
   }
}

void Survey::placeUnindexed() {
   for ( uint32_t slot = 0; slot < slots_.size(); ++slot ) {
      if ( slots_[slot].sequence && slots_[slot].position == noPosition ) {
         place( slot );
      }
   }
}

void Survey::place( uint32_t slot ) {
   uint32_t home = view_.geometry.homeOf( slots_[slot].hash );
   Position twin = twinOf( slot, home + probeLimit );
   if ( twin == noPosition ) {
      Position free = freePlace( slot );
      bool room = free != noPosition && survivors_ < view_.geometry.capacity;
      if ( !room ) {
         report( noPosition, slot, "there is no place for it in the index" );
         return broken_.push_back( slot );
      }
      return moveTo( slot, free );
   }
   uint32_t other = slotOf( want_[twin] );
   if ( slots_[other].sequence > slots_[slot].sequence ) {
      return older_.push_back( slot );
   }
   older_.push_back( other );
   slots_[other].position = noPosition;
   slots_[other].sequence = 0;
   --survivors_;
   moveTo( slot, twin );
}

Position Survey::freePlace( uint32_t slot ) const {
   Position begin = view_.geometry.homeOf( slots_[slot].hash ) * lineWords;
   for ( Position p = begin; p < begin + probeLimit * lineWords; ++p ) {
      if ( isWord( p ) && !want_[p] ) return p;
   }
   return noPosition;
}

void Survey::countPassed() {
   for ( const Slot& slot : slots_ ) {
      if ( slot.position == noPosition ) continue;
      uint32_t line = view_.geometry.homeOf( slot.hash );
      for ( ; line < slot.position / lineWords; ++line ) {
         ++want_[line * lineWords + 7];
      }
   }
}

void Survey::report( Position position, uint32_t slot, const char* what ) {
   addText( texts_, placeText( path_, position, slot ) + ": " + what );
}

}
