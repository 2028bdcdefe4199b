#include "platform/shm/detail/Checksum.h"

#include <array>

#include "platform/shm/detail/Store.h"

#if defined( __x86_64__ )
#include <nmmintrin.h>
#define PIMSM_SHM_SSE42 __attribute__( ( target( "sse4.2" ) ) )
#endif

namespace Brane::Detail {

namespace {

constexpr std::array<uint32_t, 256> crcTable() {
   std::array<uint32_t, 256> table{};
   for ( uint32_t i = 0; i < 256; ++i ) {
      uint32_t value = i;
      for ( int bit = 0; bit < 8; ++bit ) {
         value = ( value >> 1 ) ^ ( value & 1 ? 0x82f63b78u : 0u );
      }
      table[i] = value;
   }
   return table;
}
constexpr auto table = crcTable();

uint32_t addByte( uint32_t crc, uint8_t byte ) {
   return ( crc >> 8 ) ^ table[( crc ^ byte ) & 0xff];
}

// The portable step; the processor's own is below.
struct Portable {
   static uint64_t add( uint64_t crc, uint64_t word ) {
      auto value = uint32_t( crc );
      for ( int i = 0; i < 8; ++i )
         value = addByte( value, uint8_t( word >> 8 * i ) );
      return value;
   }
};

// The computation for both ways: STEP adds a word to a lane, STORE stores the pair
// of words that begins with word i.
#define PIMSM_SHM_RECORD_CRC( STEP, STORE )                                     \
   uint64_t a = STEP( ~0u, identity.sequence ), b = STEP( ~0u, identity.slot ); \
   uint64_t c = STEP( ~0u, identity.hash ), d = ~0u;                            \
   auto* from = static_cast<const std::byte*>( record );                        \
   size_t words = size / 8, i = 0;                                              \
   for ( ; i + 4 <= words; i += 4, from += 32 ) {                               \
      STORE( i, from );                                                         \
      STORE( i + 2, from + 16 );                                                \
      a = STEP( a, wordAt( from, 0 ) );                                         \
      b = STEP( b, wordAt( from, 1 ) );                                         \
      c = STEP( c, wordAt( from, 2 ) );                                         \
      d = STEP( d, wordAt( from, 3 ) );                                         \
   }                                                                            \
   if ( words & 2 ) {                                                           \
      STORE( i, from );                                                         \
      a = STEP( a, wordAt( from, 0 ) );                                         \
      b = STEP( b, wordAt( from, 1 ) );                                         \
   }                                                                            \
   if ( words & 1 ) {                                                           \
      /* The slot's padding takes the second word of an odd last pair. */       \
      const uint64_t last[2] = { wordAt( record, words - 1 ), 0 };              \
      STORE( words - 1, last );                                                 \
      uint64_t &lane = words & 2 ? c : a, &next = words & 2 ? d : b;            \
      lane = STEP( lane, last[0] );                                             \
      next = STEP( next, 0 );                                                   \
   }                                                                            \
   uint64_t crc = STEP( ~0u, a << 32 | b );                                     \
   return uint32_t( STEP( crc, c << 32 | d ) );

#define PIMSM_SHM_NO_STORE( index, words ) (void)0
#define PIMSM_SHM_STORE( index, words ) storePair( to + 8 * ( index ), words )

uint32_t portableChecksum( const void* record, size_t size,
                           const RecordIdentity& identity ){
   PIMSM_SHM_RECORD_CRC( Portable::add, PIMSM_SHM_NO_STORE ) }

uint32_t portableStore( std::byte* to, const void* record, size_t size,
                        const RecordIdentity& identity ){
   PIMSM_SHM_RECORD_CRC( Portable::add, PIMSM_SHM_STORE ) }

uint32_t portableCrc( const void* data, size_t size ) {
   uint32_t crc = ~0u;
   auto* bytes = static_cast<const uint8_t*>( data );
   for ( size_t i = 0; i < size; ++i ) crc = addByte( crc, bytes[i] );
   return ~crc;
}

#ifdef PIMSM_SHM_SSE42
PIMSM_SHM_SSE42 uint32_t fastChecksum( const void* record, size_t size,
                                       const RecordIdentity& identity ){
   PIMSM_SHM_RECORD_CRC( _mm_crc32_u64, PIMSM_SHM_NO_STORE ) }

PIMSM_SHM_SSE42 uint32_t fastStore( std::byte* to, const void* record, size_t size,
                                    const RecordIdentity& identity ){
   PIMSM_SHM_RECORD_CRC( _mm_crc32_u64, PIMSM_SHM_STORE ) }

PIMSM_SHM_SSE42 uint32_t fastCrc( const void* data, size_t size ) {
   uint64_t crc = ~0u;
   size_t i = 0;
   for ( ; i + 8 <= size; i += 8 )
      crc = _mm_crc32_u64( crc, wordAt( data, i / 8 ) );
   auto* bytes = static_cast<const uint8_t*>( data );
   for ( ; i < size; ++i ) crc = _mm_crc32_u8( uint32_t( crc ), bytes[i] );
   return ~uint32_t( crc );
}
#endif

struct Ways {
   decltype( &portableChecksum ) checksum;
   decltype( &portableStore ) store;
   decltype( &portableCrc ) crc;
};

Ways waysOf( bool portable ) {
#ifdef PIMSM_SHM_SSE42
   __builtin_cpu_init();
   if ( !portable && __builtin_cpu_supports( "sse4.2" ) ) {
      return { fastChecksum, fastStore, fastCrc };
   }
#endif
   (void)portable;
   return { portableChecksum, portableStore, portableCrc };
}

Ways ways = waysOf( false );

}

uint32_t crc32c( const void* data, size_t size ) {
   return ways.crc( data, size );
}

uint32_t recordChecksum( const void* record, size_t size,
                         const RecordIdentity& identity ) {
   return ways.checksum( record, size, identity );
}

uint32_t storeRecord( std::byte* to, const void* record, size_t size,
                      const RecordIdentity& identity ) {
   return ways.store( to, record, size, identity );
}

void portableChecksumIs( bool portable ) {
   ways = waysOf( portable );
}

}
