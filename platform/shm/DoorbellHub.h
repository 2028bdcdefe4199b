// Listens to the doorbells of any number of tables through one inotify instance.
//
// A reader's bell rings when the writer rings it or dies, and when the table
// appears, is replaced or goes away. A writer may have its own table's files
// watched. An event costs the same however many tables there are. Free of any event
// loop: the owner polls fd() and calls dispatch(). Single thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

class PIMSM_API DoorbellHub {
 public:
   // bellRang: the writer has changed something. lookAgain: files or the writer may
   // have come or gone, and any change may have been missed.
   enum Ring : uint32_t { bellRang, lookAgain };
   // Called from dispatch() for a table that may have changed; usually drains a
   // follower. May add and remove tables, itself included.
   using Callback = std::function<void( Ring )>;
   using Id = uint32_t;

   // A burst of rings calls back at most this often: a polling reader slows the
   // writer by taking its cache lines.
   static constexpr double minInterval = 0.001;  // s
   // Without inotify, every table is called back this often.
   static constexpr double fallbackInterval = 0.05;  // s

   // Falls back to a timer where the system has no inotify instance left, and with
   // `useInotify` false.
   explicit DoorbellHub( bool useInotify = true );
   ~DoorbellHub();
   DoorbellHub( const DoorbellHub& ) = delete;
   DoorbellHub& operator=( const DoorbellHub& ) = delete;

   // Watches the table at `path`, present or not, and its directory. The next
   // dispatch() calls back in any case, so that no earlier change is missed.
   // `seat` is the base of the bell's name where tables of the directory share one.
   Id add( const Mox::String& path, Callback callback ) {
      return add( path, path, std::move( callback ) );
   }
   Id add( const Mox::String& path, const Mox::String& seat, Callback callback );
   // The same for a writer: called back when one of the table's files may have come or
   // gone, not when the bell rings.
   Id addFiles( const Mox::String& path, Callback callback ) {
      return addFiles( path, path, std::move( callback ) );
   }
   Id addFiles( const Mox::String& path, const Mox::String& seat,
                Callback callback );
   void remove( Id id );  // unknown: nothing

   // Watches a directory above tables. Files below it get no event when it moves,
   // so all watches are set anew then and all tables rung.
   Id addAbove( const Mox::String& directory );

   // Readable when dispatch() has something to do; -1 without inotify.
   int fd() const { return fd_; }
   // Must some table be polled on a timer? True without inotify, and while the
   // system refuses a watch (limit, permissions); each poll tries the watch again.
   bool fallback() const;

   // Reads the events and calls back. `now`: seconds, monotonic. Returns the time
   // of the next call in case fd() stays silent; infinity: not needed. Call it
   // after add() too, or ask due().
   double dispatch( double now );
   double due() const;

 private:
   struct Table;
   using Tables = std::vector<Table*>;

   Id add( std::shared_ptr<Table> table );
   void lookAtAll();
   void ring( Table& table, Ring why );
   void arm( Table& table );
   void armAnew( Table& table );
   int watchBell( const Table& table ) const;
   void watchDirectory( Table& table );
   void watchNearest( Table& table );
   void bellIs( Table& table, int watch );
   void directoryIs( Table& table, int watch, std::vector<Mox::String> names );
   void dropWatch( int watch );
   void readEvents();
   void handleEvent( int watch, uint32_t mask, const char* name );
   void handleBell( Table& table, uint32_t mask );
   void handleDirectory( Table& table, uint32_t mask, const char* name );
   Tables expecting( int watch, const char* name ) const;
   void callDue( double now );
   double dueOf( const Table& table ) const;

   int fd_ = -1;
   Id lastId_ = 0;
   double lastFallback_;
   std::map<Id, std::shared_ptr<Table>> tables_;
   // By watch, and for a directory also by the name of the entry that counts.
   std::unordered_map<int, Tables> bells_;
   std::map<std::pair<int, Mox::String>, Tables> names_;
   std::set<Id> waiting_;  // to be called
   std::set<Id> blind_;    // without a watch that should be
};

}
