// Writers and readers that meet an existing file.
#include <sched.h>
#include <sys/mount.h>

#include <functional>
#include <random>

#include "Support.h"
#include "platform/shm/detail/Checksum.h"
#include "platform/shm/detail/Header.h"
#include "platform/shm/detail/Order.h"
#include "tests/support/ErrorText.h"

namespace Brane::Test {
namespace {

using testing::HasSubstr;

class Attach : public TableTest {
 protected:
   // A table of ten with records 1 to 5; returns its bytes.
   std::string makeTable() {
      TableWriter writer( path, layout, 10, options );
      for ( auto& [id, record] : firstFive ) writer.put( &record );
      return bytesOf( path );
   }
   // Replaces the file by a new one.
   void fileIs( const std::string& bytes ) {
      std::filesystem::remove( path );
      bytesAre( path, bytes );
   }
   // An unreadable table may hold any key.
   static void expectUnreadable( TableReader& reader, ReaderState state ) {
      EXPECT_EQ( reader.state(), state );
      Record out;
      Key key{ 1, 0 };
      EXPECT_EQ( reader.lookup( &key, &out ), lookupDamaged );
      TableReader::LookupItem item{ &key, &out };
      reader.lookup( { &item, 1 } );
      EXPECT_EQ( item.result, lookupDamaged );
      EXPECT_EQ( contentOf( reader ), Content() );
   }
   static void expectMismatch( TableReader& reader, uint64_t found, uint64_t own ) {
      expectUnreadable( reader, readerMismatch );
      for ( uint64_t value : { found, own } )
         EXPECT_THAT( reader.problem(), HasSubstr( std::to_string( value ) ) );
   }

   // In a file system that is full: what stands stays, and more goes in once there
   // is space.
   bool refusesToGrow( TableWriter& writer ) {
      Followed followed( path, layout );
      Content expected;
      for ( uint64_t id = 1; id <= 100; ++id ) {
         if ( id == 20 ) remount( "size=1m" );
         try {
            put( writer, id, id );
            expected[id] = Record::of( id, id );
         } catch ( const NoSpaceError& ) {
            if ( id <= 4 || id >= 20 ) return false;
            put( writer, 1, id );  // replacing stays possible
            expected[1] = Record::of( 1, id );
         }
         if ( contentOf( writer ) != expected ) return false;
      }
      followed.drain();
      return writer.size() < 100 && followed.content == expected &&
             !std::filesystem::exists( path + ".new" );
   }
   void remount( const char* size ) {
      ::mount( "none", directory.c_str(), "tmpfs", MS_REMOUNT, size );
   }

   const Content firstFive = [] {
      Content content;
      for ( uint64_t id = 1; id <= 5; ++id ) content[id] = Record::of( id, id );
      return content;
   }();
};

struct HeaderRow {
   LayoutError::Mismatch mismatch;
   const char* text;  // part of the problem's text: what was found
   void ( *damage )( Detail::FileHeader& header );
};
using H = Detail::FileHeader;
const size_t kHeaderSize = Detail::headerSize( 5 );
constexpr HeaderRow kHeaders[] = {
   { LayoutError::magic, "0x1234", []( H& h ) { h.magic = 0x1234; } },
   { LayoutError::formatVersion, "0x77", []( H& h ) { h.version = 0x77; } },
   { LayoutError::byteOrder, "0x4030201",
     []( H& h ) { h.byteOrder = 0x04030201; } },
   { LayoutError::notReady, "0x0", []( H& h ) { h.ready = 0; } },
   { LayoutError::keySize, "8", []( H& h ) { h.keySize = 8; } },
   { LayoutError::fingerprint, "99", []( H& h ) { h.fingerprint = 99; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.recordSize = 47; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.recordSize = 16392; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.keySize = 0; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.keySize = 12; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.keySize = 56; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.capacity = ~0u; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.limit = ~0u; } },
   { LayoutError::geometry, "bytes", []( H& h ) { h.capacity = 2000; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.journalEntries = 0; } },
   { LayoutError::geometry, "contradict",
     []( H& h ) { h.journalEntries = 1u << 25; } },
   { LayoutError::geometry, "contradict", []( H& h ) { h.fieldCount = 65; } },
   { LayoutError::geometry, "generation",
     []( H& h ) { h.fields[2].offset = ~7u; } },
};

TEST_F( Attach, NamesEachHeaderMismatch ) {
   const std::string sound = makeTable();
   for ( const HeaderRow& row : kHeaders ) {
      SCOPED_TRACE( testing::Message() << row.mismatch << row.text );
      std::string bytes = sound;
      H header{};
      std::memcpy( &header, bytes.data(), kHeaderSize );
      row.damage( header );
      if ( header.fieldCount > Layout::maxFields )
         std::memset( header.fields, 0, sizeof( header.fields ) );
      // Gives the header a right checksum, so that its values are judged.
      uint64_t ready = std::exchange( header.ready, 0 );
      header.checksum = 0;
      header.checksum = Detail::crc32c( &header, sizeof( header ) );
      header.ready = ready;
      std::memcpy( bytes.data(), &header, kHeaderSize );
      fileIs( bytes );
      TableReader reader( path, layout );
      bool other = row.mismatch >= LayoutError::keySize;
      expectUnreadable( reader, other ? readerMismatch : readerDamaged );
      EXPECT_EQ( reader.mismatch(), row.mismatch ) << reader.problem();
      EXPECT_THAT( reader.problem(), HasSubstr( row.text ) );
      // A writer replaces an unusable file, and the reader moves over.
      TableWriter writer( path, layout, 10, options );
      EXPECT_FALSE( writer.attachReport().texts.empty() );
      put( writer, 3, 30 );
      EXPECT_TRUE( reader.poll() );
      EXPECT_EQ( found( reader, 3 ), Record::of( 3, 30 ) );
   }
}

TEST_F( Attach, ReportsDamagedShortAndEmptyFiles ) {
   const std::string sound = makeTable();
   for ( size_t size : { size_t( 0 ), size_t( 100 ), kHeaderSize - 1, kHeaderSize,
                         sound.size() - 1 } ) {
      fileIs( sound.substr( 0, size ) );
      TableReader reader( path, layout );
      EXPECT_EQ( reader.state(), readerDamaged ) << size;
      EXPECT_EQ( reader.mismatch(), LayoutError::tooShort ) << size;
      TableWriter writer( path, layout, 10, options );
      EXPECT_EQ( writer.attachReport().status, attachDamaged );
      EXPECT_EQ( writer.size(), 0u );
   }
   // The checksum covers every byte of the header, padding included.
   for ( size_t at = 0; at < kHeaderSize; at += 37 ) {
      std::string bytes = sound;
      bytes[at] ^= 0x40;
      fileIs( bytes );
      EXPECT_EQ( TableReader( path, layout ).state(), readerDamaged ) << at;
   }
   std::filesystem::remove( path );
   std::filesystem::create_directory( path );
   EXPECT_EQ( TableReader( path, layout ).state(), readerDamaged );
   EXPECT_THAT( Mox::Test::errorText<CreateError>(
                   [&] { TableWriter( path, layout, 10, options ); } ),
                HasSubstr( "remove it" ) );
}

TEST_F( Attach, ChangesCapacityButNeverBelowItsRecords ) {
   makeTable();
   TableReader reader( path, layout );
   for ( AttachStatus status : { attachResized, attachReused } ) {
      bytesAre( path + ".new", "left by a writer that died while its table grew" );
      TableWriter writer( path, layout, 3, options );
      EXPECT_FALSE( std::filesystem::exists( path + ".new" ) );
      EXPECT_EQ( writer.attachReport().status, status );
      EXPECT_EQ( writer.capacity(), 5u );
      EXPECT_EQ( contentOf( writer ), firstFive );
   }
   TableWriter writer( path, layout, 1000, options );
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( reader.capacity(), 1000u );
   EXPECT_EQ( contentOf( reader ), firstFive );
}

// The bytes of a table of format version 2 with these records.
std::string ofFormerVersion( const Layout& layout, const Content& content ) {
   using namespace Detail;
   const auto geometry =
      Geometry::former( layout.keySize, layout.recordSize, 10, 1024 );
   std::vector<std::byte> memory( geometry.fileSize + 64 );
   auto* base = memory.data() + ( 64 - uintptr_t( memory.data() ) % 64 );
   std::vector<std::byte> own( headerSize( Layout::maxFields ) );
   writeHeader( own.data(), layout,
                { 10, 10, 1024, 7, { testSeed[0], testSeed[1] }, "boot" } );
   std::memcpy( base, own.data(), formerFieldsOffset );
   std::memcpy( base + formerFieldsOffset, own.data() + headerSize( 0 ),
                layout.fields.size() * sizeof( FieldEntry ) );
   auto* header = reinterpret_cast<FileHeader*>( base );
   header->version = formerVersion;
   header->fileSize = geometry.fileSize;
   header->checksum = 0;
   header->checksum = crc32c( base, formerHeaderSize );
   header->ready = readyWord;
   const WriterView view{ base, geometry, { testSeed[0], testSeed[1] } };
   uint32_t slot = 0;
   storeWord( view.journal( 0 ), journalEntry( 0, 0 ) );
   auto put = [&]( const Record& record, Place place ) {
      uint64_t hash = keyHash( &record.key, sizeof( Key ), view.seed );
      place.position = view.geometry.homeOf( hash ) * lineWords + slot;
      RecordIdentity identity{ slot + 1, slot, hash };
      fillSlot( view, &record, identity );
      publish( view, place, identity );
      return ++slot;
   };
   for ( auto& [id, record] : content ) put( record, {} );
   return { reinterpret_cast<char*>( base ), geometry.fileSize };
}

TEST_F( Attach, TakesOverTheFormerFormatWithAllRecords ) {
   fileIs( ofFormerVersion( layout, firstFive ) );
   TableReader reader( path, layout );
   expectUnreadable( reader, readerDamaged );
   EXPECT_EQ( reader.mismatch(), LayoutError::formatVersion );
   options.seat = std::make_shared<WriterSeat>( directory + "/seat" );
   {
      // An agent of that version lives.
      WriterSeat own( path );
      EXPECT_THROW( TableWriter( path, layout, 20, options ), SecondWriterError );
   }
   {
      TableWriter writer( path, layout, 20, options );
      for ( const char* suffix : { ".bell", ".lock" } )
         EXPECT_FALSE( std::filesystem::exists( path + suffix ) );
      EXPECT_THROW( WriterSeat( directory + "/seat" ), SecondWriterError );
      EXPECT_EQ( writer.attachReport().status, attachResized );
      EXPECT_EQ( writer.attachReport().survivors, 5u );
      EXPECT_EQ( writer.attachReport().dropped, 0u );
      EXPECT_EQ( contentOf( writer ), firstFive );
      EXPECT_EQ( writer.verify().damaged, 0u );
   }
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( contentOf( reader ), firstFive );
   TableWriter writer( path, layout, 20, options );
   EXPECT_EQ( writer.attachReport().status, attachReused );
   writer.removeFiles();
   EXPECT_TRUE( writerAlive( directory + "/seat" ) ) << "of other tables, too";
}

TEST_F( Attach, ConvertsToAnotherLayoutByFieldNameAndType ) {
   makeTable();
   TableReader reader( path, layout );
   // generation moved, filler of another type, check of another size.
   const Layout other{ 16,
                       56,
                       { { "id", "u64", 0, 8 },
                         { "more", "u64", 8, 8 },
                         { "check", "u64", 16, 4 },
                         { "filler", "f64[2]", 24, 16 },
                         { "generation", "u64", 48, 8 } } };
   // A reader with the other layout finds this table just as wrong.
   TableReader later( path, other );
   expectMismatch( later, layout.recordSize, other.recordSize );
   {
      TableWriter writer( path, other, 10, options );
      EXPECT_EQ( writer.attachReport().status, attachConverted );
      EXPECT_EQ( writer.attachReport().survivors, 5u );
      for ( uint64_t id = 1; id <= 5; ++id ) {
         Key key{ id, 0 };
         auto* words = static_cast<const uint64_t*>( writer.find( &key ) );
         ASSERT_TRUE( words );
         EXPECT_EQ( words[6], id );
         for ( int i = 2; i < 6; ++i ) EXPECT_EQ( words[i], 0u );
      }
   }
   EXPECT_TRUE( reader.poll() );
   expectMismatch( reader, other.recordSize, layout.recordSize );
   EXPECT_TRUE( later.poll() );
   EXPECT_EQ( later.state(), readerAttached );
}

// One damage at a time: what is said of it, what it costs, and that nothing of it is left.
TEST_F( Attach, PutsEachDamageRight ) {
   // The last key stands beyond its home line, the first has a former record.
   const std::vector<uint64_t> ids = neighbours( 10, 8 );
   const auto geometry = geometryOf( 10 );
   const uint64_t head = ids.size() + 1;
   Content whole;
   std::map<uint64_t, Position> at;
   {
      TableWriter writer( path, layout, 10, options );
      for ( uint64_t id : ids ) put( writer, id, 1 );
      put( writer, ids[0], 2 );
      whole = contentOf( writer );
      for ( Position p = writer.next(); p != noPosition; p = writer.next( p ) )
         at[static_cast<const Record*>( writer.at( p ) )->key.id] = p;
      Record out;
      for ( Position none : { Position( 7 ), geometry.positions(), noPosition } ) {
         EXPECT_EQ( writer.at( none ), nullptr ) << none << " is no record's";
         EXPECT_EQ( TableReader( path, layout ).at( none, &out ), lookupAbsent );
      }
   }
   const std::string sound = bytesOf( path );
   const uint64_t seed[2] = { testSeed[0], testSeed[1] };
   std::string bytes;
   uint64_t* words = nullptr;
   auto slotAt = [&]( uint32_t slot ) {
      return reinterpret_cast<Detail::SlotHead*>(
         &bytes[geometry.slotsOffset + slot * geometry.slotStride] );
   };
   auto isLive = [&]( uint32_t slot, uint64_t sequence ) {
      Detail::SlotHead* const begin = slotAt( slot );
      const uint64_t hash = Detail::keyHash( begin + 1, sizeof( Key ), seed );
      begin->stamp = Detail::stampOf( sequence, Detail::slotLive );
      begin->checksum = Detail::recordChecksum( begin + 1, sizeof( Record ),
                                                { sequence, slot, hash } );
      return Detail::indexWord( slot, hash, sequence );
   };
   const Key lost{ ids[1], 0 };
   const auto slot = [&] { return Detail::slotOf( words[at[lost.id]] ); };
   const char *const torn = "the checksum is wrong",
                     *const astray = "the index word does not fit";
   const struct {
      const char* text;  // null: none
      unsigned dropped;
      unsigned damaged;  // as its own writer counts
      std::function<void()> damage;
      bool refused = false;  // to its own writer
   } rows[] = {
      { torn, 1, 2, [&] { breakRecordAt( bytes, geometry, at[lost.id] ); } },
      { torn, 1, 2, [&] { slotAt( slot() )->stamp += 8; }, true },
      { astray, 0, 1,
        [&] {
           slotAt( slot() )->stamp = Detail::stampOf( 2, Detail::slotReplaced );
        },
        true },
      { astray, 0, 1, [&] { words[at[lost.id]] |= ~0ull << 40; }, true },
      { "the sequence is beyond", 1, 2, [&] { isLive( slot(), head + 9 ); }, true },
      { "the sequence is beyond", 1, 2, [&] { isLive( slot(), 0 ); }, true },
      { nullptr, 0, 1, [&] { words[7] = 0; } },
      { nullptr, 0, 1, [&] { words[7] = 5; } },
      { nullptr, 0, 1, [&] { words[at[lost.id]] = 0; } },
      { astray, 0, 1, [&] { words[at[lost.id]] ^= 1u << 12; }, true },
      { astray, 0, 1, [&] { words[13] = Detail::indexWord( 15, 0, 0 ); } },
      { astray, 0, 1, [&] { words[13] = words[at[lost.id]]; } },
      { "the key stands twice", 0, 2, [&] { words[13] = isLive( 0, 1 ); } },
      { nullptr, 0, 1, [&] { isLive( 0, 1 ); } },
      { torn, 1, 1, [&] { isLive( 0, 1 ), slotAt( 0 )->checksum ^= 1; } },
      { "does not agree with its head", 0, 0, [&] {
          const uint64_t entry = Detail::journalEntry( 0, head + 2 );
          std::memcpy( &bytes[geometry.journalOffset +
                              ( head + 2 ) % geometry.journalEntries * 8],
                       &entry, 8 );
       } } };
   int row = 0;
   for ( const auto& [text, dropped, damaged, damage, refused] : rows ) {
      SCOPED_TRACE( testing::Message() << row++ << ( text ? text : "" ) );
      bytes = sound;
      words = indexIn( bytes, geometry );
      damage();
      fileIs( sound );
      {
         TableWriter writer( path, layout, 10, options );
         bytesAre( path, bytes );
         EXPECT_EQ( writer.verify().damaged, damaged );
         if ( words[at[lost.id]] == 0 ) {
            EXPECT_EQ( writer.verify().verified, whole.size() - 1 );
         }
         if ( refused ) {
            EXPECT_THROW( writer.find( &lost ), CorruptionError );
            EXPECT_THROW( put( writer, lost.id, 2 ), CorruptionError );
            EXPECT_LE( writer.positionAtOrBefore( &lost ), at[lost.id] );
         }
      }
      fileIs( bytes );
      {
         TableWriter writer( path, layout, 10, options );
         const AttachReport& report = writer.attachReport();
         EXPECT_EQ( report.dropped, dropped );
         EXPECT_EQ( report.texts.empty(), text == nullptr );
         if ( text != nullptr ) {
            EXPECT_THAT( report.texts[0], HasSubstr( text ) );
         }
         if ( words[7] != 1 ) {
            EXPECT_EQ( report.repaired, 1u );
         }
         Content expected = whole;
         if ( report.survivors < whole.size() ) expected.erase( lost.id );
         EXPECT_EQ( contentOf( writer ), expected );
         EXPECT_EQ( writer.verify().damaged, 0u );
         TableReader reader( path, layout );
         for ( uint64_t id : ids )
            EXPECT_EQ( found( reader, id ), found( expected, id ) );
      }
      TableWriter next( path, layout, 10, options );
      EXPECT_EQ( next.attachReport().texts, std::vector<Mox::String>() );
      EXPECT_EQ( next.attachReport().dropped, 0u );
   }
}

// Damage as by a stray pointer, repeatedly: records broken, index words gone, the
// head wild. Each repair drops and names damaged records and notifies followers,
// even without knowing the former head, and leaves nothing to report at the next
// mount.
TEST_F( Attach, RepairsAreToldAnewEachTime ) {
   uint32_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   makeTable();
   Content expected = firstFive;
   const Detail::Geometry geometry = geometryOf( 10 );
   Followed followed( path, layout );
   TableReader& reader = followed.reader;
   for ( uint64_t round = 1; round <= 300 && !HasFailure(); ++round ) {
      SCOPED_TRACE( round );
      std::string bytes = bytesOf( path );
      bool wild = random() % 4 != 0, harmed = wild;
      uint32_t broken = 0;
      std::vector<Key> brokenKeys;
      // The oldest record always stands: it may be the only one with a known
      // sequence.
      for ( uint64_t id = 2; id <= 5; ++id ) {
         Position at = noPosition;
         Record out;
         Key key{ id, 0 };
         if ( reader.lookup( &key, &out, &at ) != lookupFound ) continue;
         uint32_t harm = random() % 8;
         harmed = harmed || harm < 4;
         if ( harm < 3 ) {
            breakRecordAt( bytes, geometry, at );
            brokenKeys.push_back( key );
            expected.erase( id );
            ++broken;
         }
         if ( harm == 3 ) indexIn( bytes, geometry )[at] = 0;
      }
      if ( wild ) headIs( bytes, random() % 2 ? 0xee : 0 );
      bytesAre( path, bytes );
      for ( const Key& key : brokenKeys )
         EXPECT_EQ( reader.verify( &key ), lookupDamaged );
      {
         TableWriter writer( path, layout, 10, options );
         const AttachReport& report = writer.attachReport();
         EXPECT_EQ( report.status, attachReused );
         EXPECT_EQ( report.dropped, broken );
         EXPECT_EQ( report.resequenced, harmed );
         EXPECT_GE( report.texts.size(), broken + wild );
         EXPECT_EQ( contentOf( writer ), expected );
         EXPECT_EQ( writer.verify().damaged, 0u );
      }
      followed.drain();
      EXPECT_EQ( followed.content, expected );
      TableWriter next( path, layout, 10, options );
      EXPECT_EQ( next.attachReport().texts, std::vector<Mox::String>() );
      const bool quiet = random() % 2;
      for ( uint64_t id = 2; id <= 5; ++id ) {
         if ( quiet || random() % 4 == 0 ) continue;
         put( next, id, round );
         expected[id] = Record::of( id, round );
      }
      followed.drain();
      EXPECT_EQ( followed.content, expected );
   }
}

// Every way to read a record; each damage is counted once however often it is met.
TEST_F( Attach, AVerifyingReaderGivesNoBrokenRecord ) {
   makeTable();
   TableReader reader( path, layout );
   const Key key{ 3, 0 };
   Record out;
   Position at = noPosition;
   ASSERT_EQ( reader.lookup( &key, &out, &at ), lookupFound );
   std::string bytes = bytesOf( path );
   breakRecordAt( bytes, geometryOf( 10 ), at );
   bytesAre( path, bytes );
   EXPECT_EQ( reader.lookup( &key, &out ), lookupFound ) << "left to verify()";
   reader.verifyingIs( true );
   TableFollower follower( reader );
   EXPECT_EQ( follower.size(), 4u );
   EXPECT_EQ( reader.lookup( &key, &out ), lookupDamaged );
   TableReader::LookupItem item{ &key, &out };
   reader.lookup( { &item, 1 } );
   EXPECT_EQ( item.result, lookupDamaged );
   EXPECT_EQ( reader.at( at, &out ), lookupDamaged );
   EXPECT_EQ( contentOf( reader ).count( 3 ), 0u );
   EXPECT_EQ( reader.counters().damaged, 1u );
   EXPECT_EQ( reader.counters().verified, 10u );
   // An index word of another key, and one that names no slot.
   Position other = noPosition;
   const Key sound{ 2, 0 };
   ASSERT_EQ( reader.lookup( &sound, &out, &other ), lookupFound );
   indexIn( bytes, geometryOf( 10 ) )[other] ^= 1;
   out = Record();
   indexIn( bytes, geometryOf( 10 ) )[at] |= ~0ull << 40;
   bytesAre( path, bytes );
   Position none = noPosition;
   EXPECT_EQ( reader.lookup( &key, &out, &none ), lookupDamaged );
   EXPECT_EQ( none, noPosition );
   EXPECT_EQ( reader.at( other, &out ), lookupDamaged );
}

TEST_F( Attach, RefusesWhatCannotBeATable ) {
   using Fields = std::vector<Field>;
   const std::pair<const char*, std::function<void( Layout&, Fields& )>> wrong[] = {
      { "the key's size", []( Layout& it, Fields& ) { it.keySize = 0; } },
      { "the key's size", []( Layout& it, Fields& ) { it.keySize = 12; } },
      { "the record's size", []( Layout& it, Fields& ) { it.recordSize = 47; } },
      { "the key is larger", []( Layout& it, Fields& ) { it.keySize = 56; } },
      { "too large", []( Layout& it, Fields& ) { it.recordSize = 16392; } },
      { "too many", []( Layout&, Fields& fields ) { fields.resize( 65 ); } },
      { "name ''", []( Layout&, Fields& fields ) { fields[4].name = ""; } },
      { "name 'x",
        []( Layout&, Fields& fields ) { fields[4].name.assign( 32, 'x' ); } },
      { "type",
        []( Layout&, Fields& fields ) { fields[4].type.assign( 1, '\0' ); } },
      { "two", []( Layout&, Fields& fields ) { fields[4].name = "id"; } },
      { "beyond", []( Layout&, Fields& fields ) { fields[4].size = 9; } },
      { "beyond", []( Layout&, Fields& fields ) { fields[4].offset = ~7u; } },
      { "astride", []( Layout&, Fields& fields ) { fields[1].size = 16; } } };
   for ( const auto& [what, damage] : wrong ) {
      Layout odd = layout;
      damage( odd, odd.fields );
      EXPECT_THAT( Mox::Test::errorText<Mox::RangeError>( [&] { odd.check(); } ),
                   HasSubstr( what ) );
      EXPECT_THROW( TableWriter( path, odd, 10, options ), Mox::RangeError );
      EXPECT_THROW( TableReader( path, odd ), Mox::RangeError );
   }
   for ( uint32_t capacity : { 16777151u, ~0u } )
      EXPECT_THROW( TableWriter( path, layout, capacity, options ),
                    Mox::RangeError );
   EXPECT_THROW( TableWriter( directory + "/no/t", layout, 10, options ),
                 CreateError );
   for ( uint32_t entries : { 2u, 12u, 1u << 25 } ) {
      options.journalEntries = entries;
      EXPECT_THROW( TableWriter( path, layout, 10, options ), Mox::RangeError );
   }
   options.journalEntries = 0;
   options.bootId = std::string( 40, 'x' );
   EXPECT_THROW( TableWriter( path, layout, 10, options ), Mox::RangeError );
}

// A file system of a few pages: the doorbell's page is allocated before the
// table's, or the table is not made; a refusal leaves no file.
TEST_F( Attach, FullFileSystemIsAnErrorWithNothingLeft ) {
   const size_t page = 4096, size = makeTable().size(), enough = size / page + 2;
   for ( size_t pages : { size_t( 1 ), enough - 1, enough } ) {
      SCOPED_TRACE( pages );
      int status = ended( start( [&] {
         std::string limit = "size=" + std::to_string( pages * page );
         bool mounted =
            unshare( CLONE_NEWNS ) == 0 &&
            mount( "none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr ) == 0 &&
            mount( "none", directory.c_str(), "tmpfs", 0, limit.c_str() ) == 0;
         if ( !mounted ) _exit( 77 );
         try {
            options.firstCapacity = 4;
            options.growsAheadFrom = 1;
            TableWriter writer( path, layout, 100, options );
            bool rung = std::filesystem::file_size( path + ".bell" ) == 1;
            _exit( pages == enough && rung && refusesToGrow( writer ) ? 0 : 1 );
         } catch ( const CreateError& e ) {
            bool named =
               strstr( e.what(), "No space" ) && strstr( e.what(), path.c_str() );
            bool left = std::filesystem::exists( path ) ||
                        std::filesystem::exists( path + ".new" );
            _exit( pages < enough && named && !left ? 0 : 2 );
         }
      } ) );
      if ( WIFEXITED( status ) && WEXITSTATUS( status ) == 77 )
         GTEST_SKIP() << "no private mount permitted";
      EXPECT_EQ( status, 0 );
   }
}

unsigned mappingsOf( const std::string& file ) {
   std::ifstream maps( "/proc/self/maps" );
   unsigned count = 0;
   for ( std::string line; std::getline( maps, line ); )
      count += line.ends_with( ' ' + file );
   return count;
}

// A table costs no mapping before its first record, whatever became of its file until
// then; a put that cannot have the mapping is refused.
TEST_F( Attach, AnEmptyTableIsNotMapped ) {
   enum { untouched, restored, gone, exchanged, refused, removed, lost };
   for ( int fate = untouched; fate <= lost; ++fate ) {
      SCOPED_TRACE( fate );
      const std::string own = directory + "/t" + std::to_string( fate );
      {
         TableWriter first( own, layout, 10, options );
         put( first, 1, 1 );
         remove( first, 1 );
      }
      TableWriter writer( own, layout, 10, options );
      EXPECT_EQ( mappingsOf( own ), 0u );
      EXPECT_FALSE( remove( writer, 1 ) );
      EXPECT_TRUE( contentOf( writer ).empty() );
      EXPECT_EQ( writer.verify().damaged, 0u );
      Followed followed( own, layout );
      if ( fate == removed ) {
         writer.removeFiles();
         put( writer, 1, 1 );
         EXPECT_TRUE( followed.drain().stateChanged );
         EXPECT_EQ( followed.reader.state(), readerAbsent );
         continue;
      }
      if ( fate == lost ) {
         std::filesystem::remove( own );
         std::filesystem::create_directory( own );
         writer.removeFiles();
         std::filesystem::remove( own );
         EXPECT_TRUE( writer.filesStand() ) << "there is nothing to restore";
         writer.restoreFiles();
         EXPECT_THROW( put( writer, 1, 1 ), NoSpaceError );
         EXPECT_FALSE( std::filesystem::exists( own ) );
         continue;
      }
      if ( fate == exchanged || fate == refused )
         rename( own.c_str(), ( own + "-" ).c_str() );
      if ( fate == restored || fate == gone ) unlink( own.c_str() );
      if ( fate == gone ) unlink( ( own + ".bell" ).c_str() );
      if ( fate == restored ) {
         writer.restoreFiles();
         EXPECT_EQ( mappingsOf( own ), 0u );
      }
      if ( fate == exchanged ) bytesAre( own, "no table" );
      if ( fate == refused ) {
         std::filesystem::create_directory( own );
         EXPECT_THROW( put( writer, 1, 1 ), NoSpaceError );
         EXPECT_THROW( writer.reserve(), NoSpaceError );
         std::filesystem::remove( own );
         rename( ( own + "-" ).c_str(), own.c_str() );
      }
      put( writer, 1, 2 );
      EXPECT_EQ( writer.sequence(), 3u );
      followed.drain();
      EXPECT_EQ( mappingsOf( own ), 2u );  // the reader's, too
      EXPECT_EQ( followed.content, contentOf( writer ) );
      EXPECT_EQ( contentOf( TableReader( own, layout ) ), contentOf( writer ) );
      EXPECT_TRUE( writer.filesStand() );
   }
}

}
}
