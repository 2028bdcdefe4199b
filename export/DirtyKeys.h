// Keys with a flag each, as an attribute of kind ValueMap needs them. A mark costs no
// memory of its own on the heap: entries are dense, in order of insertion until one
// other than the last is erased, and beside them stands an open-addressed index.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>
#include <vector>

namespace Routing::Pim::SparseMode::Brane {

template <class Key>
class DirtyKeys {
 public:
   using key_type = Key;
   using mapped_type = bool;
   using value_type = std::pair<Key, bool>;
   using iterator = typename std::vector<value_type>::iterator;
   using const_iterator = typename std::vector<value_type>::const_iterator;

   size_t size() const { return entries_.size(); }
   bool empty() const { return entries_.empty(); }
   iterator begin() { return entries_.begin(); }
   iterator end() { return entries_.end(); }
   const_iterator begin() const { return entries_.begin(); }
   const_iterator end() const { return entries_.end(); }
   const value_type& operator[]( size_t at ) const { return entries_[at]; }

   const_iterator find( const Key& key ) const {
      if ( empty() ) return end();
      const Place& place = index_[placeOf( key, hashOf( key ) )];
      return place.entry == kNone ? end() : begin() + place.entry;
   }

   std::pair<iterator, bool> try_emplace( const Key& key, bool flag ) {
      // At most half of the places are taken.
      if ( 2 * ( size() + 1 ) > index_.size() ) grow();
      const uint32_t hash = hashOf( key );
      Place& place = index_[placeOf( key, hash )];
      if ( place.entry != kNone ) return { begin() + place.entry, false };
      entries_.emplace_back( key, flag );
      place = { hash, static_cast<uint32_t>( size() - 1 ) };
      return { end() - 1, true };
   }

   // Returns how many were erased. The last entry takes the erased one's position.
   size_t erase( const Key& key ) {
      if ( empty() ) return 0;
      const size_t at = placeOf( key, hashOf( key ) );
      const uint32_t entry = index_[at].entry;
      if ( entry == kNone ) return 0;
      const Key& last = entries_.back().first;
      if ( entry != size() - 1 ) {
         index_[placeOf( last, hashOf( last ) )].entry = entry;
         entries_[entry] = entries_.back();
      }
      entries_.pop_back();
      clear( at );
      // A set may stay empty for long.
      if ( empty() ) *this = {};
      return 1;
   }

 private:
   static constexpr uint32_t kNone = ~uint32_t( 0 );
   static constexpr size_t kFewest = 16;
   struct Place {
      uint32_t hash = 0;
      uint32_t entry = kNone;
   };

   static uint32_t hashOf( const Key& key ) {
      const uint64_t hash =
         std::hash<Key>()( key ) * UINT64_C( 0x9e3779b97f4a7c15 );
      return static_cast<uint32_t>( hash >> 32 );
   }
   size_t mask() const { return index_.size() - 1; }

   // Where the key is, or would be.
   size_t placeOf( const Key& key, uint32_t hash ) const {
      size_t at = hash & mask();
      for ( ; index_[at].entry != kNone; at = ( at + 1 ) & mask() ) {
         if ( index_[at].hash == hash && entries_[index_[at].entry].first == key )
            break;
      }
      return at;
   }

   // Moves back the entries that were pushed past the place.
   void clear( size_t hole ) {
      for ( size_t next = ( hole + 1 ) & mask(); index_[next].entry != kNone;
            next = ( next + 1 ) & mask() ) {
         const size_t home = index_[next].hash & mask();
         if ( ( ( next - home ) & mask() ) < ( ( next - hole ) & mask() ) )
            continue;
         index_[hole] = index_[next];
         hole = next;
      }
      index_[hole] = {};
   }

   // The places hold the hashes, so no key is read.
   void grow() {
      std::vector<Place> index( index_.empty() ? kFewest : 2 * index_.size() );
      index_.swap( index );
      for ( const Place& place : index ) {
         if ( place.entry == kNone ) continue;
         size_t at = place.hash & mask();
         while ( index_[at].entry != kNone ) at = ( at + 1 ) & mask();
         index_[at] = place;
      }
   }

   std::vector<value_type> entries_;
   std::vector<Place> index_;
};

}
