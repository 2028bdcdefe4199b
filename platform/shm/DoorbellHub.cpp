#include "platform/shm/DoorbellHub.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <limits>
#include <utility>
#include <vector>

#include "platform/shm/TableFiles.h"

namespace Brane {

namespace {

constexpr double never = std::numeric_limits<double>::infinity();
// A dying writer's bell rings just before the kernel releases its lock.
constexpr double afterDeath = 0.01;  // s

// A ring is a write; the writer's end closes the bell.
constexpr uint32_t bellMask = IN_MODIFY | IN_CLOSE_WRITE | IN_DELETE_SELF;
constexpr uint32_t directoryMask = IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM |
                                   IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF |
                                   IN_ONLYDIR;

Mox::String directoryOf( const Mox::String& path ) {
   size_t slash = path.rfind( '/' );
   if ( slash == Mox::String::npos ) return ".";
   return slash ? path.substr( 0, slash ) : "/";
}

Mox::String nameOf( const Mox::String& path ) {
   return path.substr( path.rfind( '/' ) + 1 );
}

bool isMissing( int error ) {
   return error == ENOENT || error == ENOTDIR;
}

}

struct DoorbellHub::Table {
   TableFiles files;
   Callback callback;
   bool filesOnly = false;
   bool above = false;  // no table, but a directory above some
   Id id = 0;
   int bell = -1;       // watch; -1 while there is none
   int directory = -1;  // watch of the table's directory or an ancestor of it
   std::vector<Mox::String> names = {};  // the entries there that count
   bool nearest = false;                 // the directory itself
   bool rung = false;
   Ring why = bellRang;
   bool died = false;  // a writer's end of the bell was closed
   bool removed = false;
   double called = -never;
   double recall = never;  // to be called again then, rung or not
};

DoorbellHub::DoorbellHub( bool useInotify )
   : fd_( useInotify ? inotify_init1( IN_NONBLOCK | IN_CLOEXEC ) : -1 ),
     lastFallback_( -never ) {}

DoorbellHub::~DoorbellHub() {
   if ( fd_ >= 0 ) close( fd_ );
}

bool DoorbellHub::fallback() const {
   return fd_ < 0 ? !tables_.empty() : !blind_.empty();
}

DoorbellHub::Id DoorbellHub::add( const Mox::String& path, const Mox::String& seat,
                                  Callback callback ) {
   return add( std::make_shared<Table>( Table{
      .files = TableFiles( path, seat ), .callback = std::move( callback ) } ) );
}

DoorbellHub::Id DoorbellHub::addFiles( const Mox::String& path,
                                       const Mox::String& seat,
                                       Callback callback ) {
   return add( std::make_shared<Table>( Table{ .files = TableFiles( path, seat ),
                                               .callback = std::move( callback ),
                                               .filesOnly = true } ) );
}

DoorbellHub::Id DoorbellHub::addAbove( const Mox::String& directory ) {
   auto above = std::make_shared<Table>( Table{ .files = TableFiles( directory ),
                                                .callback = {},
                                                .filesOnly = true,
                                                .above = true } );
   const Id id = add( above );
   waiting_.erase( id );
   return id;
}

DoorbellHub::Id DoorbellHub::add( std::shared_ptr<Table> table ) {
   table->id = ++lastId_;
   tables_.emplace( table->id, table );
   arm( *table );
   return table->id;
}

void DoorbellHub::remove( Id id ) {
   auto found = tables_.find( id );
   if ( found == tables_.end() ) return;
   auto table = found->second;
   table->removed = true;
   tables_.erase( found );
   waiting_.erase( id );
   blind_.erase( id );
   bellIs( *table, -1 );
   directoryIs( *table, -1, {} );
}

void DoorbellHub::lookAtAll() {
   for ( auto& [id, table] : tables_ ) {
      armAnew( *table );
      // All tables are looked at already; they would ring each other for ever.
      if ( table->above ) waiting_.erase( id );
   }
}

void DoorbellHub::ring( Table& table, Ring why ) {
   table.why = table.rung ? std::max( table.why, why ) : why;
   table.rung = true;
   waiting_.insert( table.id );
}

void DoorbellHub::bellIs( Table& table, int watch ) {
   const int former = std::exchange( table.bell, watch );
   if ( former == watch ) return;
   if ( watch >= 0 ) bells_[watch].push_back( &table );
   auto found = bells_.find( former );
   if ( found == bells_.end() ) return;
   std::erase( found->second, &table );
   if ( found->second.empty() ) bells_.erase( found );
   dropWatch( former );
}

void DoorbellHub::directoryIs( Table& table, int watch,
                               std::vector<Mox::String> names ) {
   const int former = std::exchange( table.directory, watch );
   if ( former == watch && names == table.names ) return;
   for ( const Mox::String& name : std::exchange( table.names, names ) ) {
      auto found = names_.find( { former, name } );
      if ( found == names_.end() ) continue;
      std::erase( found->second, &table );
      if ( found->second.empty() ) names_.erase( found );
   }
   for ( const Mox::String& name : names )
      if ( watch >= 0 ) names_[{ watch, name }].push_back( &table );
   if ( former != watch ) dropWatch( former );
}

// The kernel gives one watch per file: others may share it.
void DoorbellHub::dropWatch( int watch ) {
   if ( watch < 0 || bells_.count( watch ) != 0 ) return;
   auto found = names_.lower_bound( { watch, "" } );
   if ( found != names_.end() && found->first.first == watch ) return;
   inotify_rm_watch( fd_, watch );
}

// Sets the watches that can be set. Every arming rings, so the call that follows
// finds whatever happened before. The directory first: a bell made after the look for
// it is an event there. Without a bell file under the name, the writer may still ring
// the former one.
void DoorbellHub::arm( Table& table ) {
   ring( table, lookAgain );
   if ( fd_ < 0 ) return;
   if ( !table.nearest ) watchDirectory( table );
   bool refused = table.directory < 0;
   if ( !table.filesOnly ) {
      const int bell = watchBell( table );
      refused = refused || ( bell < 0 && !isMissing( errno ) );
      if ( bell >= 0 ) bellIs( table, bell );
   }
   if ( refused ) {
      blind_.insert( table.id );
   } else {
      blind_.erase( table.id );
   }
}

// The directory may be another one, or none: after lost events any watched file may
// have moved or gone.
void DoorbellHub::armAnew( Table& table ) {
   table.nearest = false;
   arm( table );
}

int DoorbellHub::watchBell( const Table& table ) const {
   return inotify_add_watch( fd_, table.files.bell().c_str(), bellMask );
}

// A directory made between the look for it and the watch of its parent rings
// nothing. A walk that ends at the watch of the one before has looked below it while it
// was watched. The watch and not the path: a directory made again is another one.
void DoorbellHub::watchDirectory( Table& table ) {
   int former;
   do {
      former = table.directory;
      watchNearest( table );
   } while ( !table.nearest && table.directory >= 0 && table.directory != former );
}

// Watches the table's directory, or its nearest existing ancestor.
void DoorbellHub::watchNearest( Table& table ) {
   std::vector<Mox::String> names{ nameOf( table.files.table ),
                                   nameOf( table.files.bell() ) };
   if ( table.filesOnly ) names.push_back( nameOf( table.files.lock() ) );
   Mox::String directory = directoryOf( table.files.table );
   for ( bool nearest = true;; nearest = false ) {
      const int watch = inotify_add_watch( fd_, directory.c_str(), directoryMask );
      const bool missing = watch < 0 && isMissing( errno );
      if ( !missing || directory == "/" || directory == "." ) {
         table.nearest = nearest && watch >= 0;
         return directoryIs( table, watch, std::move( names ) );
      }
      names = { nameOf( directory ) };
      directory = directoryOf( directory );
   }
}

void DoorbellHub::readEvents() {
   alignas( inotify_event ) char buffer[16384];
   // A read with room left for one more event has taken all events.
   constexpr ssize_t room = sizeof( inotify_event ) + NAME_MAX + 1;
   ssize_t got;
   do {
      got = read( fd_, buffer, sizeof( buffer ) );
      Mox::StringView left( buffer,
                            static_cast<size_t>( std::max<ssize_t>( got, 0 ) ) );
      while ( !left.empty() ) {
         auto* event = reinterpret_cast<const inotify_event*>( left.data() );
         handleEvent( event->wd, event->mask, event->len ? event->name : "" );
         left.remove_prefix( sizeof( inotify_event ) + event->len );
      }
   } while ( got > ssize_t( sizeof( buffer ) ) - room );
}

// Those whose directory, or the nearest one above it, has the watch, and that wait
// for the name; with an empty name all of them. A copy: handling changes the index.
DoorbellHub::Tables DoorbellHub::expecting( int watch, const char* name ) const {
   if ( *name ) {
      auto found = names_.find( { watch, name } );
      return found == names_.end() ? Tables() : found->second;
   }
   std::set<Table*> all;
   for ( auto each = names_.lower_bound( { watch, "" } );
         each != names_.end() && each->first.first == watch; ++each )
      all.insert( each->second.begin(), each->second.end() );
   return Tables( all.begin(), all.end() );
}

void DoorbellHub::handleEvent( int watch, uint32_t mask, const char* name ) {
   if ( mask & IN_Q_OVERFLOW ) {
      for ( auto& [id, table] : tables_ ) armAnew( *table );
      return;
   }
   auto bell = bells_.find( watch );
   const Tables rung = bell == bells_.end() ? Tables() : bell->second;
   for ( Table* table : rung ) handleBell( *table, mask );
   for ( Table* table : expecting( watch, name ) )
      handleDirectory( *table, mask, name );
}

void DoorbellHub::handleBell( Table& table, uint32_t mask ) {
   ring( table, mask & ~uint32_t( IN_MODIFY ) ? lookAgain : bellRang );
   if ( mask & IN_CLOSE_WRITE ) table.died = true;
   // The kernel drops a watch with its file.
   if ( mask & IN_IGNORED ) {
      bellIs( table, -1 );
      arm( table );
   }
}

void DoorbellHub::handleDirectory( Table& table, uint32_t mask, const char* name ) {
   if ( mask & ( IN_MOVE_SELF | IN_IGNORED ) ) table.nearest = false;
   // A directory that appears again holds other files.
   if ( !table.nearest ) return armAnew( table );
   if ( !*name ) return;
   bool bell = name == nameOf( table.files.bell() );
   // A new bell of this name is another file: the watch moves to it.
   if ( bell && ( mask & ( IN_CREATE | IN_MOVED_TO ) ) ) arm( table );
   if ( !bell || table.filesOnly ) ring( table, lookAgain );
}

double DoorbellHub::dispatch( double now ) {
   if ( fd_ >= 0 ) readEvents();
   if ( fallback() && now >= lastFallback_ + fallbackInterval ) {
      lastFallback_ = now;
      const std::set<Id> blind = blind_;
      for ( auto& [id, table] : tables_ )
         if ( fd_ < 0 || blind.count( id ) != 0 ) arm( *table );
   }
   callDue( now );
   return due();
}

void DoorbellHub::callDue( double now ) {
   std::vector<std::shared_ptr<Table>> due;
   for ( Id id : waiting_ ) {
      const auto& table = tables_.at( id );
      if ( dueOf( *table ) <= now ) due.push_back( table );
   }
   bool moved = false;
   for ( auto& table : due ) {
      if ( table->removed ) continue;
      table->rung = false;
      if ( table->above ) {
         waiting_.erase( table->id );
         moved = true;
         continue;
      }
      table->called = now;
      table->recall =
         std::exchange( table->died, false ) ? now + afterDeath : never;
      if ( table->recall == never ) waiting_.erase( table->id );
      table->callback( table->why );
      table->why = lookAgain;
   }
   if ( moved && fd_ >= 0 ) lookAtAll();
}

double DoorbellHub::dueOf( const Table& table ) const {
   double rung = table.rung ? table.called + minInterval : never;
   return std::min( rung, table.recall );
}

double DoorbellHub::due() const {
   double result = fallback() ? lastFallback_ + fallbackInterval : never;
   for ( Id id : waiting_ ) result = std::min( result, dueOf( *tables_.at( id ) ) );
   return result;
}

}
