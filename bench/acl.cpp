// The cost of making prefixes of an access list as its rules grow.
//
// Overlapping rules are the hard case: each cuts and swallows parts of the others.
// The program reports the time of one conversion and, at the end of each family of
// lists, how it grows.

#include <benchmark/benchmark.h>

#include <random>

#include "platform/acl/AclToPrefix.h"

namespace Acl {
namespace {

template <class Family>
using Number = typename Family::Number;

// A group of the multicast range with 28 or more random bits.
template <class Family>
Vantu::IpGenPrefix group( uint64_t bits, unsigned length ) {
   constexpr unsigned kFirst = Family::bits == 32 ? 4 : 8;
   Number<Family> first = Number<Family>( Family::bits == 32 ? 0xe : 0xff )
                          << ( Family::bits - kFirst );
   Number<Family> rest = Number<Family>( bits )
                         << ( Family::bits == 32 ? 0 : Family::bits - kFirst - 64 );
   rest &= Family::ones( Family::bits - kFirst );
   return { Family::address( first | rest ), length };
}

// Alternating permits and denies of random groups and lengths: nested and
// overlapping.
template <class Family>
AclRules overlapping( size_t count ) {
   std::mt19937_64 dice( count );
   std::vector<AclRule> rules;
   for ( uint32_t i = 0; i < count; ++i ) {
      unsigned spread = Family::bits == 32 ? 20 : 48;
      unsigned length = 12 + static_cast<unsigned>( dice() % spread );
      rules.push_back(
         { i, i % 2 == 0 ? deny : permit, group<Family>( dice(), length ), {} } );
   }
   return { standard, std::move( rules ) };
}

// Holes first, then the range around them: every rule has an effect.
template <class Family>
AclRules holes( size_t count ) {
   std::vector<AclRule> rules;
   for ( uint32_t i = 0; i + 1 < count; ++i ) {
      uint64_t bits = uint64_t( i ) << ( Family::bits == 32 ? 10 : 42 );
      rules.push_back(
         { i, deny, group<Family>( bits, Family::bits == 32 ? 24 : 32 ), {} } );
   }
   rules.push_back( { static_cast<uint32_t>( count ), permit, {}, {} } );
   return { standard, std::move( rules ) };
}

template <class Converter, AclRules ( *rulesOf )( size_t )>
void convert( benchmark::State& state ) {
   auto count = static_cast<size_t>( state.range( 0 ) );
   auto list = Mox::newEntity<AclConfig>( "list" );
   list->rulesIs( rulesOf( count ) );
   Converter converter = Converter::multicast();
   size_t prefixes = 0;
   for ( auto _ : state ) {
      Vantu::IpGenPrefixSet out;
      converter.handleAcl( list.get(), out, false );
      prefixes = out.size();
      benchmark::DoNotOptimize( out );
   }
   state.SetComplexityN( state.range( 0 ) );
   state.counters["prefixes"] = static_cast<double>( prefixes );
}

#define ACL_BENCH( converter, rules )     \
   BENCHMARK( convert<converter, rules> ) \
      ->Name( #converter "/" #rules )     \
      ->RangeMultiplier( 10 )             \
      ->Range( 100, 100000 )              \
      ->Complexity( benchmark::oNLogN )

using AclIp6Prefix::AclToIp6Prefix;
using AclPrefix::AclToPrefix;
using Vantu::Ip4Number;
using Vantu::Ip6Number;

ACL_BENCH( AclToPrefix, overlapping<Ip4Number> );
ACL_BENCH( AclToPrefix, holes<Ip4Number> );
ACL_BENCH( AclToIp6Prefix, overlapping<Ip6Number> );
ACL_BENCH( AclToIp6Prefix, holes<Ip6Number> );

}
}

BENCHMARK_MAIN();
