#include "platform/trie/TrieGen.h"

#include <gtest/gtest.h>

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

// What matches is told by the fuzzer, beside linear search.

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

}
}
