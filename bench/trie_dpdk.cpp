// Longest match: the table of the tries against rte_lpm, rte_fib (DIR24_8) and rte_fib6
// (TRIE) of DPDK, without huge pages, at 10 to 100,000 prefixes inside the multicast
// range. All are loaded with the same prefixes and must give the same answers.
//
// Each peer gets the addresses in its preferred form. Hot: 256 addresses
// repeatedly, one or 64 a call; DPDK's fib is made for the latter. Cold: 64
// look-ups in one call, which alone is timed, after a large buffer was read.

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "bench/TrieSite.h"

// Included last: `likely` is a macro there.
#include <rte_eal.h>
#include <rte_fib.h>
#include <rte_fib6.h>
#include <rte_lpm.h>

namespace Routing::Bench {
namespace {

constexpr uint64_t kNone = 255;  // in place of a matched length
constexpr uint32_t kSpareBlocks = 256;

void must( bool good, const char* what ) {
   if ( good ) return;
   std::fprintf( stderr, "bench_trie_dpdk: %s failed\n", what );
   std::exit( 1 );
}

template <class F>
struct TablePeer : Table<F> {
   using Family = F;
   using Key = NumberOf<F>;
   using Table<F>::Table;
   static Key key( NumberOf<F> address ) { return address; }
   void match( const Key* keys, uint64_t* lengths, unsigned count ) const {
      for ( unsigned i = 0; i < count; ++i ) {
         int length = this->trie.matchedLength( keys[i] );
         lengths[i] =
            length == this->trie.noMatch ? kNone : static_cast<uint64_t>( length );
      }
   }
};

struct Lpm {
   using Family = Ip4Number;
   using Key = uint32_t;

   explicit Lpm( const Site<Family>& site ) {
      const auto count = static_cast<uint32_t>( site.prefixes.size() );
      const rte_lpm_config config{ count, count + kSpareBlocks, 0 };
      lpm = rte_lpm_create( "bench", SOCKET_ID_ANY, &config );
      must( lpm != nullptr, "rte_lpm_create" );
      for ( const IpGenPrefix& prefix : site.prefixes ) {
         auto length = static_cast<uint8_t>( prefix.length() );
         must(
            rte_lpm_add( lpm, Family::of( prefix.address() ), length, length ) == 0,
            "rte_lpm_add" );
      }
   }
   ~Lpm() { rte_lpm_free( lpm ); }
   static Key key( uint32_t address ) { return address; }
   void match( const Key* keys, uint64_t* lengths, unsigned count ) const {
      for ( unsigned i = 0; i < count; ++i ) {
         uint32_t length = 0;
         lengths[i] = rte_lpm_lookup( lpm, keys[i], &length ) == 0 ? length : kNone;
      }
   }
   rte_lpm* lpm;
};

struct Fib {
   using Family = Ip4Number;
   using Key = uint32_t;

   explicit Fib( const Site<Family>& site ) {
      rte_fib_conf config{};
      config.type = RTE_FIB_DIR24_8;
      config.default_nh = kNone;
      config.max_routes = static_cast<int>( site.prefixes.size() + kSpareBlocks );
      config.dir24_8.nh_sz = RTE_FIB_DIR24_8_4B;
      config.dir24_8.num_tbl8 = static_cast<uint32_t>( config.max_routes );
      fib = rte_fib_create( "bench", SOCKET_ID_ANY, &config );
      must( fib != nullptr, "rte_fib_create" );
      for ( const IpGenPrefix& prefix : site.prefixes ) {
         auto length = static_cast<uint8_t>( prefix.length() );
         must(
            rte_fib_add( fib, Family::of( prefix.address() ), length, length ) == 0,
            "rte_fib_add" );
      }
   }
   ~Fib() { rte_fib_free( fib ); }
   static Key key( uint32_t address ) { return address; }
   void match( Key* keys, uint64_t* lengths, unsigned count ) const {
      rte_fib_lookup_bulk( fib, keys, lengths, static_cast<int>( count ) );
   }
   rte_fib* fib;
};

struct Fib6 {
   using Family = Ip6Number;
   using Key = std::array<uint8_t, RTE_FIB6_IPV6_ADDR_SIZE>;

   explicit Fib6( const Site<Family>& site ) {
      uint32_t blocks = kSpareBlocks;  // per eight bits behind the first 24
      for ( const IpGenPrefix& prefix : site.prefixes )
         blocks += ( static_cast<uint32_t>( prefix.length() ) - 24 + 7 ) / 8;
      rte_fib6_conf config{};
      config.type = RTE_FIB6_TRIE;
      config.default_nh = kNone;
      config.max_routes = static_cast<int>( site.prefixes.size() + kSpareBlocks );
      config.trie.nh_sz = RTE_FIB6_TRIE_4B;
      config.trie.num_tbl8 = blocks;
      fib = rte_fib6_create( "bench", SOCKET_ID_ANY, &config );
      must( fib != nullptr, "rte_fib6_create" );
      for ( const IpGenPrefix& prefix : site.prefixes ) {
         const Key start = key( Family::of( prefix.address() ) );
         auto length = static_cast<uint8_t>( prefix.length() );
         must( rte_fib6_add( fib, start.data(), length, length ) == 0,
               "rte_fib6_add" );
      }
   }
   ~Fib6() { rte_fib6_free( fib ); }
   static Key key( NumberOf<Family> address ) {
      Key bytes;
      for ( size_t i = bytes.size(); i-- > 0; address >>= 8 )
         bytes[i] = static_cast<uint8_t>( address );
      return bytes;
   }
   void match( Key* keys, uint64_t* lengths, unsigned count ) const {
      auto* bytes = reinterpret_cast<uint8_t( * )[RTE_FIB6_IPV6_ADDR_SIZE]>( keys );
      rte_fib6_lookup_bulk( fib, bytes, lengths, static_cast<int>( count ) );
   }
   rte_fib6* fib;
};

template <class Peer>
std::vector<typename Peer::Key> keysOf( const Site<typename Peer::Family>& site ) {
   std::vector<typename Peer::Key> keys;
   for ( const auto& address : site.addresses )
      keys.push_back( Peer::key( address ) );
   return keys;
}

// Checks every address of the site, so that no peer wins by wrong answers.
template <class Peer>
void check( const Site<typename Peer::Family>& site, const Peer& peer ) {
   const TablePeer<typename Peer::Family> table( site );
   std::vector<typename Peer::Key> keys = keysOf<Peer>( site );
   for ( size_t i = 0; i < keys.size(); ++i ) {
      uint64_t expected = 0, got = 0;
      table.match( &site.addresses[i], &expected, 1 );
      peer.match( &keys[i], &got, 1 );
      must( got == expected, "the comparison of answers" );
   }
}

benchmark::Counter timeOf( double lookups ) {
   return benchmark::Counter(
      lookups, benchmark::Counter::kIsRate | benchmark::Counter::kInvert );
}

template <class Peer, unsigned batch>
void hot( benchmark::State& state ) {
   Site<typename Peer::Family> site( static_cast<size_t>( state.range( 0 ) ) );
   Peer peer( site );
   check( site, peer );
   auto keys = keysOf<Peer>( site );
   uint64_t lengths[batch];
   size_t at = 0;
   for ( auto _ : state ) {
      peer.match( &keys[at], lengths, batch );
      benchmark::DoNotOptimize( lengths );
      at = ( at + batch ) % 256;
   }
   state.counters["s_per_lookup"] =
      timeOf( static_cast<double>( state.iterations() ) * batch );
}

template <class Peer>
void cold( benchmark::State& state ) {
   constexpr unsigned kBatch = 64;
   Site<typename Peer::Family> site( static_cast<size_t>( state.range( 0 ) ) );
   Peer peer( site );
   auto keys = keysOf<Peer>( site );
   std::vector<uint64_t> buffer( ( 16U << 20 ) / sizeof( uint64_t ) );
   uint64_t lengths[kBatch];
   size_t at = 0;
   double total = 0;
   for ( auto _ : state ) {
      for ( size_t line = 0; line < buffer.size(); line += 8 ) ++buffer[line];
      typename Peer::Key batch[kBatch];
      std::copy_n( keys.begin() + static_cast<long>( at ), kBatch, batch );
      at = ( at + kBatch ) % keys.size();
      auto start = std::chrono::steady_clock::now();
      peer.match( batch, lengths, kBatch );
      benchmark::DoNotOptimize( lengths );
      std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
      state.SetIterationTime( took.count() );
      total += took.count();
   }
   state.counters["s_per_lookup"] =
      total / ( static_cast<double>( state.iterations() ) * kBatch );
}

#define SIZES ->Arg( 10 )->Arg( 1000 )->Arg( 100000 )
#define LOOKUP( peer )               \
   BENCHMARK( hot<peer, 1> ) SIZES;  \
   BENCHMARK( hot<peer, 64> ) SIZES; \
   BENCHMARK( cold<peer> ) SIZES->UseManualTime()->Iterations( 200 );

LOOKUP( TablePeer<Ip4Number> )
LOOKUP( Lpm )
LOOKUP( Fib )
LOOKUP( TablePeer<Ip6Number> )
LOOKUP( Fib6 )

}
}

int main( int argc, char** argv ) {
   const char* eal[] = { "bench_trie_dpdk",
                         "--no-huge",
                         "-m",
                         "3072",
                         "--no-pci",
                         "--no-shconf",
                         "--no-telemetry",
                         "--log-level=1",
                         "--lcores=0" };
   Routing::Bench::must( rte_eal_init( static_cast<int>( std::size( eal ) ),
                                       const_cast<char**>( eal ) ) >= 0,
                         "rte_eal_init" );
   benchmark::Initialize( &argc, argv );
   if ( benchmark::ReportUnrecognizedArguments( argc, argv ) ) return 2;
   benchmark::RunSpecifiedBenchmarks();
   rte_eal_cleanup();
   return 0;
}
