#include "apps/program/Output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "apps/program/Ending.h"

namespace Programs {

namespace {

bool writeAll( int file, const std::string& text ) {
   size_t done = 0;
   while ( done < text.size() ) {
      ssize_t count = write( file, text.data() + done, text.size() - done );
      if ( count < 0 ) return false;
      done += static_cast<size_t>( count );
   }
   return true;
}

// The path that a link leads to.
std::string targetOf( const std::string& path ) {
   struct stat status;
   if ( lstat( path.c_str(), &status ) != 0 || !S_ISLNK( status.st_mode ) )
      return path;
   const std::unique_ptr<char, decltype( &std::free )> target(
      realpath( path.c_str(), nullptr ), &std::free );
   if ( target == nullptr ) cannotWrite( path );
   return target.get();
}

// Nothing without a file. Throws for a file that must not be replaced.
std::optional<struct stat> standing( const std::string& path ) {
   struct stat status;
   if ( stat( path.c_str(), &status ) != 0 ) return std::nullopt;
   // True for /dev/stdout: the process that redirected it holds the file itself.
   struct stat output;
   const bool standardOutput = fstat( STDOUT_FILENO, &output ) == 0 &&
                               output.st_dev == status.st_dev &&
                               output.st_ino == status.st_ino;
   if ( S_ISREG( status.st_mode ) && !standardOutput ) return status;
   throw WrongUsage(
      "cannot replace " + path +
      ": it is no file of its own; without --output the text goes to "
      "standard output" );
}

mode_t modeOfNewFiles() {
   const mode_t mask = umask( 0 );
   umask( mask );
   return 0666 & ~mask;
}

// Sets the former file's mode and, where permitted, its owner.
bool dress( int file, const std::optional<struct stat>& former ) {
   if ( !former ) return fchmod( file, modeOfNewFiles() ) == 0;
   if ( fchown( file, former->st_uid, former->st_gid ) != 0 && errno != EPERM )
      return false;
   return fchmod( file, former->st_mode & 0777 ) == 0;
}

// A temporary file beside the path, to replace it; removed unless it has.
class Fresh {
 public:
   explicit Fresh( const std::string& path )
      : path_( path + ".XXXXXX" ), file_( mkstemp( path_.data() ) ) {
      if ( file_ < 0 ) cannotWrite( path );
   }
   ~Fresh() {
      if ( file_ >= 0 ) close( file_ );
      if ( !path_.empty() ) unlink( path_.c_str() );
   }
   Fresh( const Fresh& ) = delete;
   Fresh& operator=( const Fresh& ) = delete;

   int file() const { return file_; }
   bool take( const std::string& path ) {
      if ( close( std::exchange( file_, -1 ) ) != 0 ||
           rename( path_.c_str(), path.c_str() ) != 0 )
         return false;
      path_.clear();
      return true;
   }

 private:
   std::string path_;
   int file_;
};

}

void cannotWrite( const std::string& what, int error ) {
   std::string text = "cannot write " + what;
   if ( error != 0 ) text += std::string( ": " ) + std::strerror( error );
   throw OutputError( text );
}

void flushOutput() {
   if ( !std::cout.flush() ) cannotWrite( "the output", 0 );
}

void replaceFile( const std::string& path, const std::string& text ) {
   const std::string target = targetOf( path );
   const auto former = standing( target );
   Fresh fresh( target );
   if ( !dress( fresh.file(), former ) || !writeAll( fresh.file(), text ) ||
        !fresh.take( target ) )
      cannotWrite( path );
}

}
