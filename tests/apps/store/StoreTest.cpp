#include "apps/store/Store.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "apps/store/Names.h"
#include "tests/support/Seed.h"
#include "tests/support/TempRoot.h"

namespace Fleet {
namespace {

using Vantu::IpGenAddr;

// Those that say much the same again and again, and those that no packing makes smaller.
TEST( PackedTexts, ReadBack ) {
   std::mt19937 random( Mox::Test::seedOf() );
   for ( size_t size = 0; size < 1000; ++size ) {
      std::string text( size, ' ' );
      const unsigned letters = 1 + random() % 256;
      for ( char& each : text ) each = static_cast<char>( random() % letters );
      ASSERT_EQ( Packed( text ).text(), text ) << letters << " letters";
   }
}

// Whatever a VRF is called, its keys are plain and read back.
TEST( Keys, ReadBack ) {
   std::mt19937 random( Mox::Test::seedOf() );
   for ( int i = 0; i < 2000; ++i ) {
      Key key;
      key.kind = static_cast<Key::Kind>( random() % ( Key::top + 1 ) );
      if ( key.kind != Key::recorder ) {
         key.scope.family =
            random() % 2 == 0 ? AddressFamily::ipv4 : AddressFamily::ipv6;
         for ( unsigned n = random() % 100; n != 0; --n )
            key.scope.vrf += static_cast<char>( random() );
      }
      if ( key.kind == Key::rates ) key.page = random() % Key::pages;
      if ( key.kind == Key::route || key.kind == Key::registers ) {
         uint8_t bytes[16];
         for ( uint8_t& byte : bytes ) byte = random() % 4 == 0 ? random() : 0;
         key.stream.group = IpGenAddr::fromBytes( key.scope.family, bytes );
         key.stream.source = random() % 2 == 0
                                ? IpGenAddr::unspecified( key.scope.family )
                                : key.stream.group;
      }
      std::string text = keyText( key );
      EXPECT_LT( text.size(), 420u );
      EXPECT_EQ(
         text.find_first_not_of( "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVW"
                                 "XYZ0123456789_-=." ),
         std::string::npos );
      EXPECT_EQ( parseKey( text ), key ) << text;
      // What reads differently is another key, or none.
      text[random() % text.size()] = static_cast<char>( random() );
      if ( const auto other = parseKey( text ) ) {
         EXPECT_EQ( keyText( *other ), text );
      }
   }
   EXPECT_EQ(
      keyText( { Key::route,
                 { "a.b", AddressFamily::ipv6 },
                 { IpGenAddr( "::ffff:10.0.0.1" ), IpGenAddr( "ff0e::1" ) } } ),
      "route.a=2eb.6.ff0e--1.--ffff-10=2e0=2e0=2e1" );
   for ( const char* text :
         { "", "recorder.", "route.a.4", "route.a.4.1-2-3-4.any.",
           "route.a.6.1-2-3-4.any", "rates.a.4.40", "rates.a.4.4", "table.a=2E.4",
           "table.=.5", "table..4" } )
      EXPECT_FALSE( parseKey( text ) ) << text;
}

class Stores : public testing::Test {
 protected:
   std::unique_ptr<Writer> writer( const Keeping& keeping = {} ) {
      return openWriter( { "sqlite:" + root.path() }, "r1", "run1", keeping );
   }
   std::vector<std::string> history( const Past& past ) {
      std::vector<std::string> bodies;
      reader->history( "r1", past, [&]( const Event& event ) {
         bodies.push_back( event.body );
      } );
      return bodies;
   }
   using Strings = std::vector<std::string>;

   Mox::Test::TempRoot root;
   std::unique_ptr<Reader> reader = openReader( { "sqlite:" + root.path() } );
};

TEST_F( Stores, KeepWhatIsWritten ) {
   EXPECT_TRUE( reader->routers().empty() );
   EXPECT_THROW( reader->values( "r1", {} ), StoreMissing );
   auto first = writer();
   EXPECT_THROW( writer(), StoreHeld );
   EXPECT_TRUE( reader->lives( "r1" ) );
   EXPECT_EQ( reader->instance( "r1" ), "run1" );
   const auto bell = reader->bell( {}, {} );
   EXPECT_TRUE( bell->rang() );
   EXPECT_FALSE( bell->rang() );
   first->write( { { 0, 10, "red", 4, "239.1.1.1", "*", "add", "a" },
                   { 0, 20, "red", 4, "239.1.1.1", "10.0.0.1", "add", "b" },
                   { 0, 20, "red", 6, "ff0e::1", "2001:db8::1", "add", "c" },
                   { 0, 30, "", 0, "", "", "log", "d" } },
                 { { "table.red.4", "one", 1 }, { "table.red.6", "two", 2 } } );
   EXPECT_TRUE( bell->rang() );
   first->write( {}, { { "table.red.4", "three", ~0ULL }, { "table.red.6", {} } } );
   EXPECT_EQ( reader->routers(), Strings{ "r1" } );
   EXPECT_EQ(
      reader->values( "r1", { "table.red.4", "table.red.6" } ),
      ( std::map<std::string, std::string>{ { "table.red.4", "three" } } ) );
   EXPECT_EQ( history( {} ), ( Strings{ "a", "b", "c", "d" } ) );
   EXPECT_EQ( history( { 20, 20 } ), ( Strings{ "b", "c" } ) );
   Past past;
   past.group = "239.1.1.1";
   past.source = "10.0.0.2";
   EXPECT_EQ( history( past ), Strings{ "a" } );
   past = {};
   past.vrf = "red";
   past.ipVersion = 6;
   EXPECT_EQ( history( past ), Strings{ "c" } );
   // The next one finds it, and a reader knows that nobody keeps it up to date.
   EXPECT_THROW( reader->forget( "r1" ), StoreHeld );
   first.reset();
   EXPECT_FALSE( reader->lives( "r1" ) );
   const auto standing = writer()->standing();
   ASSERT_EQ( standing.size(), 1u );
   EXPECT_EQ( standing.at( "table.red.4" ).digest, ~0ULL );
   EXPECT_EQ( standing.at( "table.red.4" ).value.text(), "three" );
   reader->forget( "r1" );
   EXPECT_TRUE( std::filesystem::is_empty( root.path() ) );
}

TEST_F( Stores, DropTheOldestHistoryFirst ) {
   std::vector<Event> events;
   for ( int64_t i = 0; i < 3000; ++i )
      events.push_back( { 0, i, "", 0, "", "", "add", std::to_string( i ) } );
   auto first = writer( { 1.0, 1ULL << 40U } );
   first->write( events, {} );
   while ( first->prune( 2500 ) ) continue;
   EXPECT_EQ( history( {} ).size(), 1500u );
   EXPECT_EQ( history( {} ).front(), "1500" );
   first.reset();
   auto small = writer( { 1e9, 1 } );
   while ( small->prune( 3000 ) ) continue;
   EXPECT_EQ( history( {} ), Strings{} );
}

// A file that was removed, or replaced by an older copy, is noticed.
TEST_F( Stores, FollowTheirFile ) {
   const std::string path = root.path() + "/r1.sqlite";
   auto first = writer();
   first->write( {}, { { "recorder", "one", 1 } } );
   for ( const char* ending : { "", "-wal", "-shm" } )
      std::filesystem::remove( path + ending );
   EXPECT_THROW( first->write( {}, { { "recorder", "two", 2 } } ), StoreAway );
   EXPECT_TRUE( first->standing().empty() );
   first->write( {}, { { "recorder", "two", 2 } } );
   reader = openReader( { "sqlite:" + root.path() } );
   EXPECT_EQ( reader->values( "r1", { "recorder" } ).at( "recorder" ), "two" );
}

}
}
