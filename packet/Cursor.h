// Reads bytes front to back, in network order.
//
// A read beyond the end gives zeros and makes the cursor fail for good, so that a
// decoder checks only once, at the end of each unit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Router {

using Bytes = std::span<const uint8_t>;

class Cursor {
 public:
   explicit Cursor( Bytes bytes ) : rest_( bytes ) {}

   bool ok() const { return ok_; }
   bool atEnd() const { return rest_.empty(); }
   size_t left() const { return rest_.size(); }
   Bytes rest() const { return rest_; }

   uint8_t u8() { return static_cast<uint8_t>( number( 1 ) ); }
   uint16_t u16() { return static_cast<uint16_t>( number( 2 ) ); }
   uint32_t u32() { return number( 4 ); }

   // Empty when fewer bytes remain.
   Bytes take( size_t count ) {
      if ( count > rest_.size() ) {
         ok_ = false;
         rest_ = {};
         return {};
      }
      Bytes taken = rest_.first( count );
      rest_ = rest_.subspan( count );
      return taken;
   }

   void skip( size_t count ) { take( count ); }

 private:
   uint32_t number( size_t size ) {
      uint32_t value = 0;
      for ( uint8_t byte : take( size ) ) value = value << 8 | byte;
      return value;
   }

   Bytes rest_;
   bool ok_ = true;
};

}
