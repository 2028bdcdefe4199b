#include "tests/platform/entity/Fixture.h"

namespace Mox::Test {
namespace {

class Attribute : public testing::Test {
 protected:
   Ptr<Tree> tree = newEntity<Tree>( "oak" );
   TreeRecorder recorder{ tree.get() };
};

TEST_F( Attribute, NotifiesOnlyOnChange ) {
   for ( uint8_t height : { 3, 4, 4 } ) tree->heightIs( height );
   EXPECT_EQ( recorder.take(), Heard{ "height" } );
   // A counter wraps.
   tree->bumpsIs( 255 );
   EXPECT_EQ( tree->bumpsInc( 1 ), 0 );
   EXPECT_EQ( tree->bumpsInc( 0 ), 0 );
   EXPECT_EQ( tree->bumpsDec( 1 ), 255 );
   EXPECT_EQ( recorder.take(), ( Heard{ "bumps", "bumps", "bumps" } ) );
   // A view is compared by identity.
   Ptr<const Leaf> one = newEntity<Leaf>( 1 );
   for ( const Ptr<const Leaf>& leaf :
         { one, one, Ptr<const Leaf>( newEntity<Leaf>( 1 ) ), {} } )
      tree->friendlyIs( leaf );
   EXPECT_EQ( recorder.take().size(), 3U );
   for ( bool flag : { true, true, false } ) tree->flagIs( "a", flag );
   EXPECT_FALSE( *tree->flag( "a" ) );
   EXPECT_TRUE( tree->flagDel( "a" ) );
   EXPECT_FALSE( tree->flagDel( "a" ) );
   EXPECT_EQ( recorder.take(), ( Heard{ "flag a", "flag a", "flag a" } ) );
   for ( uint32_t number : { 5, 5, 4 } ) tree->numberIs( number );
   tree->numberDelAll();
   tree->numberDel( 5 );
   EXPECT_EQ( recorder.take(),
              ( Heard{ "number 5", "number 4", "number 4", "number 5" } ) );
}

// A word change runs the flag's reaction first; a flag change the word's.
TEST_F( Attribute, ReactionsRunAfterTheStoreAndBeforeTheNotification ) {
   tree->wordIs( 3 );
   EXPECT_TRUE( tree->low() );
   EXPECT_EQ( recorder.take(), ( Heard{ "low", "word" } ) );
   tree->lowIs( false );
   EXPECT_EQ( tree->word(), 2U );
   EXPECT_EQ( recorder.take(), ( Heard{ "word", "low" } ) );
   tree->notificationsEnabledIs( false );
   tree->wordIs( 1 );
   EXPECT_TRUE( tree->low() );
   EXPECT_EQ( recorder.take(), Heard{} );
}

TEST_F( Attribute, MembersAreMadeOnceAndHandedOutWhenRemoved ) {
   Ptr<Leaf> crown = tree->crownIs(), seven = tree->leafIs( 7 );
   EXPECT_TRUE( crown->notificationsEnabled() );
   EXPECT_EQ( tree->crownIs(), crown );
   EXPECT_EQ( tree->leafIs( 7 ), seven );
   EXPECT_EQ( tree->leaf( 7 ), seven.get() );
   EXPECT_EQ( tree->leafDel( 8 ), nullptr );
   EXPECT_EQ( tree->leafDel( 7 ), seven );
   EXPECT_EQ( tree->leaf( 7 ), nullptr );
   EXPECT_EQ( tree->crownDel(), crown );
   EXPECT_EQ( tree->crownDel(), nullptr );
   EXPECT_EQ( recorder.take(), ( Heard{ "crown", "leaf 7", "leaf 7", "crown" } ) );
}

// Keys added while the old ones are being removed stay.
TEST_F( Attribute, DelAllTakesTheKeysAsTheyAre ) {
   for ( uint32_t id : { 3U, 1U, 2U } ) tree->sortedIs( id );
   recorder.take();
   recorder.inside = [&]( const String& what ) {
      if ( what == "sorted 1" ) tree->sortedIs( 9 );
      if ( what == "sorted 2" ) tree->sortedDel( 3 );
   };
   tree->sortedDelAll();
   EXPECT_EQ( recorder.take(),
              ( Heard{ "sorted 1", "sorted 9", "sorted 2", "sorted 3" } ) );
   EXPECT_EQ( keysOf( tree->sorted() ), std::vector<uint32_t>{ 9 } );
}

TEST_F( Attribute, ReflectionReadsEveryKindAndWritesScalars ) {
   tree->leafIs( 7 );
   auto expectTexts = [&]( std::map<String, String> texts ) {
      for ( const auto& [name, text] : texts )
         EXPECT_EQ( tree->attributeText( name ), text ) << name;
   };
   EXPECT_EQ( tree->typeInfo().name, "Mox::Test::Tree" );
   expectTexts( { { "name", "'oak'" },
                  { "friendly", "0x0" },
                  { "leaf", "[7]" },
                  { "total", "1" },
                  { "colour", "''" } } );
   recorder.take();
   tree->attributeTextIs( "height", "9" );
   EXPECT_EQ( recorder.take(), Heard{ "height" } );
   EXPECT_THROW( tree->attributeTextIs( "height", "256" ), RangeError );
   EXPECT_THROW( tree->attributeTextIs( "height", "9m" ), ParseError );
   EXPECT_EQ( tree->height(), 9 );
   for ( const char* name : { "name", "total", "colour" } )
      EXPECT_THROW( tree->attributeTextIs( name, "'x'" ), NameError ) << name;
   EXPECT_THROW( tree->attributeText( "hight" ), NameError );
   // Through the child, once it exists.
   tree->crownIs();
   expectTexts( { { "colour", "'red'" } } );
   tree->attributeTextIs( "colour", "'blue'" );
   EXPECT_EQ( tree->crown()->colour(), "blue" );
}

}
}
