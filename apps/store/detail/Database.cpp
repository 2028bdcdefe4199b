#include "apps/store/detail/Database.h"

#include <unistd.h>

#include <cerrno>

#include "apps/store/Store.h"

namespace Fleet {

namespace {

// A writer and a reader meet for moments only; more is an answer that fails.
constexpr int kPatience = 2000;  // ms

bool mayPass( int result ) {
   switch ( result & 0xff ) {
      case SQLITE_BUSY:
      case SQLITE_LOCKED:
      case SQLITE_FULL:
      case SQLITE_IOERR:
      case SQLITE_NOMEM:
      case SQLITE_PROTOCOL:
         return true;
      default:
         return false;
   }
}

}

Database::Database( const std::string& path, Mode mode ) : path_( path ) {
   if ( access( path.c_str(), F_OK ) != 0 && errno == ENOENT )
      throw StoreMissing( path + " is missing" );
   const int flags =
      mode == readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
   try {
      check( sqlite3_open_v2( path.c_str(), &handle_, flags, nullptr ) );
      check( sqlite3_busy_timeout( handle_, kPatience ) );
      // A file is untrusted: it may say anything, and must not run anything.
      check( sqlite3_db_config( handle_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr ) );
      check(
         sqlite3_db_config( handle_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr ) );
   } catch ( ... ) {
      sqlite3_close( handle_ );
      throw;
   }
}

Database::~Database() {
   sqlite3_close( handle_ );
}

int Database::check( int result ) const {
   if ( result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE )
      return result;
   const std::string text =
      path_ + ": " +
      ( handle_ != nullptr ? sqlite3_errmsg( handle_ ) : sqlite3_errstr( result ) );
   if ( mayPass( result ) ) throw StoreAway( text );
   if ( ( result & 0xff ) == SQLITE_NOTADB || ( result & 0xff ) == SQLITE_CORRUPT )
      throw StoreFormat( text );
   throw StoreRefuses( text );
}

void Database::run( const char* sql ) {
   check( sqlite3_exec( handle_, sql, nullptr, nullptr, nullptr ) );
}

int64_t Database::number( const char* sql ) {
   Statement statement( *this, sql );
   return statement.row() ? statement.number( 0 ) : 0;
}

void Database::keepLog() {
   int on = 1;
   check( sqlite3_file_control( handle_, "main", SQLITE_FCNTL_PERSIST_WAL, &on ) );
}

Statement::Statement( Database& database, const char* sql )
   : database_( database ) {
   database_.check(
      sqlite3_prepare_v2( database_.handle_, sql, -1, &statement_, nullptr ) );
}

Statement::~Statement() {
   sqlite3_finalize( statement_ );
}

Statement& Statement::bind( std::string_view text ) {
   database_.check( sqlite3_bind_text64( statement_, ++bound_, text.data(),
                                         text.size(), SQLITE_STATIC,
                                         SQLITE_UTF8 ) );
   return *this;
}

Statement& Statement::bind( int64_t number ) {
   database_.check( sqlite3_bind_int64( statement_, ++bound_, number ) );
   return *this;
}

bool Statement::row() {
   const int result = sqlite3_step( statement_ );
   if ( result == SQLITE_ROW ) return true;
   reset();
   database_.check( result );
   return false;
}

void Statement::reset() {
   sqlite3_reset( statement_ );
   bound_ = 0;
}

std::string_view Statement::text( int column ) const {
   const auto* bytes = sqlite3_column_text( statement_, column );
   if ( bytes == nullptr ) return {};
   return { reinterpret_cast<const char*>( bytes ),
            static_cast<size_t>( sqlite3_column_bytes( statement_, column ) ) };
}

int64_t Statement::number( int column ) const {
   return sqlite3_column_int64( statement_, column );
}

Transaction::Transaction( Database& database ) : database_( database ) {
   database_.run( "BEGIN IMMEDIATE" );
}

Transaction::~Transaction() {
   // An error may have rolled back already: then there is nothing to do.
   if ( !open_ ) return;
   try {
      database_.run( "ROLLBACK" );
   } catch ( const Mox::Error& ) {
      return;
   }
}

void Transaction::commit() {
   database_.run( "COMMIT" );
   open_ = false;
}

}
