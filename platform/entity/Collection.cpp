#include "platform/entity/Collection.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Mox {
namespace {

template <class Word>
size_t readPlace( const uint8_t* index, size_t place ) {
   Word word;
   std::memcpy( &word, index + place * sizeof word, sizeof word );
   return word == static_cast<Word>( -1 ) ? HashedSlots::npos : word;
}

template <class Word>
void writePlace( uint8_t* index, size_t place, size_t position ) {
   auto word = static_cast<Word>( position );  // npos becomes all ones
   std::memcpy( index + place * sizeof word, &word, sizeof word );
}

}

size_t HashedSlots::wideAt( size_t place ) const {
   return width_ == 2 ? readPlace<uint16_t>( index_, place )
                      : readPlace<uint32_t>( index_, place );
}

void HashedSlots::atIs( size_t place, size_t position ) {
   switch ( width_ ) {
      case 1:
         return writePlace<uint8_t>( index_, place, position );
      case 2:
         return writePlace<uint16_t>( index_, place, position );
      default:
         return writePlace<uint32_t>( index_, place, position );
   }
}

size_t HashedSlots::placeOf( size_t position ) const {
   size_t place = slots_[position].hash & mask();
   while ( at( place ) != position ) place = ( place + 1 ) & mask();
   return place;
}

void HashedSlots::clear() {
   delete[] slots_;
   delete[] index_;
   slots_ = nullptr;
   index_ = nullptr;
   size_ = room_ = 0;
}

// Twice the room; one slot at first, since most routes have few interfaces.
void HashedSlots::grow() {
   MOX_ASSERT( room_ <= UINT32_MAX / 2 );
   const uint32_t room = std::max<uint32_t>( 1, room_ * 2 );
   auto* slots = new Slot[room];
   std::copy_n( slots_, size_, slots );
   delete[] std::exchange( slots_, slots );
   room_ = room;
}

// Rebuilds the index with room for twice the members.
void HashedSlots::rebuild() {
   uint8_t log = 4;
   while ( size_t( 1 ) << log < size_t( size_ ) * 2 ) ++log;
   const size_t wanted = size_t( 1 ) << log;
   const uint8_t width = wanted <= 0x100 ? 1 : wanted <= 0x10000 ? 2 : 4;
   auto* index = new uint8_t[wanted * width];
   std::memset( index, 0xff, wanted * width );
   delete[] std::exchange( index_, index );
   placesLog_ = log;
   width_ = width;
   for ( size_t position = 0; position < size_; ++position ) {
      size_t place = slots_[position].hash & mask();
      while ( at( place ) != npos ) place = ( place + 1 ) & mask();
      atIs( place, position );
   }
}

void HashedSlots::add( uint64_t hash, Entity* member ) {
   if ( size_ == room_ ) grow();
   slots_[size_++] = { hash, member };
   if ( size_ <= kScanned && index_ == nullptr ) return;
   // At most three places in four are taken, and every position fits a place's
   // width.
   if ( index_ == nullptr || size_t( size_ ) * 4 > places() * 3 ) return rebuild();
   size_t place = hash & mask();
   while ( at( place ) != npos ) place = ( place + 1 ) & mask();
   atIs( place, size_ - 1 );
}

// Empties a place and moves back the entries that were pushed past it.
void HashedSlots::clearPlace( size_t place ) {
   size_t hole = place;
   for ( size_t next = ( hole + 1 ) & mask();; next = ( next + 1 ) & mask() ) {
      size_t position = at( next );
      if ( position == npos ) break;
      size_t home = slots_[position].hash & mask();
      if ( ( ( next - home ) & mask() ) < ( ( next - hole ) & mask() ) ) continue;
      atIs( hole, position );
      hole = next;
   }
   atIs( hole, npos );
}

void HashedSlots::remove( size_t position ) {
   size_t last = size_ - 1;
   if ( index_ != nullptr ) {
      clearPlace( placeOf( position ) );
      if ( position != last ) atIs( placeOf( last ), position );
   }
   slots_[position] = slots_[last];
   if ( --size_ == 0 ) clear();
}

}
