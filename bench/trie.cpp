// Longest match: the table of the tries against a map for each length and against
// linear search, at 10 to 100,000 prefixes inside the multicast range.
//
// Hot: 256 addresses repeatedly. Cold: a large buffer is read before each 64
// look-ups, which alone are timed. Half of the addresses match a prefix. Then
// follow the sizes of the table, and its building against sorting the same
// prefixes.

#include <benchmark/benchmark.h>

#include <chrono>

#include "bench/TrieSite.h"

namespace Routing::Bench {
namespace {

// As above through the general types, which the reactors use.
template <class Family>
struct General : Table<Family> {
   using Table<Family>::Table;
   int match( NumberOf<Family> address ) const {
      auto found =
         this->trie.longestMatch( IpGenPrefix( Family::address( address ) ) );
      return found.isNone() ? -1 : static_cast<int>( found.length() );
   }
};

template <class Family>
struct MapPerLength {
   explicit MapPerLength( const Site<Family>& site ) {
      for ( const IpGenPrefix& prefix : site.prefixes ) {
         maps[prefix.length()][Family::of( prefix.address() )] = true;
      }
   }
   int match( NumberOf<Family> address ) const {
      for ( int length = Family::bits; length >= 0; --length ) {
         if ( maps[length].empty() ) continue;
         auto host = Family::ones( Family::bits - static_cast<unsigned>( length ) );
         if ( maps[length].count( address & ~host ) != 0 ) return length;
      }
      return -1;
   }
   std::map<NumberOf<Family>, bool> maps[Family::bits + 1];
};

template <class Family>
struct Linear {
   struct Entry {
      NumberOf<Family> start, mask;
      int length;
   };
   explicit Linear( const Site<Family>& site ) {
      for ( const IpGenPrefix& prefix : site.prefixes ) {
         entries.push_back( { Family::of( prefix.address() ),
                              ~Family::ones( Family::bits - prefix.length() ),
                              static_cast<int>( prefix.length() ) } );
      }
      std::sort( entries.begin(), entries.end(),
                 []( auto& a, auto& b ) { return a.length > b.length; } );
   }
   int match( NumberOf<Family> address ) const {
      for ( const Entry& entry : entries ) {
         if ( ( address & entry.mask ) == entry.start ) return entry.length;
      }
      return -1;
   }
   std::vector<Entry> entries;
};

template <class Family, template <class> class Peer>
void hot( benchmark::State& state ) {
   Site<Family> site( static_cast<size_t>( state.range( 0 ) ) );
   Peer<Family> peer( site );
   size_t i = 0;
   for ( auto _ : state ) {
      benchmark::DoNotOptimize( peer.match( site.addresses[i++ % 256] ) );
   }
}

template <class Family, template <class> class Peer>
void cold( benchmark::State& state ) {
   constexpr int kBatch = 64;
   Site<Family> site( static_cast<size_t>( state.range( 0 ) ) );
   Peer<Family> peer( site );
   std::vector<uint64_t> buffer( ( 16U << 20 ) / sizeof( uint64_t ) );
   size_t i = 0;
   for ( auto _ : state ) {
      for ( size_t line = 0; line < buffer.size(); line += 8 ) ++buffer[line];
      NumberOf<Family> batch[kBatch];
      for ( auto& each : batch ) each = site.addresses[i++ % site.addresses.size()];
      auto start = std::chrono::steady_clock::now();
      for ( const auto& each : batch )
         benchmark::DoNotOptimize( peer.match( each ) );
      std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      state.SetIterationTime( took.count() );
   }
   state.SetItemsProcessed( state.iterations() * kBatch );
}

// In order, as an access list's prefixes come, or shuffled.
template <class Family, bool ordered>
void build( benchmark::State& state ) {
   auto count = static_cast<size_t>( state.range( 0 ) );
   Site<Family> site( count );
   if ( ordered ) std::sort( site.prefixes.begin(), site.prefixes.end() );
   size_t bytes = 0;
   for ( auto _ : state ) {
      Table<Family> table( site );
      bytes = table.trie.memory();
      benchmark::DoNotOptimize( table );
   }
   state.counters["bytes"] = static_cast<double>( bytes );
   state.counters["bytes_per_prefix"] =
      static_cast<double>( bytes ) / static_cast<double>( count );
}

template <class Family>
void sortThem( benchmark::State& state ) {
   Site<Family> site( static_cast<size_t>( state.range( 0 ) ) );
   for ( auto _ : state ) {
      auto copy = site.prefixes;
      std::sort( copy.begin(), copy.end() );
      benchmark::DoNotOptimize( copy.data() );
   }
}

#define SIZES ->Arg( 10 )->Arg( 1000 )->Arg( 10000 )->Arg( 100000 )
#define LOOKUP( peer )                                                           \
   BENCHMARK( hot<Ip4Number, peer> ) SIZES;                                      \
   BENCHMARK( hot<Ip6Number, peer> ) SIZES;                                      \
   BENCHMARK( cold<Ip4Number, peer> ) SIZES->UseManualTime()->Iterations( 200 ); \
   BENCHMARK( cold<Ip6Number, peer> ) SIZES->UseManualTime()->Iterations( 200 );

LOOKUP( Table )
LOOKUP( General )
LOOKUP( MapPerLength )
BENCHMARK( hot<Ip4Number, Linear> )->Arg( 10 )->Arg( 1000 )->Arg( 10000 );
BENCHMARK( hot<Ip6Number, Linear> )->Arg( 10 )->Arg( 1000 )->Arg( 10000 );
BENCHMARK( build<Ip4Number, false> ) SIZES;
BENCHMARK( build<Ip4Number, true> ) SIZES;
BENCHMARK( sortThem<Ip4Number> ) SIZES;
BENCHMARK( build<Ip6Number, false> ) SIZES;
BENCHMARK( build<Ip6Number, true> ) SIZES;
BENCHMARK( sortThem<Ip6Number> ) SIZES;

}
}

BENCHMARK_MAIN();
