#include <functional>
#include <random>
#include <set>

#include "Support.h"

namespace Brane::Test {
namespace {

class Table : public TableTest {};

TEST_F( Table, RefusesTheZeroKeyUnlessAsked ) {
   Record zero = Record::of( 0, 1 );
   {
      TableWriter writer( path, layout, 4, options );
      EXPECT_THROW( writer.put( &zero ), Mox::RangeError );
      EXPECT_EQ( writer.sequence(), 0u );
   }
   options.zeroKey = true;
   {
      TableWriter writer( path, layout, 4, options );
      writer.put( &zero );
      put( writer, 1, 1 );
   }
   EXPECT_EQ( found( TableReader( path, layout ), 0 ), zero );
   // Later it is no longer accepted, and its record is dropped.
   options.zeroKey = false;
   TableWriter writer( path, layout, 20, options );
   EXPECT_EQ( writer.attachReport().survivors, 1u );
   EXPECT_EQ( writer.attachReport().dropped, 1u );
   EXPECT_EQ( contentOf( writer ).count( 0 ), 0u );
}

TEST_F( Table, RefusesKeysBeyondTheReachOfProbing ) {
   // All keys have one home line: the lines in reach have 7 words each.
   constexpr size_t reach = Detail::probeLimit * Detail::wordsPerLine;
   options.firstCapacity = 400;
   TableWriter writer( path, layout, 400, options );
   TableReader reader( path, layout );
   std::vector<uint64_t> ids = neighbours( 400, reach + 1 );
   for ( size_t i = 0; i < reach; ++i ) put( writer, ids[i], 1 );
   EXPECT_THROW( put( writer, ids[reach], 1 ), ProbeLimitError );
   for ( size_t i = 0; i < reach; ++i ) {
      ASSERT_EQ( found( reader, ids[i] ), Record::of( ids[i], 1 ) );
   }
   EXPECT_EQ( found( reader, ids[reach] ), std::nullopt );
   // A removal from the first line makes room, and hides no key behind it.
   EXPECT_TRUE( remove( writer, ids[0] ) );
   for ( size_t i = 1; i < reach; ++i ) ASSERT_TRUE( found( reader, ids[i] ) );
   put( writer, ids[reach], 1 );
   EXPECT_TRUE( found( reader, ids[reach] ) );
   EXPECT_EQ( writer.verify().damaged, 0u );
}

// A stray pointer wrote stamps: of former records of a key, of a removed and a reserved
// one, and of the index's first; and it wrote to a record, which nobody takes for sound.
TEST_F( Table, GrowsByWhatItsWriterKnows ) {
   options.firstCapacity = 20;
   TableWriter writer( path, layout, 1000, options );
   Content expected;
   for ( uint64_t id = 1; id < 20; ++id ) {
      put( writer, id, 1 );
      put( writer, id, 2 );
      expected[id] = Record::of( id, 2 );
   }
   remove( writer, 19 );
   expected.erase( 19 );
   const Reservation reserved = writer.reserve();
   const Record unwritten = Record::of( 500, 1 );
   std::memcpy( reserved.record(), &unwritten, sizeof( unwritten ) );
   std::string bytes = bytesOf( path );
   const auto geometry = geometryOf( 20 );
   const uint64_t first = neighbours( 20, 1 )[0];
   const Key damaged{ first == 5 ? 6u : 5u, 0 };
   for ( uint32_t slot = 0; slot < geometry.slotCount; ++slot ) {
      char* at = &bytes[geometry.slotsOffset + slot * geometry.slotStride];
      auto& record = *reinterpret_cast<Record*>( at + sizeof( Detail::SlotHead ) );
      const auto state =
         Detail::stateOf( *reinterpret_cast<const uint64_t*>( at ) );
      if ( state != Detail::slotLive && state != Detail::slotFree )
         at[0] = static_cast<char>( ( at[0] & ~7 ) | Detail::slotLive );
      if ( state == Detail::slotLive && record.key.id == first )
         at[0] = static_cast<char>( ( at[0] & ~7 ) | Detail::slotReplaced );
      if ( state == Detail::slotLive && record.key == damaged ) ++record.filler[0];
   }
   bytesAre( path, bytes );
   for ( uint64_t id = 20; id < 60; ++id ) {
      put( writer, id, 1 );
      expected[id] = Record::of( id, 1 );
   }
   EXPECT_NE( writer.verify().damaged, 0u );
   put( writer, damaged.id, 2 );
   EXPECT_EQ( writer.verify().damaged, 0u );
   EXPECT_EQ( contentOf( writer ), expected );
   EXPECT_EQ( contentOf( TableReader( path, layout ) ), expected );
}

TEST_F( Table, EachWayToReadFollowsGrowth ) {
   options.firstCapacity = 4;
   const Key last{ 5, 0 };
   Record out;
   TableReader::LookupItem item{ &last, &out };
   std::set<uint64_t> visited;
   auto visitor = [&]( Position, const void* r ) {
      visited.insert( static_cast<const Record*>( r )->key.id );
      return visited.size() != 2;
   };
   Position middle = noPosition;
   const std::function<bool( TableReader& )> ways[] = {
      [&]( TableReader& it ) { return it.lookup( &last, &out ) == lookupFound; },
      [&]( TableReader& it ) {
         it.lookup( { &item, 1 } );
         return item.result == lookupFound;
      },
      [&]( TableReader& it ) { return it.verify( &last ) == lookupFound; },
      [&]( TableReader& it ) {
         it.visit( visitor, it.resumeBefore( &last ) );
         return visited.count( 5 ) == 1;
      },
      // A visit in parts ends in the instance where it began.
      [&]( TableReader& it ) {
         it.visit( visitor, middle );
         return visited == std::set<uint64_t>{ 1, 2, 3, 4 };
      } };
   for ( const auto& way : ways ) {
      const std::string own = directory + "/t" + std::to_string( &way - ways );
      TableWriter writer( own, layout, 100, options );
      for ( uint64_t id : { 1, 2, 3, 4 } ) put( writer, id, 1 );
      TableReader reader( own, layout );
      visited.clear();
      middle = reader.visit( visitor );
      put( writer, 5, 1 );
      EXPECT_TRUE( way( reader ) ) << &way - ways;
   }
}

// A writer, replaced now and then, and a reader and a follower that drains on the
// way, against a map: through long churn, and where counters wrap: the word's
// generation, the journal's sequence, and the last sequences.
class Churn : public TableTest, public testing::WithParamInterface<uint64_t> {
 protected:
   static constexpr uint32_t capacity = 300;

   static void TearDownTestSuite() {
      for ( bool lapped : { false, true } )
         EXPECT_TRUE( drainedSo[lapped][false] && drainedSo[lapped][true] );
   }
   // Takes the table over, or makes it anew, small; it grows at once or in parts.
   void mount() {
      if ( writer && random() % 32 == 0 ) {
         writer->removeFiles();
         expected.clear();
      }
      options.growsAheadFrom = random() % 4 ? 1 : UINT32_MAX;
      writer.reset();
      ASSERT_FALSE( std::filesystem::exists( path + ".new" ) );
      writer = std::make_unique<TableWriter>( path, layout, capacity, options );
      ASSERT_EQ( writer->attachReport().texts, std::vector<Mox::String>() );
   }
   uint64_t anyKey() { return ids[random() % ( random() % 2 ? 70 : ids.size() )]; }
   // Handles, some of them stale or wild, which only cost time.
   Position hint( uint64_t id ) {
      return random() % 8 ? positions[id] : Position( random() % 8000 );
   }
   void removeAny() {
      uint64_t id = anyKey();
      Key key{ id, 0 };
      Record removed;
      auto former = expected.extract( id );
      ASSERT_EQ( writer->remove( &key, &removed, hint( id ) ), !former.empty() );
      ASSERT_TRUE( former.empty() || removed == former.mapped() );
   }
   Position put( const Record& record ) {
      const uint64_t id = record.key.id;
      if ( random() % 2 ) return writer->put( &record, hint( id ) );
      // In place: unseen before the commit, and freed without it.
      auto standing = found( *reader, id );
      Reservation dropped = writer->reserve(), built = writer->reserve();
      for ( Reservation* each : { &dropped, &built } )
         std::memcpy( each->record(), &record, sizeof( record ) );
      EXPECT_EQ( found( *reader, id ), standing );
      return built.commit( hint( id ) );
   }
   void putAny() {
      const uint64_t id = anyKey(), before = writer->sequence();
      const Record record = Record::of( id, ++generation );
      if ( expected.size() < capacity || expected.count( id ) ) {
         positions[id] = put( record );
         expected[id] = record;
      } else {
         EXPECT_THROW( put( record ), TableFullError );
         ASSERT_EQ( writer->sequence(), before );
      }
   }
   void putBatch() {
      std::vector<Record> records;
      std::vector<TableWriter::PutItem> items;
      for ( auto& [id, record] : expected ) {
         if ( random() % 3 ) records.push_back( Record::of( id, ++generation ) );
      }
      for ( const Record& r : records ) items.push_back( { &r, hint( r.key.id ) } );
      writer->put( items );
      for ( size_t i = 0; i < items.size(); ++i ) {
         positions[records[i].key.id] = items[i].position;
         expected[records[i].key.id] = records[i];
      }
   }
   void change( uint64_t steps ) {
      for ( ; steps > 0 && !HasFailure(); --steps ) {
         auto kind = random() % 200;
         kind == 0 ? putBatch() : kind < 80 ? removeAny() : putAny();
      }
   }
   void check() {
      ASSERT_EQ( contentOf( *reader ), expected );
      ASSERT_EQ( contentOf( *writer ), expected );
      const Sweep sweep = writer->verify();
      ASSERT_EQ( sweep.damaged, 0u );
      ASSERT_EQ( sweep.verified, expected.size() );
      Content looked;
      std::vector<Record> keys, out( ids.size() );
      std::vector<TableReader::LookupItem> items;
      for ( uint64_t id : ids ) keys.push_back( Record::of( id, 0 ) );
      for ( size_t i = 0; i < ids.size(); ++i )
         items.push_back( { &keys[i].key, &out[i] } );
      reader->lookup( items );
      for ( size_t i = 0; i < ids.size(); ++i ) {
         if ( items[i].result == lookupFound ) looked[ids[i]] = out[i];
      }
      ASSERT_EQ( looked, expected );
   }

   // Resumes at a bookmark whose key stands or has gone: no later key is missed.
   void resume() {
      using Ids = std::vector<uint64_t>;
      auto entered = []( Ids& into ) {
         return [&]( Position, const void* r ) {
            into.push_back( static_cast<const Record*>( r )->key.id );
            return true;
         };
      };
      Ids order, byReader, byWriter;
      reader->visit( entered( order ) );
      if ( order.empty() ) return;
      const size_t at = random() % order.size();
      const Key key{ order[at], 0 };
      const bool gone = random() % 2;
      ASSERT_TRUE( !gone ||
                   ( writer->remove( &key ) && expected.erase( key.id ) ) );
      reader->visit( entered( byReader ), reader->resumeBefore( &key ) );
      for ( Position p = writer->positionAtOrBefore( &key ); p != noPosition;
            p = writer->next( p ) ) {
         if ( const void* r = writer->at( p ) ) entered( byWriter )( p, r );
      }
      ASSERT_EQ( byReader, byWriter );
      Ids behind( order.begin() + std::ptrdiff_t( at + gone ), order.end() );
      ASSERT_GE( byWriter.size(), behind.size() );
      ASSERT_TRUE(
         std::equal( behind.rbegin(), behind.rend(), byWriter.rbegin() ) );
      ASSERT_TRUE( gone || byWriter == behind );
   }

   static inline bool drainedSo[2][2] = {};  // lapped, in parts
   const uint32_t seed = std::random_device()();
   std::mt19937_64 random{ seed };
   std::vector<uint64_t> ids = neighbours( capacity, 60, 3 );
   std::map<uint64_t, Position> positions;
   std::unique_ptr<TableWriter> writer;
   std::unique_ptr<TableReader> reader;
   Content expected;
   uint64_t generation = 0;
};

constexpr uint64_t last = Detail::maxSequence - 20000;
INSTANTIATE_TEST_SUITE_P( From, Churn,
                          testing::Values( 0, ( 1ull << 28 ) - 9000,
                                           ( 1ull << 32 ) - 9000,
                                           ( 3ull << 32 ) - 9000, last ) );

TEST_P( Churn, EqualsAMap ) {
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   const uint64_t rounds = GetParam() == last ? 12 : 300;
   for ( uint64_t id = 1000000; ids.size() < 400; ++id ) ids.push_back( id );
   options.firstSequence = GetParam();
   options.journalEntries = random() % 2 ? 4 : 256;
   options.firstCapacity = 20;
   mount();
   Followed followed( path, layout );
   reader = std::make_unique<TableReader>( path, layout );
   for ( uint64_t round = 1; round <= rounds && !HasFailure(); ++round ) {
      if ( random() % 3 == 0 ) mount();
      change( random() % ( round % 4 ? 10 : 1500 ) );
      resume();
      uint32_t limit = 1 + random() % ( random() % 2 ? 4 : 50 );
      if ( random() % 2 ) limit = UINT32_MAX;
      TableFollower::Drained drained;
      for ( uint64_t part = 0; part == 0 || drained.more; ++part ) {
         ASSERT_LT( part, 4000u );
         // No changes in the last parts, so that the drain ends.
         change( part < 20 ? random() % 5 : 0 );
         drained = followed.drain( limit );
         // The difference to another instance is not divided.
         EXPECT_TRUE( drained.stateChanged ||
                      drained.written + drained.removed <= 2ull * limit + 1 );
         drainedSo[drained.lapped][drained.more] = true;
         EXPECT_EQ( followed.follower.pending(), drained.more );
      }
      ASSERT_EQ( followed.content, expected );
      ASSERT_EQ( followed.follower.size(), writer->size() );
      check();
   }
   // Removals leave nothing that lengthens a search: all counts are back at zero.
   for ( auto& [id, record] : expected ) EXPECT_TRUE( remove( *writer, id ) );
   std::string bytes = bytesOf( path );
   auto* header = reinterpret_cast<const Detail::FileHeader*>( bytes.data() );
   EXPECT_GT( header->capacity, options.firstCapacity );
   auto geometry = geometryOf( header->capacity, header->journalEntries );
   EXPECT_EQ( bytes.find_first_not_of( '\0', geometry.indexOffset ),
              bytes.find_first_not_of( '\0', geometry.slotsOffset ) );
}

}
}
