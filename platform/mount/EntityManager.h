// The central directory of mounted entities. It creates them at paths and keeps
// their tables in step with other processes.
//
// Tables lie in files under the manager's root: table `route` of the entity at
// "routing/x" is the file <root>/routing/x/route. One process may have several
// managers, so that one test can hold an agent and a reader. Event-loop thread
// only; entities must not be used for tables after their manager has gone.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "platform/entity/Entity.h"
#include "platform/loop/RealClock.h"
#include "platform/shm/DoorbellHub.h"
#include "platform/shm/TableReader.h"
#include "platform/shm/WriterSeat.h"

namespace MoxBrane {
class MountedEntity;
class TableBase;
}

namespace Corvex {

class PIMSM_API EntityManager {
 public:
   static constexpr const char* defaultRoot = "/dev/shm/pimsm";
   // The base of the names of a seat's lock and bell: see MountedEntity::seat().
   static constexpr const char* seatName = "writer";

   // `clock` and `loop` outlive the manager. `clock` paces the doorbells. A loop
   // serves doorbells and rings written tables; without one the owner calls
   // dispatch(). The root's directories are created (mode 0750) when a writer
   // mounts below them; it refuses, by CreateError, a root or a directory below it
   // that belongs to another user than root or its own, or that everybody may write
   // (sticky ones excepted).
   EntityManager( Mox::Clock& clock, Mox::Loop* loop,
                  Mox::String root = defaultRoot, bool useInotify = true );
   ~EntityManager();
   EntityManager( const EntityManager& ) = delete;
   EntityManager& operator=( const EntityManager& ) = delete;

   const Mox::String& root() const { return root_; }

   // While true, mounts in another role than writer attach nothing.
   bool attachSuspended() const { return attachSuspended_; }
   void attachSuspendedIs( bool suspended ) { attachSuspended_ = suspended; }

   // The entity at the path; null when there is none.
   Mox::Ptr<Mox::Entity> entity( Mox::StringView path ) const;

   // The entity at the path, made by its type's factory when absent. The manager
   // does not own it: its last reference destroys it. Throws NameError when the
   // path holds another type or the type is unknown, RangeError for a path with an
   // empty component, "." or "..", a NUL, or a leading slash.
   Mox::Ptr<Mox::Entity> createEntity( Mox::StringView path, Mox::StringView type );

   // Rings the doorbells of written tables and takes up other writers' changes, for
   // some 10 ms; the rest of a burst waits for the next dispatch, which a loop
   // makes on its next turn. Makes removed or replaced files of tables mounted for
   // writing anew, with all records. Throws Brane::SecondWriterError when another
   // process has become their writer meanwhile: this process should end.
   void dispatch();

   // Gets messages about files that were made anew or cannot be. The default, null,
   // traces them.
   using NoteHandler = std::function<void( const Mox::String& text )>;
   void noteHandlerIs( NoteHandler handler ) {
      noteHandler_ = std::move( handler );
   }

   // The file at the path below the root, for a writer of its own; its directory is
   // made as those of tables. Throws Brane::CreateError.
   Mox::String fileAt( Mox::StringView path ) const;

   // Retires the tables of a path whose entity is mounted for writing. Their files
   // and directory are removed, and readers see the tables go. The entity stays
   // usable, unseen.
   void removeTables( Mox::StringView path );

 private:
   friend class MoxBrane::MountedEntity;
   friend class MoxBrane::TableBase;

   class Wakeup;

   Brane::DoorbellHub::Id watch( const Mox::String& path,
                                 MoxBrane::TableBase& table );
   void unwatch( Brane::DoorbellHub::Id id, MoxBrane::TableBase& table );
   // Does a process hold the table's bell? The system is asked once for each bell
   // and dispatch or turn of the loop: a bell is many tables', and an answer from
   // after its latest event is new enough.
   bool writerAlive( const Brane::TableReader& reader );
   // The table was written to: its readers are told at the end of the turn.
   void written( MoxBrane::TableBase& table ) { written_.push_back( &table ); }
   // Drains the table again: with `atOnce`, for the rest of a burst, on the loop's
   // next turn; otherwise, when a record was busy, in a millisecond.
   void drainSoon( MoxBrane::TableBase& table, bool atOnce );
   // Has the dispatch in progress taken its 10 ms?
   bool timeIsUp() const { return clock_.now() >= dispatchEnd_; }
   Mox::String tablePath( Mox::StringView entityPath, Mox::StringView table ) const;
   void makeDirectories( const Mox::String& tablePath ) const;
   // The lock and bell of the entity's tables; the bell has a name in its directory.
   std::shared_ptr<Brane::WriterSeat> seatOf(
      const MoxBrane::MountedEntity& entity );
   Mox::String bellBase( const MoxBrane::MountedEntity& entity ) const;
   void leaveSeat( const MoxBrane::MountedEntity& entity );
   Brane::DoorbellHub::Id watchFiles( const Mox::String& path,
                                      MoxBrane::TableBase& table );
   void watchAbove( const Mox::String& path );
   void restoreFiles( MoxBrane::TableBase& table );
   void restoreAgain();
   void tellRestored();
   void note( const Mox::String& text ) const;
   void dispatchHub();
   void ring();

   Mox::Clock& clock_;
   Mox::String root_;
   bool attachSuspended_ = false;
   Brane::DoorbellHub hub_;
   std::set<Mox::String> above_;  // watched directories, from the root on
   std::map<Mox::String, MoxBrane::MountedEntity*, std::less<>> entities_;
   std::vector<MoxBrane::TableBase*> drainSoon_;
   bool drainAtOnce_ = false;
   double dispatchEnd_ = 0;
   // The tables of the dispatch in progress; a handler may destroy any of them.
   std::vector<MoxBrane::TableBase*> draining_;
   // Tables whose files could not be made anew, and the time of the next attempt.
   std::vector<MoxBrane::TableBase*> unrestored_;
   double restoreAgain_ = Mox::Clock::never;
   // Files made anew and not reported yet; reported once no more follow.
   std::vector<Mox::String> restored_;
   double tellRestored_ = Mox::Clock::never;
   Mox::String problem_;
   NoteHandler noteHandler_;
   std::map<Mox::String, std::weak_ptr<Brane::WriterSeat>> seats_;  // by mount path
   std::unordered_map<Mox::String, bool> alive_;  // by bell, as asked in this turn
   // Written to since the last ring.
   std::vector<MoxBrane::TableBase*> written_;
   std::unique_ptr<Wakeup> wakeup_;
   std::unique_ptr<Mox::Loop::FdWatcher> watcher_;
   std::unique_ptr<Mox::Loop::TurnEnd> turnEnd_;
};

}

namespace MoxBrane {

// Finds or creates the entity at the path; never null.
PIMSM_API Mox::Ptr<Mox::Entity> createEntity( Corvex::EntityManager& manager,
                                              Mox::StringView path,
                                              Mox::StringView type );

}
