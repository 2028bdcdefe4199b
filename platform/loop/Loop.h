// The event loop of a process: files, clocks, posted functions and signals, one
// thread.
//
// A turn serves, in this order: the files that are ready, the functions posted
// before the turn, the wake-ups due on the loop's clocks (RealClock.h), and the
// functions registered for the end of every turn. Whatever a callback registers for
// files, posts or wake-ups is served from the next turn on; what it removes is not
// called any more, even in the same turn.
//
// A process either calls run(), or has a loop of its own that polls fd() for
// reading and then calls dispatch(). Watchers, hooks and clocks are destroyed
// before their loop. What a callback throws passes through dispatch() and run();
// what was not served stays for the next turn. Event-loop thread only.
#pragma once

#include <sys/epoll.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/base/Export.h"

namespace Mox {

class RealClock;

class PIMSM_API Loop {
 public:
   class FdWatcher;
   class TurnEnd;

   using Function = std::function<void()>;

   // An open file that closes itself.
   class PIMSM_API Fd {
    public:
      // Throws std::system_error with `what` when `fd` is negative, from errno.
      Fd( int fd, const char* what );
      ~Fd();
      Fd( const Fd& ) = delete;
      Fd& operator=( const Fd& ) = delete;

      int value() const { return fd_; }

    private:
      int fd_;
   };

   // Throws std::system_error when the system has no file left.
   Loop();
   ~Loop();
   Loop( const Loop& ) = delete;
   Loop& operator=( const Loop& ) = delete;

   // Readable whenever a turn has something to serve, timers included.
   int fd() const { return epoll_.value(); }

   // One turn; never waits. REQUIRES: not called from a callback of this loop.
   void dispatch() { turn( 0 ); }

   // Runs turns until stop() is called; returns at once when it was called before.
   void run();
   void stop() { stopped_ = true; }

   // Calls `function` in the next turn.
   void post( Function function );

 private:
   friend class RealClock;

   using Id = uint64_t;

   void turn( int timeoutMilliseconds );
   void serveFiles( int timeoutMilliseconds );
   void servePosts( size_t count );
   void serveTurnEnds();

   Fd epoll_;
   Fd wake_;  // readable while functions are posted
   std::map<Id, FdWatcher*> watchers_;
   std::map<Id, std::shared_ptr<const Function>> turnEnds_;
   std::vector<RealClock*> clocks_;
   std::deque<Function> posts_;
   Id lastId_ = 0;
   bool inTurn_ = false;
   bool stopped_ = false;
};

// Calls back while a file is ready, once a turn: level-triggered. An error or a
// hang-up counts as ready for whatever is wanted. The file stays the caller's and
// must be open until the watcher is gone.
class PIMSM_API Loop::FdWatcher {
 public:
   // Watches for reading, and for writing where `writable` is given. Either may be
   // empty. Throws std::system_error for a file that the loop already watches, and
   // for one that cannot be polled, a regular file for instance.
   FdWatcher( Loop& loop, int fd, Function readable, Function writable = {} );
   ~FdWatcher();
   FdWatcher( const FdWatcher& ) = delete;
   FdWatcher& operator=( const FdWatcher& ) = delete;

   int fd() const { return fd_; }

   // Turns the callback on or off.
   void readWantedIs( bool wanted ) { wantedIs( EPOLLIN, wanted ); }
   void writeWantedIs( bool wanted ) { wantedIs( EPOLLOUT, wanted ); }

 private:
   friend class Loop;

   struct Callbacks {
      Function readable;
      Function writable;
   };

   void wantedIs( uint32_t events, bool wanted );
   void control( int operation, uint32_t events );
   void serve( uint32_t events );

   Loop& loop_;
   Id id_;
   int fd_;
   uint32_t wanted_ = 0;
   // Shared with the running callback, which may destroy the watcher.
   std::shared_ptr<const Callbacks> callbacks_;
};

// Calls back at the end of every turn while it lives, in order of creation. A
// TurnEnd created during that call is first called in the next turn.
class PIMSM_API Loop::TurnEnd {
 public:
   TurnEnd( Loop& loop, Function function );
   ~TurnEnd();
   TurnEnd( const TurnEnd& ) = delete;
   TurnEnd& operator=( const TurnEnd& ) = delete;

 private:
   Loop& loop_;
   Id id_;
};

}
