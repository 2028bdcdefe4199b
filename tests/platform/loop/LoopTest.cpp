#include "platform/loop/Loop.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

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

// Readable from the start.
class Event : public Loop::Fd {
 public:
   Event() : Fd( eventfd( 1, EFD_NONBLOCK | EFD_CLOEXEC ), "eventfd" ) {}
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
   // What a host of its own loop does.
   bool ready( int milliseconds = 0 ) const {
      pollfd poller{ loop.fd(), POLLIN, 0 };
      return poll( &poller, 1, milliseconds ) == 1;
   }

   Loop::Function log( char name ) {
      return [this, name] { calls += name; };
   }

   Loop loop;
   String calls;
};

TEST_F( LoopTest, OneDescriptorTellsOfFilesPostsAndTimers ) {
   EXPECT_FALSE( ready() );
   loop.post( log( 'p' ) );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   EXPECT_FALSE( ready() );

   Event event;
   auto watcher =
      std::make_unique<Loop::FdWatcher>( loop, event.value(), log( 'f' ) );
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

TEST_F( LoopTest, ServesFilesThenPostsThenWakeupsThenTheTurnsEnd ) {
   Event event;
   RealClock clock( loop );
   Alarm alarm( clock, log( 'a' ) );
   Loop::TurnEnd end( loop, log( 'e' ) );
   alarm.wakeupTimeIs( clock.now() );
   loop.post( log( 'p' ) );
   Loop::FdWatcher watcher( loop, event.value(), log( 'f' ) );
   loop.dispatch();
   EXPECT_EQ( calls, "fpae" );
}

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

TEST_F( LoopTest, AFileRemovedInItsTurnIsNotServed ) {
   Event one;
   Event two;
   std::unique_ptr<Loop::FdWatcher> a;
   std::unique_ptr<Loop::FdWatcher> b;
   // Whichever comes first destroys both, itself included.
   auto destroy = [&] {
      calls += 'x';
      a.reset();
      b.reset();
   };
   a = std::make_unique<Loop::FdWatcher>( loop, one.value(), destroy );
   b = std::make_unique<Loop::FdWatcher>( loop, two.value(), destroy );
   loop.dispatch();
   loop.dispatch();
   EXPECT_EQ( calls, "x" );
}

TEST_F( LoopTest, ANewFileUnderARemovedNumberWaitsForItsOwnEvent ) {
   Event first;
   auto second = std::make_unique<Event>();
   std::unique_ptr<Loop::FdWatcher> b;
   std::unique_ptr<Loop::Fd> reused;
   std::unique_ptr<Loop::FdWatcher> c;
   Loop::FdWatcher a( loop, first.value(), [&] {
      if ( !b ) return;
      int number = second->value();
      b.reset();
      second.reset();
      reused = std::make_unique<Loop::Fd>( eventfd( 0, EFD_CLOEXEC ), "eventfd" );
      ASSERT_EQ( reused->value(), number );
      c = std::make_unique<Loop::FdWatcher>( loop, number, log( 'c' ) );
   } );
   b = std::make_unique<Loop::FdWatcher>( loop, second->value(), log( 'b' ) );
   loop.dispatch();
   loop.dispatch();
   EXPECT_EQ( calls.find( 'c' ), String::npos );
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
}

TEST_F( LoopTest, RefusesWhatCannotBePolled ) {
   Event event;
   Loop::FdWatcher watcher( loop, event.value(), log( 'f' ) );
   EXPECT_THROW( Loop::FdWatcher( loop, event.value(), log( 'g' ) ),
                 std::system_error );
   EXPECT_THROW( Loop::FdWatcher( loop, -1, log( 'g' ) ), std::system_error );
}

TEST_F( LoopTest, WhatACallbackThrowsLeavesTheRestForTheNextTurn ) {
   loop.post( [] { throw std::runtime_error( "failed" ); } );
   loop.post( log( 'p' ) );
   EXPECT_THROW( loop.dispatch(), std::runtime_error );
   EXPECT_TRUE( ready() );
   loop.dispatch();
   EXPECT_EQ( calls, "p" );
}

TEST_F( LoopTest, SignalsComeAsEventsUntilTheirWatcherGoes ) {
   std::unique_ptr<SignalWatcher> watcher;
   watcher = std::make_unique<SignalWatcher>(
      loop, std::initializer_list<int>{ SIGHUP, SIGTERM }, [&]( int signal ) {
         calls += signal == SIGHUP ? 'h' : 't';
         if ( signal == SIGTERM ) watcher.reset();
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
   while ( watcher ) loop.dispatch();  // what still waits must not kill the test
   sigset_t blocked;
   pthread_sigmask( SIG_SETMASK, nullptr, &blocked );
   EXPECT_EQ( sigismember( &blocked, SIGTERM ), 0 );
}

}
}
