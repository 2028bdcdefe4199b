#include "platform/loop/Loop.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <csignal>
#include <functional>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "platform/base/String.h"
#include "platform/loop/RealClock.h"
#include "platform/loop/SignalWatcher.h"

namespace Mox {
namespace {

// Readable from the start unless made with 0.
class Event : public Loop::Fd {
 public:
   explicit Event( unsigned count = 1 )
      : Fd( eventfd( count, EFD_NONBLOCK | EFD_CLOEXEC ), "eventfd" ) {}
};

class Alarm : public Clock::Notifiee {
 public:
   Alarm( Clock& clock, std::function<void()> act )
      : Notifiee( &clock ), act_( std::move( act ) ) {}
   void onTime() override { act_(); }

 private:
   std::function<void()> act_;
};

class LoopTest : public testing::Test {
 protected:
   // What a host with a loop of its own does.
   bool ready( int milliseconds = 0 ) const {
      pollfd poller{ loop.fd(), POLLIN, 0 };
      return poll( &poller, 1, milliseconds ) == 1;
   }
   Loop::Function log( char name ) {
      return [this, name] { calls += name; };
   }

   using Watcher = std::unique_ptr<Loop::FdWatcher>;
   Loop loop;
   String calls;
};

TEST_F( LoopTest, OneDescriptorTellsOfFilesPostsAndTimers ) {
   Event idle( 0 );
   Loop::FdWatcher silent( loop, idle.value(), log( 'x' ) );
   EXPECT_FALSE( ready() );
   loop.post( log( 'p' ) );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   EXPECT_FALSE( ready() );

   Event event;
   Watcher watcher( new Loop::FdWatcher( loop, event.value(), log( 'f' ) ) );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   watcher.reset();
   EXPECT_FALSE( ready() );

   RealClock clock( loop );
   Alarm alarm( clock, log( 'a' ) );
   alarm.wakeupTimeIs( clock.now() + 3600 );
   EXPECT_FALSE( ready() );
   alarm.wakeupTimeIs( clock.now() + 0.01 );
   EXPECT_TRUE( ready( 10000 ) );
   loop.dispatch();
   EXPECT_EQ( calls, "pfa" );
   EXPECT_FALSE( ready() );
   alarm.wakeupTimeIs( 0 );
   EXPECT_TRUE( ready() ) << "a wake-up in the past is due at once";
}

// Files are served, then posts, wake-ups and the turn's end.
TEST_F( LoopTest, WhatACallbackAsksForComesInTheNextTurn ) {
   Event event;
   RealClock clock( loop );
   Alarm alarm( clock, log( 'a' ) );
   std::unique_ptr<Loop::TurnEnd> second;
   Loop::TurnEnd first( loop, [&] {
      calls += 'e';
      if ( !second ) second = std::make_unique<Loop::TurnEnd>( loop, log( 's' ) );
   } );
   bool asked = false;
   Loop::FdWatcher watcher( loop, event.value(), [&] {
      calls += 'f';
      if ( std::exchange( asked, true ) ) return;
      loop.post( log( 'p' ) );
      alarm.wakeupTimeIs( clock.now() );
   } );
   loop.dispatch();
   EXPECT_EQ( calls, "fe" );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   EXPECT_EQ( calls, "fefpaes" );
   loop.post( [&] { loop.stop(); } );
   loop.run();
   EXPECT_EQ( calls, "fefpaesfes" );
}

// A new file with the same number is not served either until its own event.
TEST_F( LoopTest, AFileRemovedInItsTurnIsNotServed ) {
   Event one;
   auto two = std::make_unique<Event>(), reused = std::unique_ptr<Event>();
   Watcher a, b, c;
   // The first callback destroys both watchers, its own included.
   auto destroy = [&] {
      calls += 'x';
      int number = two->value();
      a.reset();
      b.reset();
      two.reset();
      reused = std::make_unique<Event>( 0 );
      ASSERT_EQ( reused->value(), number );
      c = std::make_unique<Loop::FdWatcher>( loop, number, log( 'c' ) );
   };
   a = std::make_unique<Loop::FdWatcher>( loop, one.value(), destroy );
   b = std::make_unique<Loop::FdWatcher>( loop, two->value(), destroy );
   loop.dispatch();
   loop.dispatch();
   EXPECT_EQ( calls, "x" );
}

TEST_F( LoopTest, ReadAndWriteAreAskedForSeparately ) {
   int ends[2];
   ASSERT_EQ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends ), 0 );
   Loop::Fd one( ends[0], "socketpair" );
   auto other = std::make_unique<Loop::Fd>( ends[1], "socketpair" );
   Loop::FdWatcher watcher( loop, one.value(), log( 'r' ), log( 'w' ) );
   loop.dispatch();
   EXPECT_EQ( calls, "w" );
   watcher.writeWantedIs( false );
   EXPECT_FALSE( ready() );
   other.reset();  // a hang-up reads as ready
   loop.dispatch();
   EXPECT_EQ( calls, "wr" );
   watcher.readWantedIs( false );
   EXPECT_FALSE( ready() ) << "a hang-up must not spin where nothing is wanted";
   watcher.readWantedIs( true );
   EXPECT_TRUE( ready() );
   // Files that cannot be polled are refused.
   EXPECT_THROW( Loop::FdWatcher( loop, one.value(), log( 'g' ) ),
                 std::system_error );
}

TEST_F( LoopTest, WhatACallbackThrowsLeavesTheRestForTheNextTurn ) {
   loop.post( [] { throw std::runtime_error( "failed" ); } );
   loop.post( log( 'p' ) );
   EXPECT_THROW( loop.dispatch(), std::runtime_error );
   loop.dispatch();
   EXPECT_EQ( calls, "p" );
   Loop::TurnEnd end( loop, log( 'e' ) );
   loop.post( [] { throw std::runtime_error( "failed" ); } );
   EXPECT_THROW( loop.dispatch(), std::runtime_error );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   EXPECT_EQ( calls, "pe" );
}

TEST_F( LoopTest, SignalsComeAsEventsUntilTheirWatcherGoes ) {
   sigset_t blocked;
   sigemptyset( &blocked );
   sigaddset( &blocked, SIGUSR1 );  // stays blocked afterwards
   pthread_sigmask( SIG_BLOCK, &blocked, nullptr );
   std::unique_ptr<SignalWatcher> watcher;
   watcher = std::make_unique<SignalWatcher>(
      loop, std::initializer_list<int>{ SIGHUP, SIGTERM, SIGUSR1 },
      [&]( int signal ) {
         calls += signal == SIGHUP ? 'h' : 't';
         if ( signal != SIGTERM ) return;
         raise( SIGTERM );  // a second one must not kill a process that shuts down
         watcher.reset();
      } );
   raise( SIGHUP );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   raise( SIGTERM );
   raise( SIGHUP );  // SIGHUP, the lower number, is delivered first
   loop.dispatch();
   raise( SIGHUP );
   loop.dispatch();
   EXPECT_EQ( calls.substr( 0, 2 ), "hh" );
   while ( watcher ) loop.dispatch();  // a waiting signal must not kill the test
   sigset_t after;
   pthread_sigmask( SIG_UNBLOCK, &blocked, &after );
   EXPECT_EQ( sigismember( &after, SIGTERM ), 0 );
   EXPECT_EQ( sigismember( &after, SIGUSR1 ), 1 );
}

}
}
