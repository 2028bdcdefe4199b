#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/platform/mount/Shelf.h"
#include "tests/support/ErrorText.h"
#include "tests/support/TempRoot.h"

namespace MoxBrane::Test {
namespace {

using namespace std::string_view_literals;
using ::Brane::tableReader;
using ::Brane::tableWriter;
using testing::AllOf;
using testing::HasSubstr;
using Numbers = std::vector<uint32_t>;

constexpr const char* kShelf = "MoxBrane::Test::Shelf";
constexpr const char* kDrawer = "MoxBrane::Test::Drawer";
constexpr const char* kPath = Side::kPath;

class EntityManager : public testing::Test {
 protected:
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Side own{ clock, root.path() };
};

TEST_F( EntityManager, GivesOneEntityAPath ) {
   Corvex::EntityManager& manager = own.manager;
   EXPECT_EQ( Side::shelfOf( manager ), own.shelf );
   EXPECT_EQ( manager.entity( kPath ), own.shelf );
   EXPECT_THROW( manager.createEntity( kPath, kDrawer ), Mox::NameError );
   EXPECT_THROW( manager.createEntity( "other", "MoxBrane::Test::Nothing" ),
                 Mox::NameError );
   for ( Mox::StringView path : { ""sv, "/a"sv, "a/"sv, "a//b"sv, "."sv, "a/../b"sv,
                                  "a/."sv, "a\0b"sv } ) {
      EXPECT_THROW( manager.createEntity( path, kShelf ), Mox::RangeError ) << path;
   }
}

TEST_F( EntityManager, MakesAnEntityAnewThatHasGone ) {
   own.mount( tableWriter );
   own.shelf->bookIs( bookOf( 1 ) );
   Mox::Ptr<CollectionControl> control( own.shelf->bookControl() );
   own.shelf.reset();
   EXPECT_EQ( own.manager.entity( kPath ), nullptr );
   control->initialize( tableWriter, 4, false );  // its table has gone
   // Its records outlive it; another type may take the path.
   own.shelf = Side::shelfOf( own.manager );
   EXPECT_FALSE( own.shelf->book().mounted() );
   own.mount( tableWriter );
   EXPECT_TRUE( own.shelf->book().has( bookKey( 1 ) ) );
   own.shelf.reset();
   EXPECT_NE( own.manager.createEntity( kPath, kDrawer ), nullptr );
}

TEST_F( EntityManager, MountsOnceForOneRole ) {
   CollectionControl& control = own.control();
   EXPECT_THROW( own.shelf->bookIs( bookOf( 1 ) ), ::Brane::ReadOnlyError );
   EXPECT_THROW( own.shelf->bookDel( bookKey( 1 ) ), ::Brane::ReadOnlyError );
   // Suspension is for readers only.
   control.initialize( tableReader, 0, true );
   EXPECT_EQ( control.mountStatus(), notMounted );
   control.initialize( tableWriter, 4, true );
   control.initialize( tableWriter, 9, false );
   EXPECT_EQ( own.shelf->book().capacity(), 4U );
   EXPECT_EQ( control.capacity(), 4U );
   EXPECT_THROW( control.initialize( tableReader, 0, false ), ::Brane::TableError );
   EXPECT_EQ( control.role(), tableWriter );
   EXPECT_EQ( control.mountStatus(), mountReady );
   // The table has one writer, whichever manager it belongs to.
   Side rival( clock, root.path() );
   EXPECT_THROW( rival.mount( tableWriter ), ::Brane::SecondWriterError );
   EXPECT_EQ( rival.control().mountStatus(), notMounted );
   rival.mount( tableReader );
   EXPECT_THROW( rival.shelf->bookIs( bookOf( 1 ) ), ::Brane::ReadOnlyError );
   EXPECT_THROW( rival.mount( tableWriter ), ::Brane::TableError );
}

// Another user may have made the root first, to exchange the tables later.
TEST_F( EntityManager, WritesInNoDirectoryThatOthersRule ) {
   constexpr uid_t kStranger = 4242;
   auto expectRefused = [&]( const char* why ) {
      EXPECT_THAT( Mox::Test::errorText<::Brane::CreateError>(
                      [&] { own.mount( tableWriter ); } ),
                   AllOf( HasSubstr( root.path() ), HasSubstr( why ) ) );
      EXPECT_FALSE( own.shelf->book().mounted() );
   };
   const Mox::String below = root.path() + "/house";
   ASSERT_EQ( mkdir( below.c_str(), 0777 ), 0 );
   for ( const Mox::String& directory : { root.path(), below } ) {
      chmod( directory.c_str(), 0777 );
      expectRefused( "everybody may write it (mode 777)" );
      chmod( directory.c_str(), 0750 );
      // Only root can change a file's owner.
      if ( chown( directory.c_str(), kStranger, -1U ) != 0 ) continue;
      expectRefused( "belongs to user 4242" );
      ASSERT_EQ( chown( directory.c_str(), geteuid(), kStranger ), 0 );
      ASSERT_EQ( chmod( directory.c_str(), 0770 ), 0 );
      expectRefused( "group 4242 may write it (mode 770)" );
      ASSERT_EQ( chown( directory.c_str(), -1U, getegid() ), 0 );
   }
   rmdir( below.c_str() );
   ASSERT_EQ( symlink( "/dev/shm", below.c_str() ), 0 );
   const bool given = lchown( below.c_str(), kStranger, -1U ) == 0;
   if ( given ) expectRefused( "belongs to user 4242" );
   unlink( below.c_str() );
   ASSERT_EQ( close( creat( below.c_str(), 0600 ) ), 0 );
   expectRefused( "not a directory" );
   unlink( below.c_str() );
   chmod( root.path().c_str(), 01777 );
   own.mount( tableWriter );
   EXPECT_TRUE( own.shelf->book().mounted() );
   if ( !given ) GTEST_SKIP() << "other users' directories need root";
}

TEST_F( EntityManager, MayGoBeforeItsEntities ) {
   own.mount( tableWriter );
   auto brief = std::make_unique<Side>( clock, root.path(), tableReader );
   brief->manager.dispatch();
   Mox::Ptr<Shelf> read = brief->shelf;
   brief.reset();
   EXPECT_EQ( read->manager(), nullptr );
   clock.advance( 1 );
   clock.runPass();
   read.reset();
}

// The files are removed or moved while their writer lives.
TEST_F( EntityManager, MakesItsFilesAnewUntilAnotherWriterHasThem ) {
   namespace fs = std::filesystem;
   own.mount( tableWriter, 20 );
   own.shelf->bookIs( bookOf( 1 ) );
   Mox::Ptr<Shelf> other( dynamic_cast<Shelf*>(
      own.manager.createEntity( "house/other", kShelf ).get() ) );
   other->bookControl()->initialize( tableWriter, 4, false );
   Side reader( clock, root.path(), tableReader );
   std::vector<Mox::String> notes;
   own.manager.noteHandlerIs(
      [&]( const auto& text ) { notes.push_back( text ); } );
   auto turn = [&] {
      for ( int i = 0; i < 20; ++i ) {
         clock.advance( 0.01 );
         clock.runPass();
         own.manager.dispatch();
         reader.manager.dispatch();
      }
   };
   turn();
   const fs::path file = Side::file( root.path() );
   const fs::path elsewhere = root.path() + "-moved";
   const std::function<void()> damages[] = {
      [&] { fs::remove( file ); },
      [&] { fs::remove( file.parent_path() / "writer.lock" ); },
      [&] { fs::remove( file.parent_path() / "writer.bell" ); },
      [&] { fs::rename( file, file.string() + "-" ); },
      [&] { fs::remove_all( root.path() ); },
      [&] { fs::rename( root.path(), elsewhere ); },
      [&] { fs::rename( root.path() + "/house", root.path() + "/moved" ); },
   };
   uint32_t number = 1;
   for ( const auto& damage : damages ) {
      SCOPED_TRACE( number );
      damage();
      turn();
      own.shelf->bookIs( bookOf( ++number ) );
      turn();
      EXPECT_GT( clock.nextWakeup(), clock.now() ) << "it is not over";
      EXPECT_EQ( reader.recorder.take(), Numbers{ number } );
      EXPECT_EQ( reader.shelf->book().size(), number );
      EXPECT_TRUE( reader.control().writerAlive() );
      EXPECT_EQ(
         Side( clock, root.path(), tableReader ).shelf->book().keys().size(),
         number );
   }
   EXPECT_EQ( notes.size(), std::size( damages ) );
   EXPECT_THAT( notes.back(), HasSubstr( "made anew" ) );
   // An obstacle is reported once, and its end is noticed without an event. A table
   // that is no longer mounted is not tried.
   const std::string house = root.path() + "/house";
   chmod( house.c_str(), 0777 );
   for ( const fs::path& each : { file, fs::path( house + "/other/book" ) } )
      fs::remove( each );
   notes.clear();
   for ( int tries = 0; tries < 3; ++tries ) {
      turn();
      clock.advance( 1 );
   }
   EXPECT_THAT( notes, testing::ElementsAre( HasSubstr( "everybody" ) ) );
   chmod( house.c_str(), 0750 );
   other.reset();
   clock.advance( 1 );
   turn();
   ASSERT_EQ( notes.size(), 2U );
   EXPECT_THAT( notes.back(), HasSubstr( "room/shelf/book: somebody" ) );
   // Another process was faster.
   fs::remove_all( root.path() );
   Side rival( clock, root.path(), tableWriter );
   EXPECT_THROW( turn(), ::Brane::SecondWriterError );
   fs::remove_all( elsewhere );
}

// A table that comes and goes, and a writer that does; the latter without notifying
// any key.
TEST_F( EntityManager, TellsReadersOfTablesAndWritersThatComeAndGo ) {
   Side reader( clock, root.path(), tableReader );
   bool found = false;
   reader.recorder.inside = [&]( const BookKey& key ) {
      Book seen;
      found = reader.shelf->book().find( key, seen ) == ::Brane::lookupFound;
   };
   auto expect = [&]( const Numbers& keys, MountStatus status, bool alive,
                      unsigned mounts ) {
      for ( int i = 0; i < 3; ++i ) {
         clock.advance( 0.01 );
         clock.runPass();
         reader.manager.dispatch();
      }
      EXPECT_EQ( reader.recorder.take(), keys );
      EXPECT_EQ( reader.control().mountStatus(), status );
      EXPECT_EQ( reader.control().writerAlive(), alive );
      EXPECT_EQ( std::exchange( reader.recorder.mounts, 0 ), mounts );
   };
   expect( {}, mountWaiting, false, 0 );
   // Twice under one name, the second time with another bell; in between with
   // another size.
   for ( uint32_t capacity : { 2000, 3000, 0, 2000 } ) {
      if ( capacity == 0 ) {
         own.mount( tableWriter, 3000 );
         expect( {}, mountReady, true, 1 );
         own.manager.removeTables( kPath );
         EXPECT_NE( access( ( root.path() + '/' + kPath ).c_str(), F_OK ), 0 );
         expect( { 1 }, mountRemoved, false, 1 );
         own.shelf.reset();
         continue;
      }
      Side agent( clock, root.path(), tableWriter, capacity );
      expect( {}, mountReady, true, 1 );
      agent.shelf->bookIs( bookOf( 1 ) );
      agent.manager.dispatch();
      expect( { 1 }, mountReady, true, 0 );
      EXPECT_EQ( reader.shelf->book().size(), 1U );
      agent.shelf.reset();
      expect( {}, mountReady, false, 1 );
   }
   // A change, and another program's table before its notification; then the table
   // comes back with the same value.
   {
      Side agent( clock, root.path(), tableWriter );
      agent.shelf->bookIs( bookOf( 1, 7 ) );
   }
   ::Brane::Layout other = BookTable::makeLayout();
   other.fields[4].name = "borrowed";
   { ::Brane::TableWriter( Side::file( root.path() ), other, 2000 ); }
   expect( {}, mountMismatch, false, 1 );
   Side next( clock, root.path(), tableWriter );
   found = false;
   expect( { 1 }, mountReady, true, 1 );
   EXPECT_TRUE( found && reader.shelf->book().quiesced() );
}

}
}
