#include <random>

#include "Support.h"

namespace Brane::Test {
namespace {

class Table : public TableTest {};

TEST_F( Table, IsSeenByReadersThatWereThereBefore ) {
   TableReader early( path, layout );
   EXPECT_EQ( early.state(), readerAbsent );
   TableWriter writer( path, layout, 10, options );
   EXPECT_EQ( writer.attachReport().status, attachCreated );
   EXPECT_TRUE( early.poll() );
   put( writer, 7, 1 );
   // What a visitor gets is a copy: scribbling on it harms nobody.
   early.visit( []( Position, const void* record ) {
      std::memset( const_cast<void*>( record ), 0xff, sizeof( Record ) );
      return true;
   } );
   EXPECT_EQ( found( early, 7 ), Record::of( 7, 1 ) );
   Record removed;
   Key key{ 7, 0 };
   EXPECT_TRUE( writer.remove( &key, &removed ) );
   EXPECT_EQ( removed, Record::of( 7, 1 ) );
}

TEST_F( Table, RefusesTheZeroKeyUnlessAsked ) {
   Record zero = Record::of( 0, 1 );
   {
      TableWriter writer( path, layout, 4, options );
      EXPECT_THROW( writer.put( &zero ), Mox::RangeError );
      EXPECT_EQ( writer.sequence(), 0u );
   }
   options.zeroKey = true;
   TableWriter writer( path, layout, 4, options );
   writer.put( &zero );
   EXPECT_EQ( found( TableReader( path, layout ), 0 ), zero );
}

TEST_F( Table, RefusesKeysBeyondTheReachOfProbing ) {
   // All of one home line: the lines in reach have 7 words each.
   constexpr size_t reach = Detail::probeLimit * Detail::wordsPerLine;
   TableWriter writer( path, layout, 400, options );
   TableReader reader( path, layout );
   std::vector<uint64_t> ids = neighbours( 400, reach + 1 );
   for ( size_t i = 0; i < reach; ++i ) put( writer, ids[i], 1 );
   EXPECT_THROW( put( writer, ids[reach], 1 ), ProbeLimitError );
   for ( size_t i = 0; i < reach; ++i ) {
      ASSERT_EQ( found( reader, ids[i] ), Record::of( ids[i], 1 ) );
   }
   EXPECT_EQ( found( reader, ids[reach] ), std::nullopt );
   // One gone from the first line makes room, and hides nobody behind it.
   EXPECT_TRUE( remove( writer, ids[0] ) );
   for ( size_t i = 1; i < reach; ++i ) ASSERT_TRUE( found( reader, ids[i] ) );
   put( writer, ids[reach], 1 );
   EXPECT_TRUE( found( reader, ids[reach] ) );
   EXPECT_EQ( writer.verify().damaged, 0u );
}

TEST_F( Table, WritesInPlaceAndInBatches ) {
   TableWriter writer( path, layout, 100, options );
   TableReader reader( path, layout );
   Record one = Record::of( 1, 1 ), late = Record::of( 2, 1 );
   {
      Reservation first = writer.reserve(), second = writer.reserve();
      std::memcpy( first.record(), &one, sizeof( one ) );
      std::memcpy( second.record(), &late, sizeof( late ) );
      EXPECT_EQ( contentOf( reader ).size(), 0u );
      second.commit();
      EXPECT_EQ( found( reader, 2 ), late );
   }
   // Not committed: given back.
   EXPECT_EQ( found( reader, 1 ), std::nullopt );
   std::vector<Record> records;
   std::vector<TableWriter::PutItem> items;
   for ( uint64_t id = 1; id <= 100; ++id )
      records.push_back( Record::of( id, 2 ) );
   for ( const Record& r : records ) items.push_back( { &r } );
   writer.put( items );
   // Handles, one of them stale: it costs time, no more.
   for ( Record& r : records ) r = Record::of( r.key.id, 3 );
   std::swap( items[3].position, items[90].position );
   items[50].position = 0xfffffff0;
   writer.put( items );
   Content content = contentOf( reader );
   ASSERT_EQ( content.size(), 100u );
   for ( auto& [id, record] : content ) EXPECT_EQ( record, Record::of( id, 3 ) );
   Reservation full = writer.reserve();
   Record more = Record::of( 101, 1 );
   std::memcpy( full.record(), &more, sizeof( more ) );
   EXPECT_THROW( full.commit(), TableFullError );
   EXPECT_EQ( full.record(), nullptr );
}

TEST_F( Table, ResumesIterationAfterAVanishedKey ) {
   // Two lines' worth of one home line: order and home differ.
   TableWriter writer( path, layout, 60, options );
   TableReader reader( path, layout );
   for ( uint64_t id : neighbours( 60, 30 ) ) put( writer, id, 1 );
   std::vector<uint64_t> order;
   for ( Position p = writer.next(); p != noPosition; p = writer.next( p ) ) {
      order.push_back( static_cast<const Record*>( writer.at( p ) )->key.id );
   }
   ASSERT_EQ( order.size(), 30u );
   for ( size_t i = 0; i < order.size(); ++i ) {
      Key key{ order[i], 0 };
      remove( writer, order[i] );
      std::set<uint64_t> rest, visited;
      Position from = writer.positionAtOrBefore( &key );
      for ( Position p = from; p != noPosition; p = writer.next( p ) ) {
         auto* r = static_cast<const Record*>( writer.at( p ) );
         if ( r != nullptr ) rest.insert( r->key.id );
      }
      auto visit = [&]( Position, const void* r ) {
         return visited.insert( static_cast<const Record*>( r )->key.id ).second;
      };
      reader.visit( visit, reader.resumeBefore( &key ) );
      EXPECT_EQ( visited, rest );
      for ( size_t later = i + 1; later < order.size(); ++later ) {
         EXPECT_TRUE( rest.count( order[later] ) ) << "missed after " << i;
      }
      put( writer, order[i], 1 );
   }
}

TEST_F( Table, EqualsAMapThroughLongChurn ) {
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   TableWriter writer( path, layout, 300, options );
   TableReader reader( path, layout );
   Content expected;
   for ( uint64_t step = 1; step <= 60000; ++step ) {
      uint64_t id = random() % 400 + 1;
      if ( random() % 3 == 0 ) {
         EXPECT_EQ( remove( writer, id ), expected.erase( id ) == 1 );
      } else if ( expected.count( id ) || expected.size() < 300 ) {
         put( writer, id, step );
         expected[id] = Record::of( id, step );
      } else {
         uint64_t before = writer.sequence();
         EXPECT_THROW( put( writer, id, step ), TableFullError );
         EXPECT_EQ( writer.sequence(), before );
      }
      if ( step % 5000 == 0 ) {
         ASSERT_EQ( contentOf( reader ), expected );
         ASSERT_EQ( writer.verify().damaged, 0u );
      }
   }
   std::vector<Record> out( 400 );
   std::vector<Key> keys;
   std::vector<TableReader::LookupItem> items;
   for ( uint64_t id = 1; id <= 400; ++id ) keys.push_back( { id, 0 } );
   for ( size_t i = 0; i < 400; ++i ) items.push_back( { &keys[i], &out[i] } );
   reader.lookup( items );
   Content looked;
   for ( size_t i = 0; i < 400; ++i ) {
      if ( items[i].result == lookupFound ) looked[keys[i].id] = out[i];
   }
   EXPECT_EQ( looked, expected );
   // Removal leaves nothing that lengthens a search: all counts are back at zero.
   for ( auto& [id, record] : expected ) EXPECT_TRUE( remove( writer, id ) );
   auto geometry = geometryOf( 300 );
   std::string bytes = bytesOf( path );
   EXPECT_EQ( bytes.find_first_not_of( '\0', geometry.indexOffset ),
              bytes.find_first_not_of( '\0', geometry.slotsOffset ) );
}

// The word's generation, the journal's sequence, and the last sequences there are;
// the writer is replaced at each step of the way.
TEST_F( Table, SurvivesCountersThatWrap ) {
   options.journalEntries = 4;
   for ( uint64_t limit : { uint64_t( 1 ) << 28, uint64_t( 1 ) << 32,
                            uint64_t( 3 ) << 32, Detail::maxSequence } ) {
      SCOPED_TRACE( limit );
      bool last = limit == Detail::maxSequence;
      options.firstSequence = limit - ( last ? 40 : 20 );
      removeTableFiles( path );
      auto writer = std::make_unique<TableWriter>( path, layout, 8, options );
      TableReader reader( path, layout );
      TableFollower follower( reader );
      Followed followed;
      TableFollower lateFollower( reader );
      Followed late;
      Content expected;
      for ( uint64_t generation = 1; generation <= 12; ++generation ) {
         writer.reset();
         writer = std::make_unique<TableWriter>( path, layout, 8, options );
         ASSERT_EQ( writer->attachReport().status, attachReused );
         ASSERT_TRUE( writer->attachReport().texts.empty() )
            << writer->attachReport().texts[0];
         uint64_t coming = 2 + generation % 2;
         for ( uint64_t id : { uint64_t( 1 ), coming } ) {
            put( *writer, id, generation );
            expected[id] = Record::of( id, generation );
         }
         if ( generation % 3 == 0 ) {
            remove( *writer, coming );
            expected.erase( coming );
         }
         followed.drain( follower );
         ASSERT_EQ( followed.content, expected );
         ASSERT_EQ( contentOf( reader ), expected );
         ASSERT_EQ( contentOf( *writer ), expected );
      }
      EXPECT_EQ( writer->sequence() < limit, last );
      late.drain( lateFollower );
      EXPECT_EQ( late.content, expected );
      EXPECT_EQ( writer->verify().damaged, 0u );
   }
}

}
}
