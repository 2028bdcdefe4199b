// The fuzzer tests the matches against linear search.
#include "platform/trie/TrieGen.h"

#include <gtest/gtest.h>

#include "tests/support/ErrorText.h"
#include "tests/support/ThrowingAssertions.h"

namespace Routing {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenPrefix;

IpGenPrefix prefix( const char* text ) {
   return IpGenPrefix( Mox::StringView( text ) );
}

// They do not match either.
TEST( TrieGen, RefusesWhatItCannotHold ) {
   auto refusal = []( TrieGen& trie, const char* what ) {
      EXPECT_TRUE( trie.longestMatch( prefix( what ) ).isNone() ) << what;
      return Mox::Test::errorText<Mox::RangeError>(
         [&] { trie.routeIs( prefix( what ), true ); } );
   };
   auto trie = Mox::newEntity<TrieGen>( "test", AddressFamily::ipv6 );
   trie->routeIs( prefix( "::/0" ), true );
   EXPECT_EQ(
      refusal( *trie, "10.0.0.0/8" ),
      "a prefix of another family than the trie's, 10.0.0.0/8, not allowed" );
   EXPECT_NE( refusal( *trie, "none" ), "" );
   EXPECT_EQ( trie->size(), 1U );
   auto other = Mox::newEntity<TrieGen>( "test", static_cast<AddressFamily>( 7 ) );
   EXPECT_NE( refusal( *other, "::/0" ), "" );
}

TEST( TrieGen, IsEmptiedByDeletionAndReadyAfterInitialisation ) {
   auto trie = Mox::newEntity<TrieGen>( "test", AddressFamily::ipv4 );
   trie->routeIs( prefix( "239.0.0.0/8" ), true );
   trie->trie4()->handleDeletion();
   EXPECT_EQ( trie->size(), 0U );
   EXPECT_EQ( std::as_const( *trie ).trie4()->memory(), 0U );
   EXPECT_EQ( Mox::Test::assertionText(
                 [&] { trie->routeIs( prefix( "239.0.0.0/8" ), true ); } ),
              "initialized_" );
   trie->trie4()->handleInitialized();
   trie->routeIs( prefix( "224.0.0.0/4" ), true );
   EXPECT_EQ( trie->longestMatch( prefix( "239.0.0.1/32" ) ),
              prefix( "224.0.0.0/4" ) );
}

}
}
