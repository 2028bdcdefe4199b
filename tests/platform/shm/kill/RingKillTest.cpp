// A ring whose writer is killed after any store, damaged, or made anew: readers get
// whole records without a gap, and the next writer goes on.
#include <random>

#include "KillPoints.h"
#include "platform/shm/RingReader.h"
#include "platform/shm/RingWriter.h"
#include "platform/shm/detail/RingFile.h"
#include "tests/support/Seed.h"

namespace Brane::Test {
namespace {

class RingKill : public TableTest {
 protected:
   static constexpr uint32_t entries = 5;

   struct Seen {
      uint64_t oldest = 0, newest = 0;
      std::map<uint64_t, std::pair<uint64_t, double>> counts;
      bool operator==( const Seen& ) const = default;
   };

   static void add( RingWriter& writer ) {
      const uint64_t next = writer.newest() + 1;
      const Record record = Record::of( next, next );
      writer.add( &record, static_cast<double>( next ) );
   }

   // All readable records; each must be the one of its sequence.
   Seen seenIn( const std::string& file, uint64_t mayMiss = 0 ) const {
      const RingReader reader( file, layout );
      Seen seen{ reader.oldest(), reader.newest(), {} };
      for ( uint64_t each = seen.oldest; each != 0 && each <= seen.newest;
            ++each ) {
         Record record;
         RingReader::Entry entry;
         const Lookup found = reader.read( each, &record, entry );
         if ( found != lookupFound && each == mayMiss ) continue;
         EXPECT_EQ( found, lookupFound ) << each << " of " << seen.newest;
         EXPECT_EQ( record, Record::of( each, each ) );
         seen.counts[each] = { entry.count, entry.last };
      }
      return seen;
   }

   const std::string dead = directory + "/dead-ring";
};

TEST_F( RingKill, KilledAfterEachStore ) {
   RingWriter writer( path, layout, entries );
   std::mt19937 random( Mox::Test::seedOf() );
   for ( int round = 0; round < 40; ++round ) {
      const uint64_t newest = writer.newest();
      const uint64_t again = newest - std::min<uint64_t>( newest, random() % 7 );
      const bool repeats = round % 3 == 2;
      for ( const std::string& image : KillPoints::of( path, [&] {
               if ( !repeats ) return add( writer );
               EXPECT_EQ( writer.repeat( again, 1000.0 + round ),
                          again != 0 && again + entries > newest );
            } ) ) {
         std::filesystem::remove( dead );
         bytesAre( dead, image );
         // The record that is being written takes the oldest one's place.
         const uint64_t oldest = newest < entries ? 0 : newest - entries + 1;
         const Seen before = seenIn( dead, oldest );
         RingWriter next( dead, layout, entries );
         EXPECT_EQ( next.problem(), "" );
         EXPECT_GE( next.newest(), before.newest );
         EXPECT_LE( next.newest(), writer.newest() );
         EXPECT_EQ( RingReader( dead, layout ).newest(), next.newest() );
         add( next );
         EXPECT_EQ( seenIn( dead, next.newest() - entries ).newest, next.newest() );
      }
   }
}

TEST_F( RingKill, TakenOverResizedAndMadeAnew ) {
   auto writer = std::make_unique<RingWriter>( path, layout, entries );
   EXPECT_THROW( RingWriter( path, layout, entries ), SecondWriterError );
   for ( int i = 0; i < 12; ++i ) add( *writer );
   EXPECT_TRUE( writer->repeat( 10, 77.0 ) );
   EXPECT_FALSE( writer->repeat( 7, 77.0 ) );
   RingReader reader( path, layout );
   EXPECT_TRUE( reader.writerAlive() );
   const uint64_t instance = reader.instanceId();
   const Seen all = seenIn( path );
   EXPECT_EQ( all.oldest, 8u );
   EXPECT_EQ( all.counts.at( 10 ), std::pair( uint64_t( 2 ), 77.0 ) );
   // Removed under the writer.
   std::filesystem::remove( path );
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( reader.state(), readerAbsent );
   EXPECT_FALSE( reader.poll() );
   Record record;
   RingReader::Entry entry;
   EXPECT_EQ( reader.newest(), 0u );
   EXPECT_EQ( reader.read( 0, &record, entry ), lookupAbsent );
   EXPECT_FALSE( writer->filesStand() );
   writer->restoreFiles();
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( seenIn( path ), all );
   std::filesystem::remove( path + ".bell" );
   EXPECT_FALSE( writer->filesStand() );
   writer->restoreFiles();
   EXPECT_TRUE( writer->filesStand() && reader.writerAlive() );
   // Another size keeps what has room.
   for ( uint32_t size : { 3u, 9u, 9u } ) {
      writer.reset();
      writer = std::make_unique<RingWriter>( path, layout, size );
      EXPECT_EQ( writer->newest(), 12u );
   }
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( reader.read( 10, &record, entry ), lookupFound );
   EXPECT_EQ( entry.count, 2u );
   EXPECT_EQ( reader.instanceId(), instance );
   EXPECT_EQ( reader.read( 13, &record, entry ), lookupAbsent );
   writer.reset();
   EXPECT_FALSE( reader.writerAlive() );
   // Another layout, and a file that is none.
   Layout other = layout;
   other.fields.pop_back();
   EXPECT_EQ( RingReader( path, other ).state(), readerMismatch );
   EXPECT_NE( RingWriter( path, other, entries ).problem(), "" );
   std::filesystem::remove( path );
   bytesAre( path, "no ring" );
   EXPECT_EQ( RingReader( path, layout ).state(), readerDamaged );
   RingWriter anew( path, layout, entries );
   EXPECT_NE( anew.problem(), "" );
   EXPECT_EQ( anew.newest(), 0u );
   reader.poll();
   EXPECT_TRUE( reader.instanceId() != 0 && reader.instanceId() != instance );
}

// Each value is judged under a right checksum.
TEST_F( RingKill, NamesEachHeaderMismatch ) {
   for ( uint32_t size : { 0u, RingWriter::maxEntries + 1 } )
      EXPECT_THROW( RingWriter( path, layout, size ), Mox::RangeError );
   RingWriter( path, layout, entries );
   using Header = Detail::RingHeader;
   const struct {
      const char* what;
      void ( *damage )( Header& );
      bool sealed = true;
      ReaderState state = readerDamaged;
   } wrong[] = {
      { "0x7 is no ring", []( Header& h ) { h.magic = 7; } },
      { "byte order", []( Header& h ) { h.byteOrder = 7; } },
      { "version 7", []( Header& h ) { h.version = 7; } },
      { "sizes", []( Header& h ) { h.entries = 0; } },
      { "sizes", []( Header& h ) { h.recordSize = 47; } },
      { "sizes", []( Header& h ) { h.recordSize = Layout::maxRecordSize + 8; } },
      { "bytes instead of", []( Header& h ) { h.entries = 1000; } },
      { "died", []( Header& h ) { h.ready = 0; }, false },
      { "header is damaged", []( Header& h ) { h.unused = 7; }, false },
      { "layout", []( Header& h ) { h.recordSize = 40; }, true, readerMismatch },
      { "layout", []( Header& h ) { ++h.fingerprint; }, true, readerMismatch },
      { "boot", []( Header& h ) { ++h.bootId[0]; }, true, readerAttached } };
   for ( const auto& [what, damage, sealed, state] : wrong ) {
      std::string bytes = bytesOf( path );
      Header header;
      std::memcpy( &header, bytes.data(), sizeof header );
      damage( header );
      std::memcpy( bytes.data(), &header, sizeof header );
      if ( sealed )
         Detail::writeRingHeader( reinterpret_cast<std::byte*>( bytes.data() ),
                                  header );
      bytesAre( dead, bytes );
      const RingReader reader( dead, layout );
      EXPECT_EQ( reader.state(), state ) << what;
      if ( state != readerAttached ) {
         EXPECT_THAT( reader.problem(), testing::HasSubstr( what ) );
      }
      EXPECT_THAT( RingWriter( dead, layout, entries ).problem(),
                   testing::HasSubstr( what ) );
      std::filesystem::remove( dead );
   }
}

TEST_F( RingKill, Damaged ) {
   {
      RingWriter writer( path, layout, entries );
      for ( int i = 0; i < 12; ++i ) add( writer );
   }
   const std::string sound = bytesOf( path );
   std::mt19937 random( Mox::Test::seedOf() );
   for ( int round = 0; round < 3000; ++round ) {
      std::string bytes = sound;
      bytes[random() % bytes.size()] ^= static_cast<char>( 1 + random() % 255 );
      if ( round % 10 == 0 ) bytes.resize( random() % bytes.size() );
      bytesAre( dead, bytes );
      const RingReader reader( dead, layout );
      for ( uint64_t each = reader.oldest(), left = 2 * entries;
            each != 0 && each <= reader.newest() && left-- != 0; ++each ) {
         Record record;
         RingReader::Entry entry;
         if ( reader.read( each, &record, entry ) == lookupFound ) {
            EXPECT_EQ( record, Record::of( each, each ) );
         }
      }
      if ( round % 20 == 0 ) {
         RingWriter next( dead, layout, entries );
         add( next );
         EXPECT_EQ( RingReader( dead, layout ).newest(), next.newest() );
      }
      std::filesystem::remove( dead );
   }
}

}
}
