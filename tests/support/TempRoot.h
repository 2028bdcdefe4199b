// A directory for shared-memory tables that is removed with the test.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Mox::Test {

class TempRoot {
 public:
   TempRoot() : TempRoot( InDirectory{ "/dev/shm" } ) {}
   struct InDirectory {
      std::string path;
   };
   explicit TempRoot( const InDirectory& in )
      : path_( in.path + "/pimsm-test-XXXXXX" ) {
      if ( mkdtemp( path_.data() ) == nullptr ) {
         throw std::runtime_error( "cannot make a directory under " + in.path );
      }
   }
   // One that somebody else removes as well, should this process be killed.
   explicit TempRoot( const std::string& path ) : path_( path ) {
      std::filesystem::create_directory( path );
   }
   ~TempRoot() {
      std::error_code ignored;
      std::filesystem::remove_all( path_, ignored );
   }
   TempRoot( const TempRoot& ) = delete;
   TempRoot& operator=( const TempRoot& ) = delete;

   const std::string& path() const { return path_; }

 private:
   std::string path_;
};

}
