// A connection to an SQLite file, and its statements. One thread at a time.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Fleet {

class Database {
 public:
   enum Mode { readOnly, readWrite };

   // Throws StoreMissing without such a file, StoreRefuses if it may not be opened, and
   // what check() does.
   Database( const std::string& path, Mode mode );
   Database( const Database& ) = delete;
   Database& operator=( const Database& ) = delete;
   ~Database();

   const std::string& path() const { return path_; }
   void run( const char* sql );
   // Of a pragma or a count; 0 without a row.
   int64_t number( const char* sql );
   // Keeps the files of the log when the last connection closes, so that who may only
   // read can open the file later.
   void keepLog();

   // Throws the exception of an error: StoreAway where the same may succeed later.
   // Returns others.
   int check( int result ) const;

 private:
   friend class Statement;

   std::string path_;
   sqlite3* handle_ = nullptr;
};

// A prepared statement. Parameters are bound in order, then rows are fetched; text of a
// column stays until the next row.
class Statement {
 public:
   Statement( Database& database, const char* sql );
   Statement( const Statement& ) = delete;
   Statement& operator=( const Statement& ) = delete;
   ~Statement();

   // The text must stay until the statement has run.
   Statement& bind( std::string_view text );
   Statement& bind( int64_t number );
   // Is there another row? Without one the statement is as new.
   bool row();
   // Runs a statement that has no rows.
   void run() { row(); }
   std::string_view text( int column ) const;
   int64_t number( int column ) const;
   // Makes it as new before its last row.
   void reset();

 private:
   Database& database_;
   sqlite3_stmt* statement_ = nullptr;
   int bound_ = 0;
};

// Rolls back at its end unless it was committed.
class Transaction {
 public:
   explicit Transaction( Database& database );
   Transaction( const Transaction& ) = delete;
   Transaction& operator=( const Transaction& ) = delete;
   ~Transaction();

   void commit();

 private:
   Database& database_;
   bool open_ = true;
};

}
