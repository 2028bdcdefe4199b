#include "platform/shm/detail/Growth.h"

#include <algorithm>

#include "platform/base/Assert.h"
#include "platform/shm/detail/Hash.h"
#include "platform/shm/detail/Probe.h"

namespace Brane::Detail {

namespace {

// A step is one of these, which take about as long as each other: some ten microseconds.
constexpr uint64_t allocationStep = 16 << 10;  // bytes
constexpr Position copyStep = 64;              // positions
// Slots are in no order, so that each would be waited for.
constexpr Position ahead = 32;

uint64_t stepsFor( uint64_t size, uint64_t step ) {
   return ( size + step - 1 ) / step;
}

}

Growth::Growth( const WriterView& former, const Layout& layout,
                const HeaderValues& values, const Mox::String& path )
   : former_( former ),
     next_( path, layout, values ),
     allocations_( stepsFor( next_.view().geometry.fileSize, allocationStep ) ),
     copies_( stepsFor( former.geometry.positions(), copyStep ) ) {}

void Growth::advance( uint32_t part, uint32_t whole ) {
   MOX_ASSERT( part <= whole && whole > 0 );
   const uint64_t due = stepsFor( allSteps() * part, whole );
   while ( steps_ < due ) step();
}

void Growth::step() {
   if ( steps_ < allocations_ ) {
      next_.allocate( allocationStep );
   } else {
      copy( std::min( copied_ + copyStep, former_.geometry.positions() ) );
   }
   ++steps_;
}

// In order of positions: more homes keep the order, so both sides are walked once.
void Growth::copy( Position end ) {
   const uint64_t* words = former_.index();
   for ( ; copied_ < end; ++copied_ ) {
      const Position p = copied_;
      const bool fetches =
         p + ahead < former_.geometry.positions() && isWord( p + ahead );
      const uint32_t soon = fetches ? slotOf( words[p + ahead] ) : 0;
      if ( soon < former_.geometry.slotCount )
         prefetch( former_.slotBytes( soon ), former_.slotSize() );
      if ( isWord( p ) && words[p] ) copyRecord( words[p] );
   }
}

void Growth::copyRecord( uint64_t word ) {
   const uint32_t slot = slotOf( word );
   if ( slot >= former_.geometry.slotCount )
      throw CreateError( "the index of the instance that grows names no slot" );
   const std::byte* record = former_.record( slot );
   const uint64_t hash = keyHash( record, former_.geometry.keySize, former_.seed );
   write( record, { sequenceOf( former_.slot( slot )->stamp ), slot, hash } );
}

// Nobody reads this instance yet: a record is replaced where it stands.
void Growth::write( const void* record, const RecordIdentity& former ) {
   const Place place = placeOf( record, former.hash );
   const uint32_t slot = place.word ? slotOf( place.word ) : takeSlot();
   const RecordIdentity identity{ former.sequence, slot, former.hash };
   fillSlot( next_.view(), record, identity );
   enter( next_.view(), place, identity );
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

void Growth::put( Position position, const void* record,
                  const RecordIdentity& identity ) {
   if ( isCopied( position ) ) write( record, identity );
}

void Growth::remove( Position position, const void* key, uint64_t hash ) {
   if ( !isCopied( position ) ) return;
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
