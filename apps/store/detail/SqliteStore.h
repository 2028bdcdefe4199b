// The store in a directory: ROUTER.sqlite holds a router's state and history,
// ROUTER.lock says who records it.
//
//    meta(name, value)
//    state(key, value, digest)
//    change(id, at, vrf, version, grp, src, op, body)
//
// PRAGMA user_version is the format.
#pragma once

#include <optional>

#include "apps/store/Store.h"
#include "apps/store/detail/Database.h"

namespace Fleet {

// A recorder's right to a router: a lock that ends with the process.
class FileLease {
 public:
   // Throws StoreHeld if another process has it, StoreRefuses if the file may not be
   // made.
   FileLease( const std::string& path, const std::string& instance );
   FileLease( const FileLease& ) = delete;
   FileLease& operator=( const FileLease& ) = delete;
   ~FileLease();

   // Is it still the file of that name?
   bool stands() const;
   // Marks the time.
   void beat() const;
   // Does any process hold the lease of the file, and has it lately said so?
   static bool held( const std::string& path );
   // The run of that process; empty: none holds it.
   static std::string instance( const std::string& path );

 private:
   static constexpr double lifetime = 15.0;  // s

   std::string path_;
   int fd_;
};

class SqliteWriter : public Writer {
 public:
   SqliteWriter( const std::string& directory, const std::string& router,
                 const std::string& instance, const Keeping& keeping );

   std::map<std::string, Standing> standing() override;
   std::vector<std::string> write( const std::vector<Event>& events,
                                   const std::vector<Put>& puts ) override;
   void beat() override;
   bool prune( int64_t now ) override;

 private:
   // Makes the directory unless it is there.
   void makeDirectory() const;
   void open();
   // Takes the lease and opens the file anew where others, or none, have taken their
   // places.
   void followFile();
   void writeEvents( const std::vector<Event>& events );
   void writeState( const std::vector<Put>& puts );

   std::string directory_, router_, instance_;
   std::string path_;
   Keeping keeping_;
   std::optional<FileLease> lease_;
   std::optional<Database> database_;
   uint64_t inode_ = 0;
};

class SqliteReader : public Reader {
 public:
   explicit SqliteReader( std::string directory );

   std::vector<std::string> routers() override;
   bool lives( const std::string& router ) override;
   std::string instance( const std::string& router ) override;
   std::map<std::string, std::string> values(
      const std::string& router, const std::vector<std::string>& keys ) override;
   void each( const std::string& router, const std::string& prefix,
              const std::function<void( const std::string&, const std::string& )>&
                 call ) override;
   void history( const std::string& router, const Past& past,
                 const std::function<void( const Event& )>& call ) override;
   int64_t newest( const std::string& router ) override;
   std::unique_ptr<Bell> bell( const Scope& scope,
                               const Vantu::IpGenAddr& group ) override;
   void forget( const std::string& router ) override;

 private:
   static constexpr size_t maxOpen = 100;  // files

   std::string path( const std::string& router, const char* ending ) const;
   // The open file of that name, another one if another one took its place.
   Database& database( const std::string& router );

   std::string directory_;
   struct Opened {
      Opened( const std::string& path, uint64_t file )
         : database( path, Database::readOnly ), inode( file ) {}
      Database database;
      uint64_t inode;
   };
   std::map<std::string, Opened> open_;
};

}
