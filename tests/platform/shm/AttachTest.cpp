// What writers and readers make of a file that stands there already.
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <cerrno>

#include "Support.h"
#include "platform/shm/detail/Checksum.h"

namespace Brane::Test {
namespace {

class Attach : public TableTest {
 protected:
   // A table of ten with records 1 to 5; returns its bytes.
   std::string makeTable( uint32_t count = 5 ) {
      TableWriter writer( path, layout, 10, options );
      for ( uint64_t id = 1; id <= count; ++id ) put( writer, id, id );
      return bytesOf( path );
   }
   // Replaces the file by a new one.
   void fileIs( const std::string& bytes ) {
      std::filesystem::remove( path );
      bytesAre( path, bytes );
   }
   // Nothing is read, and both values are told.
   static void expectMismatch( const TableReader& reader, uint64_t found,
                               uint64_t own ) {
      EXPECT_EQ( reader.state(), readerMismatch );
      for ( uint64_t value : { found, own } ) {
         EXPECT_NE( reader.problem().find( std::to_string( value ) ),
                    std::string::npos )
            << reader.problem();
      }
      Record out;
      Key key{ 1, 0 };
      EXPECT_EQ( reader.lookup( &key, &out ), lookupDamaged );
      EXPECT_EQ( reader.visit( []( Position, const void* ) { return false; } ),
                 noPosition );
   }
   Content firstFive() const {
      Content content;
      for ( uint64_t id = 1; id <= 5; ++id ) content[id] = Record::of( id, id );
      return content;
   }
};

Detail::FileHeader headerIn( const std::string& bytes ) {
   Detail::FileHeader header;
   std::memcpy( &header, bytes.data(), sizeof( header ) );
   return header;
}

// A header whose checksum holds, so that what it says is judged.
void headerInto( std::string& bytes, Detail::FileHeader header ) {
   uint64_t ready = header.ready;
   header.ready = 0;
   header.checksum = 0;
   header.checksum = Detail::crc32c( &header, sizeof( header ) );
   header.ready = ready;
   std::memcpy( bytes.data(), &header, sizeof( header ) );
}

struct HeaderRow {
   const char* name;
   LayoutError::Mismatch mismatch;
   void ( *damage )( Detail::FileHeader& header );
   const char* text;  // part of the problem's text: what is found there
};

using H = Detail::FileHeader;
constexpr HeaderRow kHeaders[] = {
   { "magic", LayoutError::magic, []( H& h ) { h.magic = 0x1234; }, "0x1234" },
   { "version", LayoutError::formatVersion, []( H& h ) { h.version = 0x77; },
     "0x77" },
   { "byteOrder", LayoutError::byteOrder, []( H& h ) { h.byteOrder = 0x04030201; },
     "0x4030201" },
   { "notReady", LayoutError::notReady, []( H& h ) { h.ready = 0; }, "0x0" },
   { "keySize", LayoutError::keySize, []( H& h ) { h.keySize = 8; }, "8" },
   { "fingerprint", LayoutError::fingerprint, []( H& h ) { h.fingerprint = 99; },
     "99" },
   { "oddRecord", LayoutError::geometry, []( H& h ) { h.recordSize = 47; },
     "contradict" },
   { "hugeCapacity", LayoutError::geometry, []( H& h ) { h.capacity = ~0u; },
     "contradict" },
   { "otherCapacity", LayoutError::geometry, []( H& h ) { h.capacity = 2000; },
     "bytes" },
   { "zeroJournal", LayoutError::geometry, []( H& h ) { h.journalEntries = 0; },
     "contradict" },
   { "wildFields", LayoutError::geometry, []( H& h ) { h.fieldCount = 65; },
     "contradict" },
};

TEST_F( Attach, NamesEachHeaderMismatch ) {
   const std::string sound = makeTable();
   for ( const HeaderRow& row : kHeaders ) {
      SCOPED_TRACE( row.name );
      std::string bytes = sound;
      Detail::FileHeader header = headerIn( sound );
      row.damage( header );
      headerInto( bytes, header );
      fileIs( bytes );
      TableReader reader( path, layout );
      bool other = row.mismatch >= LayoutError::keySize;
      EXPECT_EQ( reader.state(), other ? readerMismatch : readerDamaged );
      EXPECT_EQ( reader.mismatch(), row.mismatch ) << reader.problem();
      EXPECT_NE( reader.problem().find( row.text ), std::string::npos )
         << reader.problem();
      // What cannot be read may hold any key.
      Record out;
      Key key{ 1, 0 };
      EXPECT_EQ( reader.lookup( &key, &out ), lookupDamaged );
      TableReader::LookupItem item{ &key, &out };
      reader.lookup( { &item, 1 } );
      EXPECT_EQ( item.result, lookupDamaged );
      // A writer replaces what it cannot use, and the reader moves over.
      TableWriter writer( path, layout, 10, options );
      EXPECT_FALSE( writer.attachReport().texts.empty() );
      put( writer, 3, 30 );
      EXPECT_TRUE( reader.poll() );
      EXPECT_EQ( found( reader, 3 ), Record::of( 3, 30 ) );
   }
}

TEST_F( Attach, ReportsDamagedShortAndEmptyFiles ) {
   const std::string sound = makeTable();
   for ( size_t size : { size_t( 0 ), size_t( 1 ), size_t( 4000 ),
                         sizeof( Detail::FileHeader ), sound.size() - 1 } ) {
      fileIs( sound.substr( 0, size ) );
      TableReader reader( path, layout );
      EXPECT_EQ( reader.state(), readerDamaged ) << size;
      EXPECT_EQ( reader.mismatch(), LayoutError::tooShort ) << size;
      TableWriter writer( path, layout, 10, options );
      EXPECT_EQ( writer.attachReport().status, attachDamaged );
      EXPECT_EQ( writer.size(), 0u );
   }
   // Any single byte of the header, its padding included, is covered.
   for ( size_t at = 0; at < sizeof( Detail::FileHeader ); at += 37 ) {
      std::string bytes = sound;
      bytes[at] = static_cast<char>( bytes[at] ^ 0x40 );
      fileIs( bytes );
      EXPECT_EQ( TableReader( path, layout ).state(), readerDamaged ) << at;
   }
   std::filesystem::remove( path );
   std::filesystem::create_directory( path );
   EXPECT_EQ( TableReader( path, layout ).state(), readerDamaged );
   EXPECT_THROW( TableWriter( path, layout, 10, options ), CreateError );
}

TEST_F( Attach, ReaderRetriesATableItHadNoMemoryFor ) {
   makeTable();
   TableReader reader( path, layout );
   auto large = std::make_unique<TableWriter>( path, layout, 400000, options );
   rlimit former;
   ASSERT_EQ( getrlimit( RLIMIT_AS, &former ), 0 );
   uint64_t pages = 0;
   std::ifstream( "/proc/self/statm" ) >> pages;
   rlimit limit = former;
   limit.rlim_cur = pages * 4096 + ( 8 << 20 );
   ASSERT_EQ( setrlimit( RLIMIT_AS, &limit ), 0 );
   EXPECT_THROW( reader.poll(), CreateError );
   EXPECT_THROW( reader.poll(), CreateError );
   ASSERT_EQ( setrlimit( RLIMIT_AS, &former ), 0 );
   EXPECT_EQ( reader.state(), readerDamaged );
   EXPECT_NE( reader.problem().find( "cannot map" ), std::string::npos );
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( reader.state(), readerAttached );
   EXPECT_EQ( contentOf( reader ), firstFive() );
}

TEST_F( Attach, ChangesCapacityButNeverBelowItsRecords ) {
   makeTable();
   TableReader reader( path, layout );
   {
      TableWriter writer( path, layout, 3, options );
      EXPECT_EQ( writer.attachReport().status, attachResized );
      EXPECT_EQ( writer.capacity(), 5u );
      EXPECT_EQ( contentOf( writer ), firstFive() );
   }
   // Again: it is what it was asked to be, as far as can be.
   EXPECT_EQ( TableWriter( path, layout, 3, options ).attachReport().status,
              attachReused );
   TableWriter writer( path, layout, 1000, options );
   EXPECT_EQ( writer.capacity(), 1000u );
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( reader.capacity(), 1000u );
   EXPECT_EQ( contentOf( reader ), firstFive() );
}

TEST_F( Attach, ConvertsToAnotherLayoutByFieldNameAndType ) {
   makeTable();
   TableReader reader( path, layout );
   // generation moved, filler of another type, check gone, one more.
   Layout other{ 16,
                 56,
                 { { "id", "u64", 0, 8 },
                   { "more", "u64", 8, 8 },
                   { "added", "u64", 16, 8 },
                   { "filler", "f64[2]", 24, 16 },
                   { "generation", "u64", 48, 8 } } };
   // A reader of the other layout is as far from this table as this one will be.
   TableReader later( path, other );
   expectMismatch( later, layout.recordSize, other.recordSize );
   {
      TableWriter writer( path, other, 10, options );
      EXPECT_EQ( writer.attachReport().status, attachConverted );
      EXPECT_EQ( writer.attachReport().survivors, 5u );
      ASSERT_EQ( writer.attachReport().texts.size(), 1u );
      for ( const Layout& each : { layout, other } ) {
         char text[32];
         snprintf( text, sizeof( text ), "%#llx",
                   static_cast<unsigned long long>( each.fingerprint() ) );
         EXPECT_NE( writer.attachReport().texts[0].find( text ), std::string::npos )
            << writer.attachReport().texts[0];
      }
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
   // Of one size: the fingerprints alone tell.
   Layout renamed = layout;
   renamed.fields[4].name = "sum";
   { TableWriter writer( path, renamed, 10, options ); }
   EXPECT_TRUE( reader.poll() );
   EXPECT_EQ( reader.mismatch(), LayoutError::fingerprint );
   expectMismatch( reader, renamed.fingerprint(), layout.fingerprint() );
   // Another key: nothing can be kept.
   Layout foreign = other;
   foreign.fields[1].type = "i64";
   TableWriter writer( path, foreign, 10, options );
   EXPECT_EQ( writer.attachReport().status, attachOtherKey );
   EXPECT_EQ( writer.size(), 0u );
}

// A directory of fields that no layout can have, under a checksum that holds.
TEST_F( Attach, CopiesNothingByFieldsThatLeaveTheRecord ) {
   std::string bytes = makeTable();
   Detail::FileHeader header = headerIn( bytes );
   header.fields[2].offset = 1u << 30;
   headerInto( bytes, header );
   fileIs( bytes );
   layout.fields.back().type = "i64";
   TableWriter writer( path, layout, 10, options );
   EXPECT_EQ( writer.attachReport().status, attachDamaged );
   EXPECT_EQ( writer.size(), 0u );
   ASSERT_EQ( writer.attachReport().texts.size(), 1u );
   EXPECT_NE( writer.attachReport().texts[0].find( "generation" ),
              std::string::npos );
}

TEST_F( Attach, DropsAZeroKeyThatIsNoLongerAccepted ) {
   options.zeroKey = true;
   {
      TableWriter writer( path, layout, 10, options );
      for ( uint64_t id = 0; id <= 5; ++id ) put( writer, id, id );
   }
   options.zeroKey = false;
   TableWriter writer( path, layout, 20, options );
   EXPECT_EQ( writer.attachReport().status, attachResized );
   EXPECT_EQ( writer.attachReport().survivors, 5u );
   EXPECT_EQ( writer.attachReport().dropped, 1u );
   EXPECT_EQ( contentOf( writer ), firstFive() );
}

TEST_F( Attach, RemovingFilesTwiceLeavesASuccessorsAlone ) {
   TableWriter former( path, layout, 10, options );
   former.removeFiles();
   TableWriter writer( path, layout, 10, options );
   put( writer, 1, 1 );
   former.removeFiles();
   EXPECT_EQ( found( TableReader( path, layout ), 1 ), Record::of( 1, 1 ) );
   EXPECT_TRUE( writerAlive( path ) );
}

TEST_F( Attach, SignalsDoNotDisturbTheMakingOfALargeTable ) {
   struct sigaction former, action{};
   action.sa_handler = []( int ) {};
   ASSERT_EQ( sigaction( SIGALRM, &action, &former ), 0 );
   itimerval timer{ { 0, 2000 }, { 0, 2000 } };
   ASSERT_EQ( setitimer( ITIMER_REAL, &timer, nullptr ), 0 );
   EXPECT_NO_THROW( TableWriter( path, layout, 1000000, options ) );
   timer = {};
   setitimer( ITIMER_REAL, &timer, nullptr );
   sigaction( SIGALRM, &former, nullptr );
}

// Damage as a stray pointer does it.
class Repair : public Attach {
 protected:
   Position positionOf( const TableReader& reader, uint64_t id ) {
      Position at = noPosition;
      Record out;
      Key key{ id, 0 };
      EXPECT_EQ( reader.lookup( &key, &out, &at ), lookupFound );
      return at;
   }

   Detail::Geometry geometry = geometryOf( 10 );
};

// Every record is whole, or dropped and named; followers hear of what has gone.
TEST_F( Repair, DropsWhatIsDamagedAndTellsFollowers ) {
   std::string bytes = makeTable();
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed{ contentOf( reader ) };
   breakRecordAt( bytes, geometry, positionOf( reader, 3 ) );
   // The index loses another key's word; the head is wild.
   indexIn( bytes, geometry )[positionOf( reader, 1 )] = 0;
   headIs( bytes, 0xee );
   bytesAre( path, bytes );
   Key third{ 3, 0 };
   EXPECT_EQ( reader.verify( &third ), lookupDamaged );
   TableWriter writer( path, layout, 10, options );
   const AttachReport& report = writer.attachReport();
   EXPECT_EQ( report.status, attachReused );
   EXPECT_EQ( report.survivors, 4u );
   EXPECT_EQ( report.dropped, 1u );
   EXPECT_TRUE( report.resequenced );
   EXPECT_GE( report.texts.size(), 2u );
   Content expected = firstFive();
   expected.erase( 3 );
   EXPECT_EQ( contentOf( writer ), expected );
   EXPECT_EQ( writer.verify().damaged, 0u );
   followed.drain( follower );
   EXPECT_EQ( followed.content, expected );
}

// The head is wild and a record broken, again and again: each repair is told, though it
// knows the former head no more, and leaves nothing for the next mount to say.
TEST_F( Repair, OfAWildHeadIsToldAnewEachTime ) {
   makeTable();
   TableReader reader( path, layout );
   TableFollower follower( reader );
   Followed followed{ contentOf( reader ) };
   for ( uint64_t id = 1; id <= 5; ++id ) {
      SCOPED_TRACE( id );
      std::string bytes = bytesOf( path );
      breakRecordAt( bytes, geometry, positionOf( reader, id ) );
      headIs( bytes, id % 2 ? 0xee : 0 );
      bytesAre( path, bytes );
      {
         TableWriter writer( path, layout, 10, options );
         EXPECT_TRUE( writer.attachReport().resequenced );
         EXPECT_EQ( writer.size(), 5 - id );
      }
      followed.drain( follower );
      EXPECT_EQ( followed.content, contentOf( reader ) );
      TableWriter next( path, layout, 10, options );
      EXPECT_EQ( next.attachReport().texts, std::vector<Mox::String>() );
   }
   // The journal of an earlier time lies beyond a head that has started over.
   TableWriter writer( path, layout, 10, options );
   for ( uint64_t id = 1; id <= 5; ++id ) put( writer, id, 9 );
   followed.drain( follower );
   EXPECT_EQ( followed.content, contentOf( reader ) );
}

// Each time the head is wild and only an old record is left to tell the sequence: the
// journal of the last time must not pass for that of this one.
TEST_F( Repair, OfAWildHeadFromTheSameRecordAgainAndAgain ) {
   {
      TableWriter writer( path, layout, 10, options );
      put( writer, 9, 0 );
   }
   for ( uint64_t round = 1; round <= 3; ++round ) {
      SCOPED_TRACE( round );
      {
         TableWriter writer( path, layout, 10, options );
         EXPECT_EQ( writer.attachReport().texts, std::vector<Mox::String>() );
         for ( uint64_t id = 1; id <= 4; ++id ) put( writer, id, round );
      }
      std::string bytes = bytesOf( path );
      TableReader reader( path, layout );
      for ( uint64_t id = 1; id <= 4; ++id )
         breakRecordAt( bytes, geometry, positionOf( reader, id ) );
      headIs( bytes, 0xee );
      bytesAre( path, bytes );
      TableWriter writer( path, layout, 10, options );
      EXPECT_TRUE( writer.attachReport().resequenced );
      EXPECT_EQ( writer.size(), 1u );
      put( writer, 1, round );
   }
}

TEST_F( Attach, RefusesWhatCannotBeATable ) {
   Layout odd = layout;
   odd.recordSize = 47;
   EXPECT_THROW( TableWriter( path, odd, 10, options ), Mox::RangeError );
   Layout astride = layout;
   astride.fields[1].size = 16;
   EXPECT_THROW( TableReader( path, astride ), Mox::RangeError );
   EXPECT_THROW( TableWriter( path, layout, ~0u, options ), Mox::RangeError );
   EXPECT_THROW( TableWriter( directory + "/no/t", layout, 10, options ),
                 CreateError );
}

// A file system of some pages: the doorbell's page is had before the table's, or the
// table is not made; what is refused leaves nothing.
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
            TableWriter writer( path, layout, 10, options );
            bool rung = std::filesystem::file_size( path + ".bell" ) == 1;
            _exit( pages == enough && rung ? 0 : 1 );
         } catch ( const CreateError& e ) {
            bool named =
               strstr( e.what(), "No space" ) && strstr( e.what(), path.c_str() );
            bool left = std::filesystem::exists( path ) ||
                        std::filesystem::exists( path + ".new" );
            _exit( pages < enough && named && !left ? 0 : 2 );
         }
      } ) );
      ASSERT_TRUE( WIFEXITED( status ) ) << "signal " << WTERMSIG( status );
      if ( WEXITSTATUS( status ) == 77 )
         GTEST_SKIP() << "no private mount permitted";
      EXPECT_EQ( WEXITSTATUS( status ), 0 );
   }
}

// A second writer is refused, in this process as in another, until the first has gone.
TEST_F( Attach, SecondWriterIsRefusedUntilTheFirstIsKilled ) {
   int ready[2];
   ASSERT_EQ( pipe( ready ), 0 );
   pid_t first = start( [&] {
      TableWriter writer( path, layout, 10, options );
      put( writer, 1, 1 );
      if ( write( ready[1], "x", 1 ) == 1 ) pause();
   } );
   char byte;
   ASSERT_EQ( read( ready[0], &byte, 1 ), 1 );
   TableReader reader( path, layout );
   EXPECT_TRUE( reader.writerAlive() );
   try {
      TableWriter second( path, layout, 10, options );
      ADD_FAILURE() << "admitted";
   } catch ( const SecondWriterError& e ) {
      EXPECT_EQ( e.pid(), first );
      EXPECT_NE( std::string( e.what() ).find( std::to_string( first ) ),
                 std::string::npos );
   }
   EXPECT_THROW( removeTableFiles( path ), SecondWriterError );
   kill( first, SIGKILL );
   ended( first );
   EXPECT_FALSE( reader.writerAlive() );
   TableWriter second( path, layout, 10, options );
   EXPECT_EQ( second.attachReport().survivors, 1u );
   EXPECT_THROW( TableWriter( path, layout, 10, options ), SecondWriterError );
   EXPECT_TRUE( reader.writerAlive() );
   close( ready[0] );
   close( ready[1] );
}

}
}
