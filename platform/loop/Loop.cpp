#include "platform/loop/Loop.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/base/Assert.h"
#include "platform/loop/RealClock.h"

namespace Mox {
namespace {

// The wake file's id in epoll events; watchers count from 1.
constexpr uint64_t kWakeId = 0;

void throwErrno( const char* what ) {
   throw std::system_error( errno, std::generic_category(), what );
}

// Resets a flag on every way out.
class Flagged {
 public:
   explicit Flagged( bool& flag ) : flag_( flag ) { flag_ = true; }
   ~Flagged() { flag_ = false; }
   Flagged( const Flagged& ) = delete;
   Flagged& operator=( const Flagged& ) = delete;

 private:
   bool& flag_;
};

}

Loop::Fd::Fd( int fd, const char* what ) : fd_( fd ) {
   if ( fd < 0 ) throwErrno( what );
}

Loop::Fd::~Fd() {
   close( fd_ );
}

Loop::Loop()
   : epoll_( epoll_create1( EPOLL_CLOEXEC ), "epoll_create1" ),
     wake_( eventfd( 0, EFD_CLOEXEC | EFD_NONBLOCK ), "eventfd" ) {
   epoll_event event{};
   event.events = EPOLLIN;
   event.data.u64 = kWakeId;
   if ( epoll_ctl( fd(), EPOLL_CTL_ADD, wake_.value(), &event ) != 0 ) {
      throwErrno( "epoll_ctl" );
   }
}

Loop::~Loop() = default;

void Loop::run() {
   constexpr int kForever = -1;
   while ( !stopped_ ) turn( kForever );
   stopped_ = false;
}

void Loop::post( Function function ) {
   posts_.push_back( std::move( function ) );
   if ( posts_.size() == 1 ) eventfd_write( wake_.value(), 1 );
}

void Loop::turn( int timeoutMilliseconds ) {
   MOX_ASSERT( !inTurn_ );
   Flagged flagged( inTurn_ );
   size_t posted = posts_.size();
   for ( RealClock* clock : clocks_ ) clock->turnStarts();
   try {
      serveFiles( timeoutMilliseconds );
      servePosts( posted );
      // By index: a wake-up may bring or remove a clock.
      for ( size_t i = 0; i < clocks_.size(); ++i ) clocks_[i]->fire();
      serveTurnEnds();
   } catch ( ... ) {
      // Another turn follows at once and serves the rest, turn ends included.
      post( [] {} );
      throw;
   }
}

void Loop::serveFiles( int timeoutMilliseconds ) {
   std::array<epoll_event, 64> events;
   int count = epoll_wait( fd(), events.data(), static_cast<int>( events.size() ),
                           timeoutMilliseconds );
   if ( count < 0 && errno != EINTR ) throwErrno( "epoll_wait" );
   for ( int i = 0; i < count; ++i ) {
      // Looked up one by one: a callback may have removed a later watcher.
      // The kernel's structure is packed: a copy is aligned.
      const uint64_t watcher = events[i].data.u64;
      auto found = watchers_.find( watcher );
      if ( found != watchers_.end() ) found->second->serve( events[i].events );
   }
}

void Loop::servePosts( size_t count ) {
   for ( ; count > 0; --count ) {
      Function function = std::move( posts_.front() );
      posts_.pop_front();
      if ( posts_.empty() ) {
         eventfd_t ignored = 0;
         eventfd_read( wake_.value(), &ignored );
      }
      function();
   }
}

void Loop::serveTurnEnds() {
   Id newest = lastId_;
   for ( auto it = turnEnds_.begin();
         it != turnEnds_.end() && it->first <= newest; ) {
      Id id = it->first;
      auto function = it->second;
      ( *function )();
      it = turnEnds_.upper_bound( id );
   }
}

Loop::FdWatcher::FdWatcher( Loop& loop, int fd, Function readable,
                            Function writable )
   : loop_( loop ),
     id_( ++loop.lastId_ ),
     fd_( fd ),
     callbacks_( new Callbacks{ std::move( readable ), std::move( writable ) } ) {
   wantedIs( ( callbacks_->readable ? EPOLLIN : 0U ) |
                ( callbacks_->writable ? EPOLLOUT : 0U ),
             true );
   loop_.watchers_.emplace( id_, this );
}

Loop::FdWatcher::~FdWatcher() {
   loop_.watchers_.erase( id_ );
   if ( wanted_ != 0 ) epoll_ctl( loop_.fd(), EPOLL_CTL_DEL, fd_, nullptr );
}

// A file wanted for nothing leaves the epoll set, which would report its hang-up
// for ever.
void Loop::FdWatcher::wantedIs( uint32_t events, bool wanted ) {
   uint32_t former = wanted_;
   uint32_t next = wanted ? former | events : former & ~events;
   if ( next == former ) return;
   if ( former == 0 ) {
      control( EPOLL_CTL_ADD, next );
   } else {
      control( next == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD, next );
   }
   wanted_ = next;
}

void Loop::FdWatcher::control( int operation, uint32_t events ) {
   epoll_event event{};
   event.events = events;
   event.data.u64 = id_;
   if ( epoll_ctl( loop_.fd(), operation, fd_, &event ) != 0 ) {
      throwErrno( "epoll_ctl" );
   }
}

void Loop::FdWatcher::serve( uint32_t events ) {
   if ( ( events & ( EPOLLERR | EPOLLHUP ) ) != 0 ) events |= wanted_;
   Loop& loop = loop_;
   Id id = id_;
   auto callbacks = callbacks_;
   if ( ( events & wanted_ & EPOLLIN ) != 0 && callbacks->readable ) {
      callbacks->readable();
      if ( loop.watchers_.count( id ) == 0 ) return;
   }
   if ( ( events & wanted_ & EPOLLOUT ) != 0 && callbacks->writable ) {
      callbacks->writable();
   }
}

Loop::TurnEnd::TurnEnd( Loop& loop, Function function )
   : loop_( loop ), id_( ++loop.lastId_ ) {
   loop_.turnEnds_.emplace(
      id_, std::make_shared<const Function>( std::move( function ) ) );
}

Loop::TurnEnd::~TurnEnd() {
   loop_.turnEnds_.erase( id_ );
}

}
