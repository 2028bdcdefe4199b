#include <random>

#include "KillPoints.h"

namespace Brane::Test {
namespace {

// A table of 12 with most keys in one line, so that they pass lines by, and a
// journal of 4, which wraps all the time.
class Kill : public TableTest {
 protected:
   static constexpr uint32_t capacity = 12;

   Kill() {
      options.journalEntries = 4;
      std::filesystem::create_directory( directory + "/dead" );
      ids = neighbours( capacity, 11 );
      for ( uint64_t id : neighbours( capacity, 4, 1 ) ) ids.push_back( id );
   }

   // The content before an operation, and after it.
   struct Change {
      Content before, after;
      std::string former;  // the file's bytes before it
   };

   static void expectOneOf( const Change& change, const Content& content ) {
      EXPECT_TRUE( content == change.before || content == change.after )
         << content.size() << " records, before " << change.before.size()
         << ", after " << change.after.size();
   }

   // The reader's view of a table whose writer was killed.
   Content readDead( const TableReader& reader, const Change& change ) {
      Content content = contentOf( reader );
      expectOneOf( change, content );
      for ( uint64_t id : ids )
         EXPECT_EQ( found( reader, id ), found( content, id ) ) << "key " << id;
      return content;
   }

   static uint64_t instanceIn( const std::string& bytes ) {
      uint64_t id = 0;
      std::memcpy( &id, bytes.data() + offsetof( Detail::FileHeader, instanceId ),
                   sizeof( id ) );
      return id;
   }

   // Checks that every slot and every place works: fill up, replace, empty.
   void exercise( TableWriter& writer, const Content& content ) {
      Content expected = content;
      for ( uint64_t id : ids ) {
         if ( expected.size() == capacity && !expected.count( id ) ) {
            EXPECT_THROW( put( writer, id, 900 ), TableFullError );
         } else {
            put( writer, id, 900 );
            expected[id] = Record::of( id, 900 );
         }
      }
      EXPECT_EQ( expected.size(), capacity );
      std::vector<Reservation> reserved;
      for ( int i = 0; i < 16; ++i ) reserved.push_back( writer.reserve() );
      reserved.clear();
      for ( uint64_t round = 0; round < 10; ++round ) {
         for ( auto& [id, record] : expected ) put( writer, id, 901 + round );
      }
      for ( auto& [id, record] : expected ) EXPECT_TRUE( remove( writer, id ) );
      EXPECT_EQ( writer.next(), noPosition );
      EXPECT_EQ( writer.verify().damaged, 0u );
   }

   // Checks one kill: by a reader attached before, and by remounting. With `deep`,
   // the remount is itself killed at each of its stores.
   void check( const std::string& image, const Change& change, bool deep ) {
      std::string dead = directory + "/dead/t";
      std::filesystem::remove( dead );
      bytesAre( dead, change.former );
      Followed followed( dead, layout );
      ASSERT_EQ( followed.content, change.before );
      // A follower that drains again only after the next writer's first change.
      Followed late( dead, layout );
      bytesAre( dead, image );
      Content seen = readDead( followed.reader, change );
      // The bell reports the death: the follower reports the visible state.
      followed.drain();
      EXPECT_EQ( followed.content, seen );
      std::vector<std::string> again =
         KillPoints::of( dead, [&] { remount( dead, change, seen, followed ); } );
      EXPECT_EQ( followed.reader.counters().damaged, 0u );
      goOn( dead, change, late );
      for ( size_t i = 0; deep && i < again.size() && !HasFailure(); ++i ) {
         check( again[i], change, false );
      }
   }

   void remount( const std::string& dead, const Change& change, const Content& seen,
                 Followed& followed ) {
      TableWriter writer( dead, layout, capacity, options );
      const AttachReport& report = writer.attachReport();
      ASSERT_EQ( report.status, attachReused );
      EXPECT_EQ( report.dropped, 0u );
      EXPECT_FALSE( report.resequenced );
      EXPECT_EQ( report.texts, std::vector<Mox::String>() );
      Content content = contentOf( writer );
      expectOneOf( change, content );
      EXPECT_TRUE( seen == content || seen == change.before )
         << "went back in time";
      EXPECT_EQ( writer.verify().damaged, 0u );
      TableReader fresh( dead, layout );
      EXPECT_EQ( readDead( fresh, change ), content );
      followed.drain();
      EXPECT_EQ( followed.content, content );
   }

   // The next writer's changes do not hide the notice of the half-done one.
   void goOn( const std::string& dead, const Change& change, Followed& late ) {
      TableWriter writer( dead, layout, capacity, options );
      for ( auto& [id, record] : change.before ) {
         if ( found( change.after, id ) != record ) continue;
         put( writer, id, 800 );
         break;
      }
      late.drain();
      EXPECT_EQ( late.content, contentOf( writer ) );
      exercise( writer, late.content );
   }

   void growing( uint32_t first, size_t expected ) {
      options.firstCapacity = first;
      TableFiles files( path );
      TableWriter writer( path, layout, capacity, options );
      Content content;
      size_t points = 0, growths = 0;
      for ( size_t i = 0; i < capacity && !HasFailure(); ++i ) {
         const uint64_t instance = writer.instanceId();
         Change change{ content, content, bytesOf( path ) };
         change.after[ids[i]] = Record::of( ids[i], i );
         auto images = KillPoints::of( { path, files.fresh() }, [&] {
            if ( i < 6 ) return put( writer, ids[i], i );
            Reservation built = writer.reserve();
            const Record record = Record::of( ids[i], i );
            std::memcpy( built.record(), &record, sizeof record );
            built.commit();
         } );
         growths += writer.instanceId() != instance;
         std::string dead = directory + "/dead/t";
         for ( const KillPoints::Image& image : images ) {
            SCOPED_TRACE( ++points );
            std::filesystem::remove( dead );
            std::filesystem::remove( dead + ".new" );
            bytesAre( dead, change.former );
            Followed followed( dead, layout );
            if ( instanceIn( image[0] ) != instanceIn( change.former ) )
               std::filesystem::remove( dead );
            bytesAre( dead, image[0] );
            if ( !image[1].empty() ) bytesAre( dead + ".new", image[1] );
            TableReader reader( dead, layout );
            const Content seen = readDead( reader, change );
            followed.drain();
            EXPECT_EQ( followed.content, seen );
            remount( dead, change, seen, followed );
            EXPECT_FALSE( reader.poll() ) << "made anew";
            EXPECT_FALSE( std::filesystem::exists( dead + ".new" ) );
            TableWriter next( dead, layout, capacity, options );
            exercise( next, contentOf( next ) );
         }
         content = change.after;
         ASSERT_EQ( contentOf( writer ), content );
      }
      EXPECT_EQ( growths, expected );
      EXPECT_GT( points, 150u );
   }

   std::vector<uint64_t> ids;
};

TEST_F( Kill, AnywhereInAChangeLeavesTheOldRecordOrTheNew ) {
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   TableWriter writer( path, layout, capacity, options );
   Content content;
   size_t points = 0;
   // Enough for each slot to be reused a few times.
   for ( uint64_t step = 1; step <= 260 && !HasFailure(); ++step ) {
      uint64_t id = ids[random() % ids.size()];
      uint64_t kind = random() % 8;
      Change change{ content, content, bytesOf( path ) };
      bool full = content.size() == capacity && !content.count( id );
      if ( kind < 3 ) {
         change.after.erase( id );
      } else if ( !full ) {
         change.after[id] = Record::of( id, step );
      }
      auto images = KillPoints::of( path, [&] {
         Record r = Record::of( id, step );
         Key key{ id, 0 };
         if ( kind < 3 ) {
            writer.remove( &key );
         } else if ( full ) {
            EXPECT_THROW( writer.put( &r ), TableFullError );
         } else if ( kind < 6 ) {
            writer.put( &r );
         } else {
            Reservation reservation = writer.reserve();
            std::memcpy( reservation.record(), &r, sizeof( r ) );
            reservation.commit();
         }
      } );
      for ( size_t i = 0; i < images.size() && !HasFailure(); ++i, ++points ) {
         SCOPED_TRACE( testing::Message()
                       << "step " << step << ", kill point " << i );
         check( images[i], change, true );
      }
      content = change.after;
      ASSERT_EQ( contentOf( writer ), content );
   }
   EXPECT_GT( points, 1000u );
}

// A kill during the making leaves no instance or the former one, and no obstacle.
TEST_F( Kill, WhileMakingAnInstanceLeavesTheFormerOne ) {
   TableFiles files( path );
   for ( bool former : { false, true } ) {
      Content content;
      for ( size_t i = 0; former && i < 10; ++i ) {
         TableWriter writer( path, layout, 10, options );
         put( writer, ids[i], i );
         content[ids[i]] = Record::of( ids[i], i );
      }
      const std::string before = bytesOf( path );
      auto images = KillPoints::of(
         files.fresh(), [&] { TableWriter writer( path, layout, 40, options ); } );
      ASSERT_GT( images.size(), former ? 100u : 5u );
      for ( const std::string& image : images ) {
         removeTableFiles( path );
         if ( former ) bytesAre( path, before );
         bytesAre( files.fresh(), image );
         TableReader reader( path, layout );
         ASSERT_EQ( reader.state(), former ? readerAttached : readerAbsent );
         ASSERT_EQ( contentOf( reader ), content );
         TableWriter writer( path, layout, capacity, options );
         EXPECT_EQ( writer.attachReport().status,
                    former ? attachResized : attachCreated );
         EXPECT_EQ( writer.attachReport().survivors, content.size() );
         ASSERT_EQ( contentOf( writer ), content );
         exercise( writer, content );
         EXPECT_FALSE( std::filesystem::exists( files.fresh() ) );
      }
   }
}

// A kill while the table grows leaves the instance before it or the one after, with
// the record for which it grew or without; a follower hears of every change, and the
// leftover is no obstacle and does not stay. When it is full, and before.
TEST_F( Kill, WhileGrowingLosesNothing ) {
   growing( 4, 2 );
   removeTableFiles( path );
   options.growsAheadFrom = 1;
   growing( 10, 1 );
}

// Bytes as damaged by a stray pointer: the first key's record broken, the second's
// word gone, the third's word at another place, too; the head, too, if `wild`.
std::string damaged( std::string bytes, uint32_t capacity, bool wild ) {
   auto geometry = geometryOf( capacity, 4 );
   auto* words = indexIn( bytes, geometry );
   std::vector<Position> taken;
   Position free = noPosition;
   for ( Position p = 0; p < geometry.positions(); ++p ) {
      if ( !Detail::isWord( p ) ) continue;
      if ( words[p] ) taken.push_back( p );
      // Within every key's reach, after the others.
      if ( !words[p] && taken.size() >= 3 && free == noPosition ) free = p;
   }
   breakRecordAt( bytes, geometry, taken.at( 0 ) );
   words[taken.at( 1 )] = 0;
   words[free] = words[taken.at( 2 )];
   if ( wild ) headIs( bytes, 0xee );
   return bytes;
}

// A repair is killed half way: the next one still notifies followers of all
// changes.
TEST_F( Kill, InARepairLosesNoNotice ) {
   {
      TableWriter writer( path, layout, capacity, options );
      for ( size_t i = 0; i < 9; ++i ) put( writer, ids[i], i );
      remove( writer, ids[8] );
   }
   const std::string former = bytesOf( path );
   const Content before = contentOf( TableReader( path, layout ) );
   const std::string dead = directory + "/dead/t";
   Content expected;
   // The images that further kills leave of the repair of `image`.
   auto repair = [&]( const std::string& image ) {
      std::filesystem::remove( dead );
      bytesAre( dead, former );
      Followed followed( dead, layout );
      bytesAre( dead, image );
      auto again = KillPoints::of( dead, [&] {
         TableWriter writer( dead, layout, capacity, options );
         EXPECT_EQ( contentOf( writer ), expected );
         EXPECT_EQ( writer.verify().damaged, 0u );
      } );
      EXPECT_EQ(
         TableWriter( dead, layout, capacity, options ).attachReport().texts,
         std::vector<Mox::String>() );
      followed.drain();
      EXPECT_EQ( followed.content, expected );
      TableWriter writer( dead, layout, capacity, options );
      exercise( writer, expected );
      return again;
   };
   for ( bool wild : { false, true } ) {
      bytesAre( path, damaged( former, capacity, wild ) );
      auto images = KillPoints::of( path, [&] {
         TableWriter writer( path, layout, capacity, options );
         EXPECT_EQ( writer.attachReport().dropped, 1u );
         expected = contentOf( writer );
      } );
      EXPECT_EQ( expected.size(), before.size() - 1 );
      ASSERT_GT( images.size(), 4u );
      for ( size_t i = 0; i < images.size(); ++i ) {
         SCOPED_TRACE( testing::Message() << "kill point " << i << ' ' << wild );
         for ( const std::string& image : repair( images[i] ) ) repair( image );
      }
   }
}

}
}
