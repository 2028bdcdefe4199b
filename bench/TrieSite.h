// Shared by the benchmarks of the tries: random prefixes inside the multicast
// range, addresses of which half match one, and the table loaded with the prefixes.
#pragma once

#include <algorithm>
#include <map>
#include <random>

#include "platform/trie/TrieGen.h"

namespace Routing::Bench {

using Vantu::Ip4Number;
using Vantu::Ip6Number;
using Vantu::IpGenPrefix;

template <class Family>
using NumberOf = typename Family::Number;

template <class Family>
struct Site {
   using Number = NumberOf<Family>;
   static constexpr unsigned kFixed = Family::bits == 32 ? 4 : 8;

   explicit Site( size_t count ) : dice( count ) {
      constexpr unsigned kShortest = Family::bits == 32 ? 12 : 32;
      std::map<IpGenPrefix, bool> distinct;
      while ( distinct.size() < count ) {
         unsigned span = Family::bits - kShortest + 1;
         unsigned length = kShortest + static_cast<unsigned>( dice() % span );
         distinct[{ Family::address( group() ), length }] = true;
      }
      for ( const auto& [prefix, present] : distinct ) prefixes.push_back( prefix );
      std::shuffle( prefixes.begin(), prefixes.end(), dice );
      for ( size_t i = 0; i < ( 1U << 16 ); ++i ) addresses.push_back( address() );
   }

   Number group() {
      constexpr Number kFirst = Number( Family::bits == 32 ? 0xe : 0xff )
                                << ( Family::bits - kFixed );
      Number number = 0;
      for ( unsigned i = 0; i < Family::bits; i += 32 ) {
         number = ( number << 16 << 16 ) | static_cast<uint32_t>( dice() );
      }
      return kFirst | ( number & Family::ones( Family::bits - kFixed ) );
   }
   Number address() {
      Number any = group();
      if ( dice() % 2 == 0 ) return any;
      const IpGenPrefix& in = prefixes[dice() % prefixes.size()];
      return Family::of( in.address() ) |
             ( any & Family::ones( Family::bits - in.length() ) );
   }

   std::mt19937_64 dice;
   std::vector<IpGenPrefix> prefixes;
   std::vector<Number> addresses;
};

template <class Family>
struct Table {
   explicit Table( const Site<Family>& site ) {
      for ( const IpGenPrefix& prefix : site.prefixes )
         trie.routeIs( prefix, true );
      trie.size();
   }
   int match( NumberOf<Family> address ) const {
      return trie.matchedLength( address );
   }
   PrefixTable<Family> trie;
};

}
