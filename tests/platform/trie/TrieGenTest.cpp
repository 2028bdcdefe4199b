#include "platform/trie/TrieGen.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/support/ErrorText.h"
#include "tests/support/ThrowingAssertions.h"

namespace Routing {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

IpGenPrefix prefix( const char* text ) {
   return IpGenPrefix( Mox::StringView( text ) );
}

Mox::Ptr<TrieGen> trieOf( AddressFamily family,
                          std::initializer_list<const char*> prefixes ) {
   auto trie = Mox::newEntity<TrieGen>( "test", family );
   for ( const char* text : prefixes ) trie->routeIs( prefix( text ), true );
   return trie;
}

TEST( TrieGen, WithoutAMatchGivesTheDefaultPrefixNotTheWholeRange ) {
   const IpGenPrefix none;
   auto trie = trieOf( AddressFamily::ipv4, { "239.1.0.0/16" } );
   EXPECT_EQ( trie->longestMatch( prefix( "239.2.0.0/32" ) ), none );
   EXPECT_EQ( trie->longestMatch( prefix( "10.0.0.1/32" ) ), none );
   EXPECT_EQ( trie->longestMatch( prefix( "ff3e::/128" ) ), none );
   EXPECT_EQ( trie->longestMatch( none ), none );
   trie->routeIs( prefix( "0.0.0.0/0" ), true );
   EXPECT_EQ( trie->longestMatch( prefix( "10.0.0.1/32" ) ),
              prefix( "0.0.0.0/0" ) );
   EXPECT_EQ( trie->longestMatch( prefix( "::/128" ) ), none );
   EXPECT_EQ( trieOf( AddressFamily::ipv6, {} )->longestMatch( prefix( "::/0" ) ),
              none );
}

// A stored prefix longer than the argument covers a part of it only.
TEST( TrieGen, MatchesWhatCoversTheWholeArgument ) {
   auto trie = trieOf( AddressFamily::ipv4,
                       { "232.0.0.0/8", "232.0.0.0/16", "232.0.0.0/32" } );
   EXPECT_EQ( trie->longestMatch( prefix( "232.0.0.0/32" ) ).length(), 32U );
   EXPECT_EQ( trie->longestMatch( prefix( "232.0.0.0/31" ) ).length(), 16U );
   EXPECT_EQ( trie->longestMatch( prefix( "232.0.0.0/15" ) ).length(), 8U );
   EXPECT_TRUE( trie->longestMatch( prefix( "232.0.0.0/7" ) ).isNone() );
}

// Nothing varies in them, or only the last bit.
TEST( TrieGen, TellsHostsApart ) {
   auto trie = trieOf( AddressFamily::ipv4, { "232.0.0.1/32" } );
   EXPECT_EQ( trie->longestMatch( prefix( "232.0.0.1/32" ) ).length(), 32U );
   EXPECT_TRUE( trie->longestMatch( prefix( "232.0.0.0/32" ) ).isNone() );
   trie = trieOf( AddressFamily::ipv6, { "ff3e::2/128", "ff3e::3/128" } );
   EXPECT_EQ( trie->longestMatch( prefix( "ff3e::3/128" ) ),
              prefix( "ff3e::3/128" ) );
   EXPECT_TRUE( trie->longestMatch( prefix( "ff3e::1/128" ) ).isNone() );
}

TEST( TrieGen, RefusesWhatItCannotHold ) {
   auto trie = trieOf( AddressFamily::ipv6, {} );
   auto refusal = [&]( const IpGenPrefix& what ) {
      return Mox::Test::errorText<Mox::RangeError>(
         [&] { trie->routeIs( what, true ); } );
   };
   EXPECT_EQ(
      refusal( prefix( "10.0.0.0/8" ) ),
      "a prefix of another family than the trie's, 10.0.0.0/8, not allowed" );
   EXPECT_NE( refusal( {} ), "" );
   EXPECT_EQ( trie->size(), 0U );
   auto other = trieOf( static_cast<AddressFamily>( 7 ), {} );
   EXPECT_THROW( other->routeIs( prefix( "::/0" ), true ), Mox::RangeError );
   EXPECT_TRUE( other->longestMatch( prefix( "::/0" ) ).isNone() );
   EXPECT_EQ( other->trie4(), nullptr );
   EXPECT_EQ( other->trie6(), nullptr );
}

TEST( TrieGen, IsEmptiedByDeletionAndReadyAfterInitialisation ) {
   auto trie = trieOf( AddressFamily::ipv4, { "0.0.0.0/0", "239.0.0.0/8" } );
   trie->trie4()->handleDeletion();
   EXPECT_EQ( trie->size(), 0U );
   EXPECT_EQ( trie->trie4()->memory(), 0U );
   EXPECT_EQ( Mox::Test::assertionText(
                 [&] { trie->routeIs( prefix( "239.0.0.0/8" ), true ); } ),
              "initialized_" );
   trie->trie4()->handleInitialized();
   EXPECT_TRUE( trie->longestMatch( prefix( "239.0.0.1/32" ) ).isNone() );
   trie->routeIs( prefix( "224.0.0.0/4" ), true );
   EXPECT_EQ( trie->longestMatch( prefix( "239.0.0.1/32" ) ),
              prefix( "224.0.0.0/4" ) );
}

// Prefixes of a few crowded places, so that they nest, touch, begin at the same
// address and meet the ends of the range; and probes beside their edges.
template <class Family>
class Walk {
   using Number = typename Family::Number;

 public:
   explicit Walk( unsigned seed ) : dice_( seed ) {}

   void run() {
      for ( int round = 0; round < 60; ++round ) {
         for ( size_t changes = pick( 40 ); changes > 0; --changes ) change();
         ASSERT_NO_FATAL_FAILURE( compare() );
         if ( pick( 10 ) == 0 ) clear();
      }
   }

 private:
   size_t pick( size_t count ) { return dice_() % count; }

   Number address() {
      Number number = 0;
      for ( unsigned i = 0; i < Family::bits; i += 32 ) {
         number = ( number << 16 << 16 ) | dice_();
      }
      switch ( pick( 4 ) ) {
         case 0:
            return number;
         case 1:
            return number % 512;  // the low end
         case 2:
            return ~Number( 0 ) - number % 512;  // the high end
         default:
            return ( number % 16 ) << ( Family::bits - 6 );  // the top bits
      }
   }
   void change() {
      unsigned length = static_cast<unsigned>( pick( Family::bits + 1 ) );
      if ( pick( 3 ) == 0 ) length = Family::bits - length % 10;
      IpGenPrefix some( Family::address( address() ), length );
      bool present = pick( 4 ) != 0;
      if ( !present && !stored_.empty() && pick( 2 ) == 0 ) {
         some = *std::next( stored_.begin(),
                            static_cast<long>( pick( stored_.size() ) ) );
      }
      trie_.routeIs( some, present );
      present ? void( stored_.insert( some ) ) : void( stored_.erase( some ) );
   }
   void clear() {
      trie_.handleDeletion();
      trie_.handleInitialized();
      stored_.clear();
   }

   void compare() {
      ASSERT_EQ( trie_.size(), stored_.size() );
      std::vector<IpGenPrefix> iterated;
      for ( const IpGenPrefix& each : trie_ ) iterated.push_back( each );
      ASSERT_EQ( iterated,
                 std::vector<IpGenPrefix>( stored_.begin(), stored_.end() ) );
      for ( const IpGenPrefix& each : stored_ ) {
         Number first = Family::of( each.address() );
         Number last = first | Family::ones( Family::bits - each.length() );
         for ( Number probe : { Number( first - 1 ), first, last,
                                Number( last + 1 ), address() } ) {
            unsigned length = pick( 2 ) == 0 ? Family::bits : each.length();
            ASSERT_NO_FATAL_FAILURE(
               compare( IpGenPrefix( Family::address( probe ), length ) ) );
         }
      }
   }
   void compare( const IpGenPrefix& probe ) {
      IpGenPrefix best;
      for ( const IpGenPrefix& each : stored_ ) {
         if ( !each.contains( probe ) ) continue;
         if ( best.isNone() || each.length() > best.length() ) best = each;
      }
      ASSERT_EQ( trie_.longestMatch( probe ), best ) << probe;
   }

   std::mt19937 dice_;
   PrefixTable<Family> trie_;
   std::set<IpGenPrefix> stored_;
};

unsigned seedOf() {
   unsigned seed = std::random_device()();
   std::printf( "seed %u\n", seed );
   return seed;
}

TEST( PrefixTable, AgreesWithLinearSearch ) {
   unsigned seed = seedOf();
   SCOPED_TRACE( testing::Message() << "seed " << seed );
   Walk<Vantu::Ip4Number>( seed ).run();
   Walk<Vantu::Ip6Number>( seed ).run();
}

}
}
