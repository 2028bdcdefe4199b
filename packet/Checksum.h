// The internet checksum (RFC 1071), added up over any number of parts, each of even
// length but the last.
#pragma once

#include <cstddef>
#include <cstdint>

#include "packet/Ip.h"

namespace Router {

class PIMSM_API Checksum {
 public:
   void add( Bytes bytes ) {
      for ( size_t i = 0; i < bytes.size(); ++i ) {
         sum_ += i % 2 == 0 ? bytes[i] << 8U : bytes[i];
      }
   }
   void add( uint32_t number ) { sum_ += ( number >> 16 ) + ( number & 0xffff ); }

   // Over what carries its own checksum.
   bool isGood() const {
      uint64_t folded = sum_;
      while ( folded > 0xffff ) folded = ( folded >> 16 ) + ( folded & 0xffff );
      return folded == 0xffff;
   }

 private:
   uint64_t sum_ = 0;
};

// IPv6's pseudo header for `length` bytes of the protocol (RFC 8200, 8.1).
inline void addPseudoHeader( Checksum& checksum, const IpPacket& packet,
                             size_t length, uint8_t protocol ) {
   checksum.add( packet.source.bytes() );
   checksum.add( packet.destination.bytes() );
   checksum.add( static_cast<uint32_t>( length ) );
   checksum.add( static_cast<uint32_t>( protocol ) );
}

}
