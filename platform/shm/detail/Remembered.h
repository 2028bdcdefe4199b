// Per position of an index: the word last seen there and the key it stood for.
//
// Keys live in a pool, so that free positions cost 12 bytes only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/shm/Layout.h"
#include "platform/shm/detail/Store.h"

namespace Brane::Detail {

class Remembered {
 public:
   Remembered() = default;
   Remembered( uint32_t positions, uint32_t keySize )
      : keySize_( keySize ), words_( positions ), keyOf_( positions, noKey ) {}

   uint32_t positions() const { return uint32_t( words_.size() ); }
   // Number of keys that stand.
   uint32_t size() const { return size_; }

   // Fetches what stands at the position.
   void fetch( Position position ) const {
      __builtin_prefetch( &words_[position], 1 );
      __builtin_prefetch( &keyOf_[position], 1 );
   }
   void fetchKey( Position position ) const {
      if ( const std::byte* bytes = key( position ) ) prefetch( bytes, keySize_ );
   }
   uint64_t word( Position position ) const { return words_[position]; }
   void wordIs( Position position, uint64_t word ) { words_[position] = word; }

   // Null without a key. Valid until the position's key changes.
   const std::byte* key( Position position ) const {
      uint32_t key = keyOf_[position];
      return key == noKey ? nullptr : bytesOf( key );
   }

   void keyIs( Position position, const std::byte* key ) {
      if ( keyOf_[position] == noKey ) {
         keyOf_[position] = takeKey();
         ++size_;
      }
      std::memcpy( bytesOf( keyOf_[position] ), key, keySize_ );
   }

   void keyDel( Position position ) {
      if ( keyOf_[position] == noKey ) return;
      freeKeys_.push_back( keyOf_[position] );
      keyOf_[position] = noKey;
      --size_;
   }

 private:
   static constexpr uint32_t noKey = ~0u;
   static constexpr uint32_t blockKeys = 1024;

   std::byte* bytesOf( uint32_t key ) const {
      return blocks_[key / blockKeys].get() + size_t( key % blockKeys ) * keySize_;
   }

   uint32_t takeKey() {
      if ( freeKeys_.empty() ) {
         if ( taken_ % blockKeys == 0 ) {
            blocks_.emplace_back( new std::byte[size_t( blockKeys ) * keySize_] );
         }
         return taken_++;
      }
      uint32_t key = freeKeys_.back();
      freeKeys_.pop_back();
      return key;
   }

   uint32_t keySize_ = 0;
   uint32_t size_ = 0;
   std::vector<uint64_t> words_;
   std::vector<uint32_t> keyOf_;
   // In blocks: a pool in one piece would be copied again and again as it grows.
   std::vector<std::unique_ptr<std::byte[]>> blocks_;
   uint32_t taken_ = 0;
   std::vector<uint32_t> freeKeys_;
};

}
