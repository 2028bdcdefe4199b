#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/loop/TestClock.h"
#include "tests/platform/mount/Shelf.h"
#include "tests/support/TempRoot.h"

namespace MoxBrane::Test {
namespace {

constexpr const char* kShelf = "MoxBrane::Test::Shelf";
constexpr const char* kPath = "house/room/shelf";

class EntityManager : public testing::Test {
 protected:
   static Mox::Ptr<Shelf> shelfAt( Corvex::EntityManager& manager ) {
      Mox::Ptr<Mox::Entity> entity = createEntity( manager, kPath, kShelf );
      return Mox::Ptr<Shelf>( dynamic_cast<Shelf*>( entity.get() ) );
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
};

TEST_F( EntityManager, GivesOneEntityAPath ) {
   Mox::Ptr<Shelf> shelf = shelfAt( manager );
   ASSERT_NE( shelf, nullptr );
   EXPECT_EQ( shelf->name(), kPath );
   EXPECT_EQ( shelfAt( manager ), shelf );
   EXPECT_EQ( manager.entity( kPath ), shelf );
   EXPECT_THROW( manager.createEntity( kPath, "MoxBrane::Test::Drawer" ),
                 Mox::NameError );
   EXPECT_THROW( manager.createEntity( "other", "MoxBrane::Test::Nothing" ),
                 Mox::NameError );
   for ( const char* path : { "", "/a", "a/", "a//b", ".", "a/../b", "a/." } ) {
      EXPECT_THROW( manager.createEntity( path, kShelf ), Mox::RangeError ) << path;
   }
   EXPECT_THROW( manager.createEntity( Mox::StringView( "a\0b", 3 ), kShelf ),
                 Mox::RangeError );
}

TEST_F( EntityManager, MakesAnEntityAnewThatHasGone ) {
   Mox::Ptr<Shelf> shelf = shelfAt( manager );
   shelf->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   shelf->bookIs( bookOf( 1 ) );
   Mox::Ptr<CollectionControl> control( shelf->bookControl() );
   shelf.reset();
   EXPECT_EQ( manager.entity( kPath ), nullptr );
   control->initialize( ::Brane::tableWriter, 4, false );  // its table has gone
   // What it wrote outlives it; another type may take the path.
   shelf = shelfAt( manager );
   EXPECT_FALSE( shelf->book().mounted() );
   shelf->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   EXPECT_TRUE( shelf->book().has( bookKey( 1 ) ) );
   shelf.reset();
   EXPECT_NE( manager.createEntity( kPath, "MoxBrane::Test::Drawer" ), nullptr );
}

TEST_F( EntityManager, MountsOnceForOneRole ) {
   Mox::Ptr<Shelf> shelf = shelfAt( manager );
   CollectionControl& control = *shelf->bookControl();
   EXPECT_EQ( control.mountStatus(), notMounted );
   EXPECT_THROW( shelf->bookIs( bookOf( 1 ) ), ::Brane::ReadOnlyError );
   EXPECT_THROW( shelf->bookDel( bookKey( 1 ) ), ::Brane::ReadOnlyError );
   control.initialize( ::Brane::tableWriter, 4, false );
   ::Brane::TableWriter* writer = shelf->book().writer();
   control.initialize( ::Brane::tableWriter, 9, false );
   EXPECT_EQ( shelf->book().writer(), writer );
   EXPECT_EQ( control.capacity(), 4U );
   EXPECT_THROW( control.initialize( ::Brane::tableReader, 0, false ),
                 ::Brane::TableError );
   EXPECT_EQ( control.role(), ::Brane::tableWriter );
   EXPECT_EQ( control.mountStatus(), mountReady );
   // The table has one writer, in whatever manager.
   Corvex::EntityManager second( clock, nullptr, root.path() );
   Mox::Ptr<Shelf> rival = shelfAt( second );
   EXPECT_THROW( rival->bookControl()->initialize( ::Brane::tableWriter, 4, false ),
                 ::Brane::SecondWriterError );
   EXPECT_EQ( rival->bookControl()->mountStatus(), notMounted );
   rival->bookControl()->initialize( ::Brane::tableReader, 0, false );
   EXPECT_THROW( rival->bookIs( bookOf( 1 ) ), ::Brane::ReadOnlyError );
   EXPECT_THROW( rival->bookControl()->initialize( ::Brane::tableWriter, 4, false ),
                 ::Brane::TableError );
}

// Somebody else may have made the root first, to exchange the tables later.
TEST_F( EntityManager, WritesInNoDirectoryThatOthersRule ) {
   constexpr uid_t kStranger = 4242;
   Mox::Ptr<Shelf> shelf = shelfAt( manager );
   auto refused = [&]( const char* why ) {
      try {
         shelf->bookControl()->initialize( ::Brane::tableWriter, 4, false );
      } catch ( const ::Brane::CreateError& e ) {
         EXPECT_NE( Mox::String( e.what() ).find( root.path() ),
                    Mox::String::npos );
         EXPECT_NE( Mox::String( e.what() ).find( why ), Mox::String::npos )
            << e.what();
         return !shelf->book().mounted();
      }
      return false;
   };
   const Mox::String below = root.path() + "/house";
   ASSERT_EQ( mkdir( below.c_str(), 0777 ), 0 );
   for ( const Mox::String& directory : { root.path(), below } ) {
      chmod( directory.c_str(), 0777 );
      EXPECT_TRUE( refused( "everybody" ) );
      chmod( directory.c_str(), 0750 );
      // Only root can give files away.
      if ( chown( directory.c_str(), kStranger, -1U ) != 0 ) continue;
      EXPECT_TRUE( refused( "belongs to user 4242" ) );
      ASSERT_EQ( chown( directory.c_str(), geteuid(), -1U ), 0 );
   }
   rmdir( below.c_str() );
   ASSERT_EQ( symlink( "/dev/shm", below.c_str() ), 0 );
   const bool given = lchown( below.c_str(), kStranger, -1U ) == 0;
   EXPECT_TRUE( !given || refused( "belongs to user 4242" ) );
   unlink( below.c_str() );
   ASSERT_EQ( close( creat( below.c_str(), 0600 ) ), 0 );
   EXPECT_TRUE( refused( "not a directory" ) );
   unlink( below.c_str() );
   chmod( root.path().c_str(), 01777 );
   shelf->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   EXPECT_TRUE( shelf->book().mounted() );
   if ( !given ) GTEST_SKIP() << "other users' directories need root";
}

TEST_F( EntityManager, SuspendsReadersOnly ) {
   Mox::Ptr<Shelf> shelf = shelfAt( manager );
   shelf->bookControl()->initialize( ::Brane::tableReader, 0, true );
   EXPECT_FALSE( shelf->book().mounted() );
   EXPECT_EQ( shelf->bookControl()->mountStatus(), notMounted );
   shelf->bookControl()->initialize( ::Brane::tableWriter, 4, true );
   EXPECT_EQ( shelf->bookControl()->mountStatus(), mountReady );
}

TEST_F( EntityManager, MayGoBeforeItsEntities ) {
   auto brief =
      std::make_unique<Corvex::EntityManager>( clock, nullptr, root.path() );
   Mox::Ptr<Shelf> written = shelfAt( manager );
   written->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   Mox::Ptr<Shelf> read = shelfAt( *brief );
   read->bookControl()->initialize( ::Brane::tableReader, 0, false );
   brief->dispatch();
   brief.reset();
   EXPECT_EQ( read->manager(), nullptr );
   clock.advance( 1 );
   clock.runPass();
   read.reset();
}

TEST_F( EntityManager, ShowsReadersATableThatGoes ) {
   Corvex::EntityManager readers( clock, nullptr, root.path() );
   Mox::Ptr<Shelf> read = shelfAt( readers );
   ShelfRecorder recorder( read.get() );
   CollectionControl& control = *read->bookControl();
   control.initialize( ::Brane::tableReader, 0, false );
   EXPECT_EQ( control.mountStatus(), mountWaiting );
   Mox::Ptr<Shelf> written = shelfAt( manager );
   written->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   written->bookIs( bookOf( 1 ) );
   manager.dispatch();
   clock.advance( 0.01 );
   readers.dispatch();
   EXPECT_EQ( control.mountStatus(), mountReady );
   EXPECT_EQ( recorder.mounts, 1U );
   EXPECT_EQ( recorder.take(), ( std::vector<uint32_t>{ 1 } ) );
   manager.removeTables( kPath );
   clock.advance( 0.01 );
   readers.dispatch();
   EXPECT_EQ( control.mountStatus(), mountRemoved );
   EXPECT_EQ( recorder.take(), ( std::vector<uint32_t>{ 1 } ) );
   EXPECT_EQ( read->book().size(), 0U );
}

// A writer that goes and one that comes are told, and no key for it.
TEST_F( EntityManager, TellsReadersOfTheWritersEndAndReturn ) {
   auto agent =
      std::make_unique<Corvex::EntityManager>( clock, nullptr, root.path() );
   Mox::Ptr<Shelf> written = shelfAt( *agent );
   written->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   written->bookIs( bookOf( 1 ) );
   Corvex::EntityManager readers( clock, nullptr, root.path() );
   Mox::Ptr<Shelf> read = shelfAt( readers );
   CollectionControl& control = *read->bookControl();
   control.initialize( ::Brane::tableReader, 0, false );
   ShelfRecorder recorder( read.get() );
   auto listen = [&] {
      for ( int i = 0; i < 3; ++i ) {
         clock.advance( 0.01 );
         clock.runPass();
         readers.dispatch();
      }
   };
   listen();
   EXPECT_TRUE( control.writerAlive() );
   recorder.mounts = 0;

   written.reset();
   agent.reset();
   listen();
   EXPECT_FALSE( control.writerAlive() );
   EXPECT_EQ( control.mountStatus(), mountReady );
   EXPECT_EQ( recorder.mounts, 1U );

   written = shelfAt( manager );
   written->bookControl()->initialize( ::Brane::tableWriter, 4, false );
   listen();
   EXPECT_TRUE( control.writerAlive() );
   EXPECT_EQ( recorder.mounts, 2U );
   EXPECT_EQ( recorder.take(), std::vector<uint32_t>{} );
   EXPECT_EQ( read->book().size(), 1U );
}

}
}
