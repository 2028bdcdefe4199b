// The internet checksum (RFC 1071) of any number of parts, each of even length but
// the last.
#pragma once

#include <endian.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "packet/Cursor.h"
#include "platform/net/IpGenAddr.h"

namespace Router {

class PIMSM_API Checksum {
 public:
   void add( Bytes bytes ) {
      // Two words at once: folding adds the upper to the lower.
      for ( ; bytes.size() >= sizeof( uint32_t );
            bytes = bytes.subspan( sizeof( uint32_t ) ) ) {
         uint32_t words;
         std::memcpy( &words, bytes.data(), sizeof words );
         sum_ += be32toh( words );
      }
      for ( size_t i = 0; i < bytes.size(); ++i )
         sum_ += i % 2 == 0 ? bytes[i] << 8U : bytes[i];
   }
   void add( uint32_t number ) { sum_ += ( number >> 16 ) + ( number & 0xffff ); }

   // The sum must cover the checksum itself.
   bool isGood() const { return folded() == 0xffff; }
   // The checksum to write in a field that was summed as zeros.
   uint16_t value() const { return static_cast<uint16_t>( ~folded() ); }

 private:
   uint64_t folded() const {
      uint64_t folded = sum_;
      while ( folded > 0xffff ) folded = ( folded >> 16 ) + ( folded & 0xffff );
      return folded;
   }

   uint64_t sum_ = 0;
};

// Adds IPv6's pseudo header for `length` bytes of the protocol (RFC 8200, 8.1).
inline void addPseudoHeader( Checksum& checksum, const Vantu::IpGenAddr& source,
                             const Vantu::IpGenAddr& destination, size_t length,
                             uint8_t protocol ) {
   checksum.add( source.bytes() );
   checksum.add( destination.bytes() );
   checksum.add( static_cast<uint32_t>( length ) );
   checksum.add( static_cast<uint32_t>( protocol ) );
}

}
