#include "apps/program/Output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/support/ErrorText.h"
#include "tests/support/TempRoot.h"

namespace Programs {
namespace {

TEST( Output, FilesAreReplacedAsTheyStand ) {
   namespace fs = std::filesystem;
   const Mox::Test::TempRoot directory;
   const fs::path root = directory.path();
   const auto textOf = []( const fs::path& path ) {
      std::ifstream file( path );
      return std::string( std::istreambuf_iterator<char>( file ), {} );
   };
   const mode_t mask = umask( 027 );
   replaceFile( root / "new", "1" );
   umask( mask );
   EXPECT_EQ( fs::status( root / "new" ).permissions(), fs::perms( 0640 ) );
   fs::permissions( root / "new", fs::perms( 0600 ) );
   fs::create_symlink( "new", root / "link" );
   replaceFile( root / "link", "2" );
   EXPECT_TRUE( fs::is_symlink( root / "link" ) );
   EXPECT_EQ( textOf( root / "new" ), "2" );
   EXPECT_EQ( fs::status( root / "new" ).permissions(), fs::perms( 0600 ) );
   fs::create_directory( root / "directory" );
   mkfifo( ( root / "fifo" ).c_str(), 0600 );
   fs::create_symlink( "nothing", root / "dangling" );
   for ( const char* name : { "fifo", "dangling", "directory", "no/file" } )
      EXPECT_THROW( replaceFile( root / name, "3" ), Mox::Error ) << name;
   EXPECT_NE( Mox::Test::errorText<Mox::Error>( [&] {
                 replaceFile( root / "no/file", "3" );
              } ).find( "No such file" ),
              std::string::npos );
   // Standard output's own file is not replaced, others on its device are.
   const int kept = dup( STDOUT_FILENO );
   const int own = creat( ( root / "own" ).c_str(), 0600 );
   dup2( own, STDOUT_FILENO );
   EXPECT_THROW( replaceFile( root / "own", "4" ), Mox::Error );
   EXPECT_NO_THROW( replaceFile( root / "new", "4" ) );
   dup2( kept, STDOUT_FILENO );
   close( own );
   close( kept );
   fs::remove( root / "own" );
   EXPECT_TRUE( fs::is_fifo( root / "fifo" ) );
   EXPECT_TRUE( fs::is_symlink( root / "dangling" ) );
   EXPECT_EQ( std::distance( fs::directory_iterator( root ), {} ), 5 )
      << "nothing is left beside them";
}

}
}
