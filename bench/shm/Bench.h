// Shared by the rows of the table benchmark: records, keys, processes, medians.
//
// Keys are inserted in one shuffled order and visited in another, in every peer.
// A row is the median of `rounds` runs, in ns per record.
#pragma once

#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "platform/shm/Layout.h"

namespace Brane::Bench {

constexpr int rounds = 7;
constexpr size_t batchSize = 256;

struct Size {
   const char* name;
   uint32_t records, recordSize, keySize;
};

inline double nowNs() {
   timespec t;
   clock_gettime( CLOCK_MONOTONIC, &t );
   return double( t.tv_sec ) * 1e9 + double( t.tv_nsec );
}

inline double median( std::vector<double> values ) {
   std::sort( values.begin(), values.end() );
   return values[values.size() / 2];
}
inline double percentile( std::vector<double> values, double part ) {
   std::sort( values.begin(), values.end() );
   return values[std::min( values.size() - 1,
                           size_t( double( values.size() ) * part ) )];
}

// The keys one after the other, in their own order.
class Keys {
 public:
   Keys( const Size& size, uint64_t first = 0 ) : size_( size ) {
      for ( uint64_t i = 0; i < size.records; ++i ) order_.push_back( first + i );
   }
   void shuffle( uint32_t seed ) {
      std::mt19937_64 random( seed );
      std::shuffle( order_.begin(), order_.end(), random );
      bytes_.assign( size_t( size_.keySize ) * order_.size(), std::byte( 0 ) );
      for ( size_t i = 0; i < order_.size(); ++i ) fill( i );
   }
   size_t count() const { return order_.size(); }
   uint32_t number( size_t i ) const { return uint32_t( order_[i] ); }
   const std::byte* at( size_t i ) const {
      return bytes_.data() + i * size_.keySize;
   }

 private:
   // Like addresses and names in a key: few bytes differ.
   void fill( size_t i ) {
      std::byte* key = bytes_.data() + i * size_.keySize;
      uint64_t number = order_[i];
      uint64_t words[3] = { 0x02000000c0000200 | number % 251, number,
                            0x6568300000 };
      std::memcpy( key, words, 24 );
   }

   Size size_;
   std::vector<uint64_t> order_;
   std::vector<std::byte> bytes_;
};

inline Layout layoutOf( const Size& size ) {
   return {
      size.keySize,
      size.recordSize,
      { { "key", "bytes", 0, size.keySize },
        { "value", "bytes", size.keySize, size.recordSize - size.keySize } } };
}

// Memory that parent and child share, for figures and signals.
struct Shared {
   std::atomic<uint64_t> stage{ 0 };
   std::atomic<uint64_t> stamp{ 0 };
   double figures[16] = {};

   static Shared& make() {
      void* memory = mmap( nullptr, sizeof( Shared ), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS, -1, 0 );
      return *new ( memory ) Shared;
   }
};

// Runs the body in another process, while `meanwhile` runs in this one.
inline void inReader( const std::function<void()>& body,
                      const std::function<void()>& meanwhile = {} ) {
   fflush( stdout );
   pid_t pid = fork();
   if ( pid == 0 ) {
      body();
      fflush( stdout );
      _exit( 0 );
   }
   if ( meanwhile ) meanwhile();
   int status = 0;
   waitpid( pid, &status, 0 );
   if ( status ) printf( "a reader failed: status %d\n", status );
}

// ns per record of one pass.
template <class Pass>
double timed( size_t records, Pass pass ) {
   double start = nowNs();
   pass();
   return ( nowNs() - start ) / double( records );
}

template <class Pass>
double medianOf( size_t records, Pass pass ) {
   std::vector<double> values;
   for ( int i = 0; i < rounds; ++i ) values.push_back( timed( records, pass ) );
   return median( values );
}

// Keeps the compiler from dropping unused results.
inline void used( const void* memory ) {
   __asm__ volatile( "" : : "r"( memory ) : "memory" );
}

// Prints one line: figure, its base, the ratio and its goal, 0 for no goal.
inline void row( const char* what, double figure, double base, double target ) {
   if ( target == 0 ) {
      printf( "  %-44s %10.1f %10.1f %7.2f\n", what, figure, base, figure / base );
      return;
   }
   printf( "  %-44s %10.1f %10.1f %7.2f %7.2f %s\n", what, figure, base,
           figure / base, target, figure / base <= target ? "" : "MISS" );
}
inline void fasterRow( const char* what, double figure, double peer,
                       double target ) {
   printf( "  %-44s %10.1f %10.1f %6.1fx %6.1fx %s\n", what, figure, peer,
           peer / figure, target, peer / figure >= target ? "" : "MISS" );
}

}
