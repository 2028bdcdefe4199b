#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <sstream>

#include "apps/store/Names.h"
#include "apps/store/detail/SqliteStore.h"

namespace Fleet {

namespace {

constexpr mode_t kMode = 0640;

std::string becauseOf( const std::string& path, int error ) {
   return path + ": " + std::strerror( error );
}

[[noreturn]] void cannotOpen( const std::string& path, int error ) {
   if ( error == ENOSPC || error == EDQUOT || error == EIO || error == EMFILE ||
        error == ENFILE )
      throw StoreAway( becauseOf( path, error ) );
   throw StoreRefuses( becauseOf( path, error ) );
}

struct flock wholeFile() {
   struct flock range {};
   range.l_type = F_WRLCK;
   range.l_whence = SEEK_SET;
   return range;
}

// A line of the file: the process that holds it, then its run.
std::string lineOf( int fd, int line ) {
   std::array<char, 256> text{};
   if ( pread( fd, text.data(), text.size() - 1, 0 ) <= 0 ) return "";
   std::istringstream lines( text.data() );
   std::string out;
   while ( line-- >= 0 ) std::getline( lines, out );
   return out;
}

// Calls with the file where a process holds it.
template <class Call>
void ifHeld( const std::string& path, const Call& call ) {
   const int fd = open( path.c_str(), O_RDONLY | O_CLOEXEC );
   if ( fd < 0 ) return;
   struct flock range = wholeFile();
   range.l_type = F_RDLCK;
   if ( fcntl( fd, F_OFD_GETLK, &range ) == 0 && range.l_type != F_UNLCK )
      call( fd );
   close( fd );
}

// The file must be there first, with its mode, which SQLite gives to those beside it.
uint64_t makeFile( const std::string& path ) {
   const int fd = open( path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode );
   if ( fd < 0 ) cannotOpen( path, errno );
   struct stat status {};
   fstat( fd, &status );
   close( fd );
   return status.st_ino;
}

constexpr const char* kTables =
   "CREATE TABLE meta(name TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID;"
   "CREATE TABLE state(key TEXT PRIMARY KEY, value TEXT, digest INTEGER)"
   " WITHOUT ROWID;"
   "CREATE TABLE change(id INTEGER PRIMARY KEY, at INTEGER, vrf TEXT,"
   " version INTEGER, grp TEXT, src TEXT, op TEXT, body TEXT);"
   "CREATE INDEX change_group ON change(grp, at);"
   "CREATE INDEX change_at ON change(at);"
   "PRAGMA user_version=1";
static_assert( storeFormat == 1 );

}

FileLease::FileLease( const std::string& path, const std::string& instance )
   : path_( path ),
     fd_( open( path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kMode ) ) {
   if ( fd_ < 0 ) cannotOpen( path, errno );
   struct flock range = wholeFile();
   if ( fcntl( fd_, F_OFD_SETLK, &range ) != 0 ) {
      const std::string holder = lineOf( fd_, 0 );
      close( fd_ );
      throw StoreHeld( fmt::format( "{}: {} records this router", path, holder ) );
   }
   const std::string text =
      fmt::format( "process {} on {}\n{}\n", getpid(), hostRouter(), instance );
   // What a longer text leaves behind these lines is not read.
   if ( pwrite( fd_, text.data(), text.size(), 0 ) < 0 ) {
      // The lock holds all the same; only its holder's name is missing.
   }
}

FileLease::~FileLease() {
   close( fd_ );
}

bool FileLease::stands() const {
   struct stat own {
   }, named{};
   return fstat( fd_, &own ) == 0 && stat( path_.c_str(), &named ) == 0 &&
          own.st_ino == named.st_ino && own.st_dev == named.st_dev;
}

void FileLease::beat() const {
   futimens( fd_, nullptr );
}

// A clock that was set back makes a time of the future, which says nothing.
bool FileLease::held( const std::string& path ) {
   bool held = false;
   ifHeld( path, [&]( int fd ) {
      struct stat status {};
      fstat( fd, &status );
      const double age = std::difftime( std::time( nullptr ), status.st_mtime );
      held = age < lifetime;
   } );
   return held;
}

std::string FileLease::instance( const std::string& path ) {
   std::string instance;
   ifHeld( path, [&]( int fd ) { instance = lineOf( fd, 1 ); } );
   return instance;
}

SqliteWriter::SqliteWriter( const std::string& directory, const std::string& router,
                            const std::string& instance, const Keeping& keeping )
   : directory_( directory ),
     router_( router ),
     instance_( instance ),
     path_( directory + '/' + router + ".sqlite" ),
     keeping_( keeping ) {
   open();
}

// The mode is given, whatever the process's mask is at the moment.
void SqliteWriter::makeDirectory() const {
   constexpr mode_t kDirectory = 0750;
   if ( mkdir( directory_.c_str(), kDirectory ) == 0 || errno == EEXIST ) return;
   if ( errno != ENOENT ) cannotOpen( directory_, errno );
   const auto parent = std::filesystem::path( directory_ ).parent_path();
   std::error_code error;
   std::filesystem::create_directories( parent, error );
   if ( error ) throw StoreRefuses( parent.string() + ": " + error.message() );
   if ( mkdir( directory_.c_str(), kDirectory ) != 0 && errno != EEXIST )
      cannotOpen( directory_, errno );
}

void SqliteWriter::open() {
   database_.reset();
   makeDirectory();
   if ( !lease_ || !lease_->stands() ) {
      lease_.reset();
      lease_.emplace( directory_ + '/' + router_ + ".lock", instance_ );
   }
   inode_ = makeFile( path_ );
   database_.emplace( path_, Database::readWrite );
   Database& database = *database_;
   const int64_t format = database.number( "PRAGMA user_version" );
   if ( format > storeFormat )
      throw StoreFormat( fmt::format( "{} has format {}, and this program knows {}",
                                      path_, format, storeFormat ) );
   database.number( "PRAGMA journal_mode=WAL" );
   database.run( "PRAGMA synchronous=NORMAL" );
   database.keepLog();
   if ( format == storeFormat ) return;
   Transaction transaction( database );
   database.run( kTables );
   transaction.commit();
}

void SqliteWriter::followFile() {
   struct stat status {};
   const bool there = stat( path_.c_str(), &status ) == 0;
   if ( there && status.st_ino == inode_ && lease_ && lease_->stands() ) return;
   open();
   throw StoreAway( path_ + " has been replaced" );
}

std::map<std::string, Writer::Standing> SqliteWriter::standing() {
   std::map<std::string, Standing> all;
   Statement select( *database_, "SELECT key, value, digest FROM state" );
   while ( select.row() )
      all[std::string( select.text( 0 ) )] = {
         static_cast<uint64_t>( select.number( 2 ) ), Packed( select.text( 1 ) ) };
   return all;
}

void SqliteWriter::writeEvents( const std::vector<Event>& events ) {
   if ( events.empty() ) return;
   Statement insert( *database_,
                     "INSERT INTO change(at, vrf, version, grp, src, op, body)"
                     " VALUES(?,?,?,?,?,?,?)" );
   for ( const Event& event : events ) {
      insert.bind( event.at ).bind( event.vrf ).bind( int64_t{ event.ipVersion } );
      insert.bind( event.group ).bind( event.source );
      insert.bind( event.op ).bind( event.body ).run();
   }
}

void SqliteWriter::writeState( const std::vector<Put>& puts ) {
   Statement insert( *database_,
                     "INSERT OR REPLACE INTO state(key, value, digest)"
                     " VALUES(?,?,?)" );
   Statement remove( *database_, "DELETE FROM state WHERE key=?" );
   for ( const Put& put : puts ) {
      if ( !put.value ) {
         remove.bind( put.key ).run();
      } else {
         insert.bind( put.key ).bind( *put.value );
         insert.bind( static_cast<int64_t>( put.digest ) ).run();
      }
   }
}

std::vector<std::string> SqliteWriter::write( const std::vector<Event>& events,
                                              const std::vector<Put>& puts ) {
   followFile();
   Transaction transaction( *database_ );
   writeEvents( events );
   writeState( puts );
   transaction.commit();
   lease_->beat();
   return {};
}

void SqliteWriter::beat() {
   followFile();
   lease_->beat();
}

bool SqliteWriter::prune( int64_t now ) {
   constexpr int64_t kSome = 1000;  // rows
   const auto oldest = now - static_cast<int64_t>( keeping_.age * 1000 );
   const int64_t used = ( database_->number( "PRAGMA page_count" ) -
                          database_->number( "PRAGMA freelist_count" ) ) *
                        database_->number( "PRAGMA page_size" );
   const bool tooMuch = static_cast<uint64_t>( used ) > keeping_.bytes;
   Transaction transaction( *database_ );
   Statement old( *database_,
                  "DELETE FROM change WHERE id IN"
                  " (SELECT id FROM change WHERE at < ? ORDER BY at LIMIT ?)" );
   old.bind( oldest ).bind( kSome ).run();
   const int64_t aged = database_->number( "SELECT changes()" );
   int64_t first = 0;
   if ( tooMuch && aged == 0 ) {
      Statement most( *database_,
                      "DELETE FROM change WHERE id IN"
                      " (SELECT id FROM change ORDER BY id LIMIT ?)" );
      most.bind( kSome ).run();
      first = database_->number( "SELECT changes()" );
   }
   transaction.commit();
   return aged == kSome || first == kSome;
}

}
