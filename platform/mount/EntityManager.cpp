#include "platform/mount/EntityManager.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/entity/Factory.h"
#include "platform/mount/MountedEntity.h"
#include "platform/mount/TableBase.h"
#include "platform/shm/TableFiles.h"
#include "platform/trace/Trace.h"

namespace Corvex {
namespace {

MOX_TRACE_FACILITY( trace, "Pimsm::EntityManager" )

constexpr double kDrainSoon = 0.001;       // s
constexpr double kDispatchQuantum = 0.01;  // s
constexpr double kRestoreAgain = 1.0;      // s
constexpr double kTellRestored = 0.1;  // s; whoever removes a tree takes a while

void checkPath( Mox::StringView path ) {
   size_t start = 0;
   while ( start <= path.size() ) {
      size_t end = std::min( path.find( '/', start ), path.size() );
      Mox::StringView part = path.substr( start, end - start );
      if ( part.empty() || part == "." || part == ".." ||
           part.find( '\0' ) != Mox::StringView::npos ) {
         throw Mox::RangeError( "not a mount path: " +
                                Mox::valueToStrep( Mox::String( path ) ) );
      }
      start = end + 1;
   }
}

}

// Serves the hub at the time it asked for, without a bell.
class EntityManager::Wakeup : public Mox::Clock::Notifiee {
 public:
   Wakeup( EntityManager& manager, Mox::Clock& clock )
      : Notifiee( &clock ), manager_( manager ) {}
   void onTime() override { manager_.dispatchHub(); }

 private:
   EntityManager& manager_;
};

EntityManager::EntityManager( Mox::Clock& clock, Mox::Loop* loop, Mox::String root,
                              bool useInotify )
   : clock_( clock ),
     root_( std::move( root ) ),
     hub_( useInotify ),
     wakeup_( std::make_unique<Wakeup>( *this, clock ) ) {
   while ( root_.size() > 1 && root_.ends_with( '/' ) ) root_.pop_back();
   if ( loop == nullptr ) return;
   if ( hub_.fd() >= 0 ) {
      watcher_ = std::make_unique<Mox::Loop::FdWatcher>(
         *loop, hub_.fd(), [this] { dispatchHub(); } );
   }
   turnEnd_ = std::make_unique<Mox::Loop::TurnEnd>( *loop, [this] { ring(); } );
}

EntityManager::~EntityManager() {
   ring();
   for ( const auto& [path, entity] : entities_ ) entity->manager_ = nullptr;
}

// inotify reports a move of a table's own directory, but not of those above it up
// to the root: they are watched here.
void EntityManager::watchAbove( const Mox::String& path ) {
   const size_t own = path.rfind( '/' );
   if ( above_.count( path.substr( 0, path.rfind( '/', own - 1 ) ) ) != 0 ) return;
   for ( size_t slash = root_.size(); slash < own;
         slash = path.find( '/', slash + 1 ) ) {
      Mox::String directory = path.substr( 0, slash );
      if ( above_.insert( directory ).second ) hub_.addAbove( directory );
   }
}

Mox::Ptr<Mox::Entity> EntityManager::entity( Mox::StringView path ) const {
   auto found = entities_.find( path );
   return found == entities_.end() ? nullptr : found->second;
}

Mox::Ptr<Mox::Entity> EntityManager::createEntity( Mox::StringView path,
                                                   Mox::StringView type ) {
   checkPath( path );
   if ( Mox::Ptr<Mox::Entity> existing = entity( path ) ) {
      if ( existing->typeInfo().name == type ) return existing;
      throw Mox::NameError( fmt::format( "{} is a {}, not a {}", path,
                                         existing->typeInfo().name, type ) );
   }
   Mox::Ptr<Mox::Entity> made = Mox::newEntityByType( type, path );
   auto* mounted = dynamic_cast<MoxBrane::MountedEntity*>( made.get() );
   if ( mounted == nullptr ) {
      throw Mox::NameError( fmt::format( "{} cannot be mounted", type ) );
   }
   mounted->manager_ = this;
   entities_.emplace( path, mounted );
   return made;
}

void EntityManager::dispatch() {
   ring();
   dispatchHub();
}

bool EntityManager::writerAlive( const Brane::TableReader& reader ) {
   const auto [known, asked] = alive_.try_emplace( reader.bell() );
   if ( asked ) known->second = reader.writerAlive();
   return known->second;
}

// At the end of a turn.
void EntityManager::ring() {
   alive_.clear();
   while ( !written_.empty() ) {
      MoxBrane::TableBase* table = written_.back();
      written_.pop_back();
      table->ring();
   }
}

void EntityManager::dispatchHub() {
   double now = clock_.now();
   dispatchEnd_ = now + kDispatchQuantum;
   drainAtOnce_ = false;
   // One at a time: a handler may destroy a waiting table.
   for ( size_t left = drainSoon_.size(); left > 0 && !drainSoon_.empty();
         --left ) {
      MoxBrane::TableBase* table = drainSoon_.front();
      drainSoon_.erase( drainSoon_.begin() );
      table->drainInOrder();
   }
   if ( restoreAgain_ <= now ) restoreAgain();
   // The hub takes its events first: only later answers can be told by them.
   alive_.clear();
   double due = hub_.dispatch( now );
   if ( tellRestored_ <= now ) tellRestored();
   due = std::min( { due, restoreAgain_, tellRestored_ } );
   if ( !drainSoon_.empty() ) {
      due = std::min( due, drainAtOnce_ ? now : now + kDrainSoon );
   }
   wakeup_->wakeupTimeIs( due );
}

Brane::DoorbellHub::Id EntityManager::watch( const Mox::String& path,
                                             MoxBrane::TableBase& table ) {
   watchAbove( path );
   Brane::DoorbellHub::Id id = hub_.add(
      path, bellBase( table.entity_ ),
      [&table]( Brane::DoorbellHub::Ring why ) { table.handleBell( why ); } );
   wakeup_->wakeupTimeIs( std::min( wakeup_->wakeupTime(), clock_.now() ) );
   return id;
}

Brane::DoorbellHub::Id EntityManager::watchFiles( const Mox::String& path,
                                                  MoxBrane::TableBase& table ) {
   watchAbove( path );
   Brane::DoorbellHub::Id id =
      hub_.addFiles( path, bellBase( table.entity_ ),
                     [this, &table]( auto ) { restoreFiles( table ); } );
   wakeup_->wakeupTimeIs( std::min( wakeup_->wakeupTime(), clock_.now() ) );
   return id;
}

// Tries again when the system refuses. The first refusal of all waiting tables is
// reported, the others are not.
void EntityManager::restoreFiles( MoxBrane::TableBase& table ) {
   Brane::TableWriter& writer = *table.writer();
   if ( writer.filesStand() ) return;
   try {
      makeDirectories( tablePath( table.entity_.seat(), seatName ) );
      makeDirectories( writer.path() );
      writer.restoreFiles();
   } catch ( const Brane::CreateError& e ) {
      if ( unrestored_.empty() && std::exchange( problem_, e.what() ) != e.what() )
         note( problem_ );
      if ( std::find( unrestored_.begin(), unrestored_.end(), &table ) ==
           unrestored_.end() )
         unrestored_.push_back( &table );
      restoreAgain_ = clock_.now() + kRestoreAgain;
      return;
   }
   restored_.push_back( writer.path() );
   tellRestored_ = clock_.now() + kTellRestored;
}

void EntityManager::restoreAgain() {
   restoreAgain_ = Mox::Clock::never;
   for ( MoxBrane::TableBase* table : std::exchange( unrestored_, {} ) )
      restoreFiles( *table );
}

void EntityManager::tellRestored() {
   tellRestored_ = Mox::Clock::never;
   problem_.clear();
   const std::vector<Mox::String> paths = std::exchange( restored_, {} );
   Mox::String others;
   if ( paths.size() > 1 )
      others = fmt::format( " and {} others", paths.size() - 1 );
   note(
      fmt::format( "{}{}: somebody removed or replaced the table's files; they are "
                   "made anew with all records",
                   paths.front(), others ) );
}

void EntityManager::note( const Mox::String& text ) const {
   if ( noteHandler_ ) return noteHandler_( text );
   MOX_TRACE( trace, 0, text );
}

void EntityManager::unwatch( Brane::DoorbellHub::Id id,
                             MoxBrane::TableBase& table ) {
   hub_.remove( id );
   std::erase( drainSoon_, &table );
   std::erase( draining_, &table );
   std::erase( unrestored_, &table );
   std::erase( written_, &table );
}

void EntityManager::drainSoon( MoxBrane::TableBase& table, bool atOnce ) {
   drainAtOnce_ = drainAtOnce_ || atOnce;
   if ( std::find( drainSoon_.begin(), drainSoon_.end(), &table ) ==
        drainSoon_.end() ) {
      drainSoon_.push_back( &table );
   }
}

Mox::String EntityManager::tablePath( Mox::StringView entityPath,
                                      Mox::StringView table ) const {
   return fmt::format( "{}/{}/{}", root_, entityPath, table );
}

// A user who may rename below the root could put own files in the tables' place.
void checkDirectory( const Mox::String& directory ) {
   auto refuse = [&]( const Mox::String& why ) {
      throw Brane::CreateError( "directory of tables " + directory + ": " + why );
   };
   struct stat name, target;
   if ( lstat( directory.c_str(), &name ) != 0 ||
        stat( directory.c_str(), &target ) != 0 ) {
      refuse( std::strerror( errno ) );
   }
   if ( !S_ISDIR( target.st_mode ) ) refuse( "not a directory" );
   for ( uid_t owner : { name.st_uid, target.st_uid } ) {
      if ( owner == 0 || owner == geteuid() ) continue;
      refuse(
         fmt::format( "belongs to user {}, who could change the tables: name "
                      "another, or remove it",
                      owner ) );
   }
   // In a sticky directory nobody renames another user's files.
   if ( target.st_mode & S_ISVTX ) return;
   bool shared = target.st_gid != 0 && target.st_gid != getegid();
   if ( ( target.st_mode & S_IWGRP ) && shared ) {
      refuse(
         fmt::format( "group {} may write it (mode {:o}): name another, or "
                      "change its mode",
                      target.st_gid, target.st_mode & 07777 ) );
   }
   if ( target.st_mode & S_IWOTH ) {
      refuse(
         fmt::format( "everybody may write it (mode {:o}): name another, or "
                      "remove it",
                      target.st_mode & 07777 ) );
   }
}

// Only the owner and the group may look below the root.
void EntityManager::makeDirectories( const Mox::String& path ) const {
   for ( size_t slash = path.find( '/', 1 ); slash != Mox::String::npos;
         slash = path.find( '/', slash + 1 ) ) {
      Mox::String directory = path.substr( 0, slash );
      if ( mkdir( directory.c_str(), 0750 ) == 0 ) {
         // The group may read, whatever the umask says.
         chmod( directory.c_str(), 02750 );
         continue;
      }
      if ( errno == EEXIST ) {
         if ( slash >= root_.size() ) checkDirectory( directory );
         continue;
      }
      throw Brane::CreateError( "cannot make directory " + directory + ": " +
                                std::strerror( errno ) );
   }
}

Mox::String EntityManager::fileAt( Mox::StringView path ) const {
   const Mox::String file = fmt::format( "{}/{}", root_, path );
   makeDirectories( file );
   return file;
}

std::shared_ptr<Brane::WriterSeat> EntityManager::seatOf(
   const MoxBrane::MountedEntity& entity ) {
   const Mox::String base = tablePath( entity.seat(), seatName );
   std::shared_ptr<Brane::WriterSeat> seat = seats_[entity.seat()].lock();
   if ( seat == nullptr ) {
      makeDirectories( base );
      seat = std::make_shared<Brane::WriterSeat>( base );
      seats_[entity.seat()] = seat;
   }
   seat->addBell( bellBase( entity ) );
   return seat;
}

Mox::String EntityManager::bellBase( const MoxBrane::MountedEntity& entity ) const {
   return tablePath( entity.name(), seatName );
}

// Removes lock and bell with the last table that is written under them.
void EntityManager::leaveSeat( const MoxBrane::MountedEntity& entity ) {
   auto found = seats_.find( entity.seat() );
   auto seat = found == seats_.end() ? nullptr : found->second.lock();
   if ( seat == nullptr ) return;
   for ( const auto& [path, other] : entities_ ) {
      if ( other->seat() != entity.seat() ) continue;
      for ( MoxBrane::TableBase* table : other->tables() )
         if ( table->writes() ) return;
   }
   seat->removeFiles();
   seats_.erase( found );
   rmdir( fmt::format( "{}/{}", root_, entity.seat() ).c_str() );
}

void EntityManager::removeTables( Mox::StringView path ) {
   auto found = entities_.find( path );
   if ( found == entities_.end() ) return;
   const MoxBrane::MountedEntity& entity = *found->second;
   bool written = false;
   for ( MoxBrane::TableBase* table : entity.tables() ) {
      written = written || table->writes();
      table->retire();
   }
   if ( !written ) return;
   if ( entity.seat() != entity.name() )
      unlink( Brane::TableFiles( bellBase( entity ) ).bell().c_str() );
   leaveSeat( entity );
   // The directory stays while another process keeps a table in it.
   rmdir( fmt::format( "{}/{}", root_, path ).c_str() );
}

}

namespace MoxBrane {

Mox::Ptr<Mox::Entity> createEntity( Corvex::EntityManager& manager,
                                    Mox::StringView path, Mox::StringView type ) {
   return manager.createEntity( path, type );
}

}
