#include "platform/shm/detail/Growth.h"

#include <algorithm>
#include <array>

#include "platform/base/Assert.h"
#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Probe.h"

namespace Brane::Detail {

namespace {

// A step is one of these, which take about as long as each other: some ten microseconds.
constexpr uint64_t allocationStep = 16 << 10;  // bytes
constexpr uint32_t copyStep = 64;              // slots
// Index lines come in no order, so that each would be waited for.
constexpr uint32_t ahead = 16;

uint64_t stepsFor( uint64_t size, uint64_t step ) {
   return ( size + step - 1 ) / step;
}

}

Growth::Growth( const WriterView& former, std::vector<bool> live,
                const Layout& layout, const HeaderValues& values,
                const Mox::String& path )
   : former_( former ),
     live_( std::move( live ) ),
     next_( path, layout, values ),
     allocations_( stepsFor( next_.view().geometry.fileSize, allocationStep ) ),
     copies_( stepsFor( former.geometry.slotCount, copyStep ) ) {}

void Growth::advance( uint32_t part, uint32_t whole ) {
   MOX_ASSERT( part <= whole && whole > 0 );
   const uint64_t due = stepsFor( allSteps() * part, whole );
   while ( steps_ < due ) step();
}

void Growth::step() {
   if ( steps_ < allocations_ ) {
      next_.allocate( allocationStep );
   } else {
      copy( std::min( copied_ + copyStep, former_.geometry.slotCount ) );
   }
   ++steps_;
}

// In order of slots, which is that of their writing: it stays so, and who reads all of
// the next instance meets together what was written together.
void Growth::copy( uint32_t end ) {
   std::array<uint64_t, ahead> hashes;
   for ( uint32_t next = copied_; copied_ < end; ++copied_ ) {
      for ( ; next < std::min( copied_ + ahead, former_.geometry.slotCount );
            ++next ) {
         hashes[next % ahead] = hashOf( next );
         fetchLine( hashes[next % ahead] );
      }
      if ( live_[copied_] ) copyRecord( copied_, hashes[copied_ % ahead] );
   }
}

uint64_t Growth::hashOf( uint32_t slot ) const {
   return keyHash( former_.record( slot ), former_.geometry.keySize, former_.seed );
}

void Growth::fetchLine( uint64_t hash ) const {
   const WriterView& view = next_.view();
   prefetchForStore( reinterpret_cast<const std::byte*>(
                        view.index() + view.geometry.homeOf( hash ) * lineWords ),
                     1 );
}

// Where a stray pointer damaged the record, its copy is damaged, too: nobody takes it
// for what was put.
void Growth::copyRecord( uint32_t slot, uint64_t hash ) {
   const SlotHead& head = *former_.slot( slot );
   const void* record = former_.record( slot );
   const RecordIdentity identity{ sequenceOf( head.stamp ), slot, hash };
   const bool sound = recordChecksum( record, former_.geometry.recordSize,
                                      identity ) == head.checksum;
   uint64_t& copied = next_.view().slot( write( record, identity ) )->checksum;
   if ( !sound ) storeWord( &copied, ~copied );
}

// Nobody reads this instance yet: a record is replaced where it stands. Returns the slot.
uint32_t Growth::write( const void* record, const RecordIdentity& former ) {
   const Place place = placeOf( record, former.hash );
   const uint32_t slot = place.word ? slotOf( place.word ) : takeSlot();
   const RecordIdentity identity{ former.sequence, slot, former.hash };
   fillSlot( next_.view(), record, identity );
   enter( next_.view(), place, identity );
   return slot;
}

uint32_t Growth::takeSlot() {
   if ( freed_.empty() ) return nextSlot_++;
   const uint32_t slot = freed_.back();
   freed_.pop_back();
   return slot;
}

Place Growth::placeOf( const void* key, uint64_t hash ) const {
   const WriterView& view = next_.view();
   const Place place = probeIn( view, hash, [&]( Position, uint64_t word ) {
      const uint32_t slot = slotOf( word );
      // A stray pointer may have written to the copy, too.
      if ( slot >= view.geometry.slotCount )
         throw CreateError( "the index of a larger instance names no slot" );
      return sameBytes( view.record( slot ), key, view.geometry.keySize );
   } );
   if ( place.position == noPosition )
      throw CreateError( "a larger instance has no place for a key" );
   return place;
}

// What was written to a slot beyond those copied is met there later.
void Growth::put( const void* record, const RecordIdentity& identity ) {
   live_[identity.slot] = true;
   if ( identity.slot < copied_ ) write( record, identity );
}

void Growth::remove( const void* key, uint64_t hash ) {
   const WriterView& view = next_.view();
   const Place place = placeOf( key, hash );
   if ( !place.word ) return;
   const uint32_t slot = slotOf( place.word );
   storeWord( &view.slot( slot )->stamp, stampOf( 0, slotFree ) );
   storeWord( view.index() + place.position, 0 );
   addPassed( view, view.geometry.homeOf( hash ), place.position, -1 );
   freed_.push_back( slot );
}

NewInstance& Growth::finish( uint64_t sequence ) {
   MOX_ASSERT( complete() );
   next_.startAfter( sequence );
   return next_;
}

}
