#include "platform/shm/detail/Checksum.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "platform/shm/detail/Hash.h"

namespace Brane::Detail {
namespace {

TEST( Checksum, IsTheSameByBothWaysAndCoversEveryBit ) {
   // RFC 3720 appendix B.4.
   uint8_t up[32], ones[32];
   for ( uint8_t i = 0; i < 32; ++i ) up[i] = i;
   std::memset( ones, 0xff, sizeof ones );
   alignas( 16 ) std::byte stored[256];
   std::vector<uint64_t> words;
   for ( uint64_t size = 8; size <= 240; size += 8 ) {
      words.push_back( size * 0x9e3779b97f4a7c15 );
      const RecordIdentity identity{ size, 3, 77 };
      uint32_t sums[2];
      for ( bool portable : { false, true } ) {
         portableChecksumIs( portable );
         EXPECT_EQ( crc32c( up, sizeof up ), 0x46dd794eu );
         EXPECT_EQ( crc32c( ones, sizeof ones ), 0x62a8ab43u );
         sums[portable] = recordChecksum( words.data(), size, identity );
         EXPECT_EQ( storeRecord( stored, words.data(), size, identity ),
                    sums[portable] );
         EXPECT_EQ( std::memcmp( stored, words.data(), size ), 0 );
      }
      EXPECT_EQ( sums[0], sums[1] ) << size;
      portableChecksumIs( false );
      for ( size_t bit = 0; bit < size * 8; bit += 7 ) {
         words[bit / 64] ^= 1ull << bit % 64;
         EXPECT_NE( recordChecksum( words.data(), size, identity ), sums[0] )
            << bit;
         words[bit / 64] ^= 1ull << bit % 64;
      }
      for ( const RecordIdentity& other : { RecordIdentity{ size, 4, 77 },
                                            { size + 1, 3, 77 },
                                            { size, 3, 78 } } )
         EXPECT_NE( recordChecksum( words.data(), size, other ), sums[0] );
   }
}

// Keys that differ in few bits, as addresses do, must not share lines.
TEST( KeyHash, SpreadsNeighbouringKeys ) {
   const uint64_t seed[2] = { 5, 6 };
   for ( size_t words : { 1, 2, 3, 5, 9 } ) {
      for ( size_t varied = 0; varied < words; ++varied ) {
         std::vector<uint64_t> key( words, 0 );
         std::vector<uint32_t> lines( 1024 ), tags( 1024 );
         for ( uint64_t i = 0; i < 8192; ++i ) {
            key[varied] = i << ( varied % 2 ? 24 : 0 );
            uint64_t hash = keyHash( key.data(), words * 8, seed );
            ++lines[hash >> 54];
            ++tags[hash & 1023];
         }
         // Eight each on average.
         for ( uint32_t n : lines ) EXPECT_LT( n, 32u );
         for ( uint32_t n : tags ) EXPECT_LT( n, 32u );
      }
   }
}

}
}
