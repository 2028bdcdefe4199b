#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

#include "apps/store/Names.h"
#include "apps/store/detail/SqliteStore.h"

namespace Fleet {

namespace fs = std::filesystem;

namespace {

// Every commit writes to a log beside the file, or moves it into the file: the times of
// both tell of all that is written, whoever has the file open.
class FileBell : public Bell {
 public:
   explicit FileBell( std::string directory )
      : directory_( std::move( directory ) ) {}

   bool rang() override {
      Times times;
      std::error_code error;
      for ( const auto& entry : fs::directory_iterator( directory_, error ) ) {
         struct stat status {};
         const std::string path = entry.path().string();
         if ( path.ends_with( ".lock" ) || path.ends_with( "-shm" ) ||
              stat( path.c_str(), &status ) != 0 )
            continue;
         times[path] = { int64_t( status.st_ino ), status.st_size,
                         status.st_mtim.tv_sec, status.st_mtim.tv_nsec };
      }
      return times != std::exchange( times_, times );
   }

 private:
   using Times = std::map<std::string, std::array<int64_t, 4>>;

   std::string directory_;
   std::optional<Times> times_;
};

}

SqliteReader::SqliteReader( std::string directory )
   : directory_( std::move( directory ) ) {}

std::string SqliteReader::path( const std::string& router,
                                const char* ending ) const {
   return directory_ + '/' + router + ending;
}

std::vector<std::string> SqliteReader::routers() {
   std::error_code error;
   const fs::directory_iterator all( directory_, error );
   if ( error )
      throw StoreMissing( directory_ + ": " + error.message() +
                          ": start pimsm-record, or name its --store" );
   std::vector<std::string> names;
   for ( const auto& entry : all ) {
      if ( entry.path().extension() == ".sqlite" &&
           isName( entry.path().stem().string() ) )
         names.push_back( entry.path().stem().string() );
   }
   std::sort( names.begin(), names.end() );
   return names;
}

Database& SqliteReader::database( const std::string& router ) {
   if ( !isName( router ) ) throw StoreMissing( "No router has such a name" );
   const std::string file = path( router, ".sqlite" );
   struct stat status {};
   const uint64_t inode =
      stat( file.c_str(), &status ) == 0 ? uint64_t{ status.st_ino } : 0;
   const auto found = open_.find( router );
   if ( found != open_.end() && found->second.inode == inode )
      return found->second.database;
   open_.erase( router );
   if ( open_.size() == maxOpen ) open_.clear();
   Database& opened =
      open_.try_emplace( router, file, inode ).first->second.database;
   const int64_t format = opened.number( "PRAGMA user_version" );
   if ( format == storeFormat ) return opened;
   open_.erase( router );
   if ( format == 0 ) throw StoreMissing( router + " has no state yet" );
   throw StoreFormat( fmt::format( "{} has format {}, and this program knows {}",
                                   file, format, storeFormat ) );
}

bool SqliteReader::lives( const std::string& router ) {
   return FileLease::held( path( router, ".lock" ) );
}

std::string SqliteReader::instance( const std::string& router ) {
   return FileLease::instance( path( router, ".lock" ) );
}

std::map<std::string, std::string> SqliteReader::values(
   const std::string& router, const std::vector<std::string>& keys ) {
   std::map<std::string, std::string> found;
   Statement select( database( router ), "SELECT value FROM state WHERE key=?" );
   for ( const std::string& key : keys ) {
      select.bind( key );
      if ( select.row() ) found[key] = select.text( 0 );
      select.reset();
   }
   return found;
}

void SqliteReader::each(
   const std::string& router, const std::string& prefix,
   const std::function<void( const std::string&, const std::string& )>& call ) {
   Statement select( database( router ),
                     "SELECT key, value FROM state WHERE key >= ? AND key < ?"
                     " ORDER BY key" );
   // No key holds a byte above the letters.
   const std::string end = prefix + '\x7f';
   select.bind( prefix ).bind( end );
   while ( select.row() )
      call( std::string( select.text( 0 ) ), std::string( select.text( 1 ) ) );
}

void SqliteReader::history( const std::string& router, const Past& past,
                            const std::function<void( const Event& )>& call ) {
   std::string sql =
      "SELECT id, at, vrf, version, grp, src, op, body FROM change"
      " WHERE at >= ? AND at <= ?";
   if ( past.after != 0 ) sql += " AND id > ?";
   if ( !past.group.empty() ) sql += " AND grp = ?";
   if ( !past.source.empty() ) sql += " AND (src = ? OR src = '*')";
   if ( !past.vrf.empty() ) sql += " AND vrf = ?";
   if ( past.ipVersion != 0 ) sql += " AND version = ?";
   Statement select(
      database( router ),
      ( sql + ( past.after != 0 ? " ORDER BY id" : " ORDER BY at, id" ) ).c_str() );
   select.bind( past.since ).bind( past.until );
   if ( past.after != 0 ) select.bind( past.after );
   if ( !past.group.empty() ) select.bind( past.group );
   if ( !past.source.empty() ) select.bind( past.source );
   if ( !past.vrf.empty() ) select.bind( past.vrf );
   if ( past.ipVersion != 0 ) select.bind( int64_t{ past.ipVersion } );
   while ( select.row() )
      call( { select.number( 0 ), select.number( 1 ),
              std::string( select.text( 2 ) ),
              static_cast<uint32_t>( select.number( 3 ) ),
              std::string( select.text( 4 ) ), std::string( select.text( 5 ) ),
              std::string( select.text( 6 ) ), std::string( select.text( 7 ) ) } );
}

int64_t SqliteReader::newest( const std::string& router ) {
   return database( router ).number( "SELECT max(id) FROM change" );
}

std::unique_ptr<Bell> SqliteReader::bell( const Scope&, const Vantu::IpGenAddr& ) {
   return std::make_unique<FileBell>( directory_ );
}

void SqliteReader::forget( const std::string& router ) {
   if ( !isName( router ) ) throw StoreMissing( "No router has such a name" );
   const std::string file = path( router, ".sqlite" );
   if ( access( file.c_str(), F_OK ) != 0 )
      throw StoreMissing( file + " is missing" );
   const FileLease lease( path( router, ".lock" ), "" );
   open_.erase( router );
   for ( const char* ending :
         { ".sqlite-wal", ".sqlite-shm", ".lock", ".sqlite" } ) {
      std::error_code error;
      fs::remove( path( router, ending ), error );
      if ( error )
         throw StoreRefuses( path( router, ending ) + ": " + error.message() );
   }
}

}
