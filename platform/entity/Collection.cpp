#include "platform/entity/Collection.h"

#include <cstring>

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
   return width_ == 2 ? readPlace<uint16_t>( index_.data(), place )
                      : readPlace<uint32_t>( index_.data(), place );
}

void HashedSlots::atIs( size_t place, size_t position ) {
   switch ( width_ ) {
      case 1:
         return writePlace<uint8_t>( index_.data(), place, position );
      case 2:
         return writePlace<uint16_t>( index_.data(), place, position );
      default:
         return writePlace<uint32_t>( index_.data(), place, position );
   }
}

size_t HashedSlots::placeOf( size_t position ) const {
   size_t place = slots_[position].hash & mask();
   while ( at( place ) != position ) place = ( place + 1 ) & mask();
   return place;
}

// Rebuilds the index with room for twice the members.
void HashedSlots::rebuild() {
   size_t wanted = 16;
   while ( wanted < slots_.size() * 2 ) wanted *= 2;
   width_ = wanted <= 0x100 ? 1 : wanted <= 0x10000 ? 2 : 4;
   index_.assign( wanted * width_, 0xff );
   for ( size_t position = 0; position < slots_.size(); ++position ) {
      size_t place = slots_[position].hash & mask();
      while ( at( place ) != npos ) place = ( place + 1 ) & mask();
      atIs( place, position );
   }
}

void HashedSlots::add( uint64_t hash, Entity* member ) {
   slots_.push_back( { hash, member } );
   if ( slots_.size() <= kScanned && index_.empty() ) return;
   // At most three places in four are taken, and every position fits a place's
   // width.
   if ( index_.empty() || slots_.size() * 4 > places() * 3 ) return rebuild();
   size_t place = hash & mask();
   while ( at( place ) != npos ) place = ( place + 1 ) & mask();
   atIs( place, slots_.size() - 1 );
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
   size_t last = slots_.size() - 1;
   if ( !index_.empty() ) {
      clearPlace( placeOf( position ) );
      if ( position != last ) atIs( placeOf( last ), position );
   }
   slots_[position] = slots_[last];
   slots_.pop_back();
   if ( slots_.empty() ) *this = HashedSlots();
}

}
