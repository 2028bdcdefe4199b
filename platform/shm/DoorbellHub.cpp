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
   bool above = false;    // no table, but a directory above some
   int bell = -1;         // watch; -1 while there is none
   int directory = -1;    // watch of the table's directory or an ancestor of it
   bool nearest = false;  // the directory itself
   bool blind =
      false;  // the bell's watch was refused, though the bell may be there
   bool rung = true;
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
   if ( fd_ < 0 ) return !tables_.empty();
   return std::any_of( tables_.begin(), tables_.end(), []( const auto& entry ) {
      return entry.second->directory < 0 || entry.second->blind;
   } );
}

DoorbellHub::Id DoorbellHub::add( const Mox::String& path, Callback callback ) {
   return add( std::make_shared<Table>(
      Table{ .files = TableFiles( path ), .callback = std::move( callback ) } ) );
}

DoorbellHub::Id DoorbellHub::addFiles( const Mox::String& path,
                                       Callback callback ) {
   return add( std::make_shared<Table>( Table{ .files = TableFiles( path ),
                                               .callback = std::move( callback ),
                                               .filesOnly = true } ) );
}

DoorbellHub::Id DoorbellHub::addAbove( const Mox::String& directory ) {
   auto above = std::make_shared<Table>( Table{ .files = TableFiles( directory ),
                                                .callback = {},
                                                .filesOnly = true,
                                                .above = true } );
   const Id id = add( above );
   above->rung = false;
   return id;
}

DoorbellHub::Id DoorbellHub::add( std::shared_ptr<Table> table ) {
   tables_.emplace( ++lastId_, table );
   arm( *table );
   return lastId_;
}

void DoorbellHub::remove( Id id ) {
   auto found = tables_.find( id );
   if ( found == tables_.end() ) return;
   auto table = found->second;
   table->removed = true;
   tables_.erase( found );
   dropWatch( table->bell );
   dropWatch( table->directory );
}

void DoorbellHub::lookAgain() {
   for ( auto& [id, table] : tables_ ) {
      armAnew( *table );
      // All tables are looked at already; they would ring each other for ever.
      if ( table->above ) table->rung = false;
   }
}

// The kernel gives one watch per file: others may share it.
void DoorbellHub::dropWatch( int watch ) {
   if ( watch < 0 ) return;
   for ( const auto& [id, table] : tables_ ) {
      if ( table->bell == watch || table->directory == watch ) return;
   }
   inotify_rm_watch( fd_, watch );
}

// Sets the watches that can be set. Every arming rings, so the call that follows
// finds whatever happened before.
void DoorbellHub::arm( Table& table ) {
   table.rung = true;
   if ( fd_ < 0 ) return;
   if ( !table.nearest ) watchDirectory( table );
   if ( table.bell < 0 && !table.filesOnly ) {
      table.bell = inotify_add_watch( fd_, table.files.bell.c_str(), bellMask );
      table.blind = table.bell < 0 && !isMissing( errno );
   }
}

// Called after events were lost: any watched file may have moved or gone.
void DoorbellHub::armAnew( Table& table ) {
   int bell = std::exchange( table.bell, -1 );
   table.nearest = false;
   arm( table );
   // Without a bell file under the name, the writer may still ring the former one.
   if ( table.bell < 0 ) table.bell = bell;
   if ( bell != table.bell ) dropWatch( bell );
}

// A directory made between the look for it and the watch of its parent rings
// nothing. Two walks that end at the same place prove that nothing was missed.
void DoorbellHub::watchDirectory( Table& table ) {
   Mox::String reached;
   Mox::String before;
   do {
      int former = table.directory;
      before = std::exchange( reached, watchNearest( table ) );
      if ( former != table.directory ) dropWatch( former );
   } while ( !table.nearest && table.directory >= 0 && reached != before );
}

// Watches the table's directory, or its nearest existing ancestor, and returns that
// path.
Mox::String DoorbellHub::watchNearest( Table& table ) {
   Mox::String directory = directoryOf( table.files.table );
   for ( bool nearest = true;; nearest = false ) {
      table.directory = inotify_add_watch( fd_, directory.c_str(), directoryMask );
      table.nearest = nearest && table.directory >= 0;
      bool missing = table.directory < 0 && isMissing( errno );
      if ( !missing || directory == "/" || directory == "." ) return directory;
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
      for ( ssize_t at = 0; at < got; ) {
         auto* event = reinterpret_cast<const inotify_event*>( buffer + at );
         handleEvent( event->wd, event->mask, event->len ? event->name : "" );
         at += static_cast<ssize_t>( sizeof( inotify_event ) + event->len );
      }
   } while ( got > ssize_t( sizeof( buffer ) ) - room );
}

void DoorbellHub::handleEvent( int watch, uint32_t mask, const char* name ) {
   for ( auto& [id, table] : tables_ ) {
      if ( mask & IN_Q_OVERFLOW ) {
         armAnew( *table );
      } else if ( table->bell == watch ) {
         handleBell( *table, mask );
      } else if ( table->directory == watch ) {
         handleDirectory( *table, mask, name );
      }
   }
}

void DoorbellHub::handleBell( Table& table, uint32_t mask ) {
   table.rung = true;
   if ( mask & IN_CLOSE_WRITE ) table.died = true;
   // The kernel drops a watch with its file.
   if ( mask & IN_IGNORED ) {
      table.bell = -1;
      arm( table );
   }
}

void DoorbellHub::handleDirectory( Table& table, uint32_t mask, const char* name ) {
   if ( mask & IN_MOVE_SELF ) table.nearest = false;
   if ( mask & IN_IGNORED ) {
      table.directory = -1;
      table.nearest = false;
   }
   // A directory that appears again holds other files.
   if ( !table.nearest ) return armAnew( table );
   bool bell = name == nameOf( table.files.bell );
   // A new bell of this name is another file: the watch moves to it.
   if ( bell && ( mask & ( IN_CREATE | IN_MOVED_TO ) ) ) {
      dropBell( table );
      arm( table );
   }
   bool lock = table.filesOnly && name == nameOf( table.files.lock );
   if ( lock || ( table.filesOnly && bell ) ) table.rung = true;
   if ( name == nameOf( table.files.table ) ) table.rung = true;
}

void DoorbellHub::dropBell( Table& table ) {
   int former = table.bell;
   table.bell = -1;
   dropWatch( former );
}

double DoorbellHub::dispatch( double now ) {
   if ( fd_ >= 0 ) readEvents();
   if ( fallback() && now >= lastFallback_ + fallbackInterval ) {
      lastFallback_ = now;
      for ( auto& [id, table] : tables_ ) arm( *table );
   }
   callDue( now );
   return due();
}

void DoorbellHub::callDue( double now ) {
   std::vector<std::shared_ptr<Table>> due;
   for ( auto& [id, table] : tables_ ) {
      if ( dueOf( *table ) <= now ) due.push_back( table );
   }
   bool moved = false;
   for ( auto& table : due ) {
      moved = moved || table->above;
      if ( table->removed || table->above ) continue;
      table->rung = false;
      table->called = now;
      table->recall =
         std::exchange( table->died, false ) ? now + afterDeath : never;
      table->callback();
   }
   if ( moved && fd_ >= 0 ) lookAgain();
}

double DoorbellHub::dueOf( const Table& table ) const {
   double rung = table.rung ? table.called + minInterval : never;
   return std::min( rung, table.recall );
}

double DoorbellHub::due() const {
   double result = fallback() ? lastFallback_ + fallbackInterval : never;
   for ( const auto& [id, table] : tables_ ) {
      result = std::min( result, dueOf( *table ) );
   }
   return result;
}

}
