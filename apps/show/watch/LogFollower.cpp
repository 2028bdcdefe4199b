#include "apps/show/watch/LogFollower.h"

#include <csignal>
#include <utility>

#include "apps/show/watch/StandardOutput.h"
#include "platform/loop/RealClock.h"
#include "platform/loop/SignalWatcher.h"
#include "platform/shm/DoorbellHub.h"

namespace Show {

namespace {

// Calls back when a log has changed, or may have come or gone.
class Bells : public Mox::Clock::Notifiee {
 public:
   Bells( Mox::Loop& loop, Mox::Clock& clock, const std::vector<std::string>& paths,
          const std::function<void()>& rang )
      : Notifiee( &clock ) {
      for ( const std::string& path : paths )
         hub_.add( path, [rang]( auto ) { rang(); } );
      if ( hub_.fd() >= 0 )
         watcher_.emplace( loop, hub_.fd(), [this] { onTime(); } );
      onTime();
   }

 private:
   void onTime() override { wakeupTimeIs( hub_.dispatch( clock()->now() ) ); }

   Brane::DoorbellHub hub_;
   std::optional<Mox::Loop::FdWatcher> watcher_;
};

// Calls back a second after a change, once for all changes of that time.
class Repeats : public Mox::Clock::Notifiee {
 public:
   Repeats( Mox::Clock& clock, std::function<void()> due )
      : Notifiee( &clock ), due_( std::move( due ) ) {}

   void changed() {
      if ( !std::exchange( waits_, true ) )
         wakeupTimeIs( clock()->now() + kInterval );
   }

 private:
   static constexpr double kInterval = 1.0;  // s

   void onTime() override {
      waits_ = false;
      due_();
   }

   std::function<void()> due_;
   bool waits_ = false;
};

}

void followLog( Events& events, const EventFilter& filter,
                const EventToLine& line ) {
   std::signal( SIGPIPE, SIG_IGN );
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   const HangUp unread( loop, [&] { loop.stop(); } );
   Mox::SignalWatcher ends( loop, { SIGTERM, SIGINT },
                            [&]( int ) { loop.stop(); } );
   const auto tell = [&]( const std::vector<Logged>& all ) {
      std::string text;
      for ( const Logged& logged : all ) {
         if ( filter.matches( logged ) ) text += line( logged ) + '\n';
      }
      if ( !text.empty() && !writeOut( text ) ) loop.stop();
   };
   Repeats repeats( clock, [&] { tell( events.repeated() ); } );
   const Bells bells( loop, clock, events.paths(), [&] {
      tell( events.take() );
      repeats.changed();
   } );
   loop.run();
}

}
