#include "apps/show/watch/TopScreen.h"

#include <fmt/format.h>
#include <unistd.h>

#include <csignal>
#include <sstream>

#include "apps/show/text/Fold.h"
#include "apps/show/watch/Terminal.h"
#include "platform/loop/SignalWatcher.h"

namespace Show {

namespace {

class TopScreen : public Mox::Clock::Notifiee {
 public:
   TopScreen( Mirrors& mirrors, Top& top, double interval,
              const std::optional<size_t>& first )
      : Notifiee( &mirrors.clock() ),
        loop_( mirrors.loop() ),
        top_( top ),
        interval_( interval ),
        first_( first ),
        keys_( loop_, STDIN_FILENO, [this] { readKeys(); } ) {
      draw();
      wakeupTimeIs( clock()->now() + interval_ );
   }

 private:
   void onTime() override {
      top_.read();
      draw();
      wakeupTimeIs( clock()->now() + interval_ );
   }

   void readKeys() {
      bool any = false;
      for ( auto key = terminal_.key(); key != Terminal::none;
            key = terminal_.key() ) {
         if ( key == Terminal::quit ) return loop_.stop();
         any = true;
      }
      if ( any ) draw();
   }

   void draw() {
      terminal_.begin();
      const auto rows = static_cast<size_t>( terminal_.rows() );
      std::istringstream text( folded(
         topText( top_.streams(), std::min( first_.value_or( rows ), rows ) ),
         terminal_.columns() ) );
      for ( std::string row; std::getline( text, row ); )
         terminal_.line( row, false );
      terminal_.end( fmt::format( "q leaves; rates of {} s", interval_ ) );
   }

   Mox::Loop& loop_;
   Top& top_;
   double interval_;
   std::optional<size_t> first_;
   Terminal terminal_;
   Mox::Loop::FdWatcher keys_;
};

}

void topOnScreen( Mirrors& mirrors, Top& top, double interval,
                  const std::optional<size_t>& first ) {
   const Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                                  [&]( int ) { mirrors.loop().stop(); } );
   const TopScreen screen( mirrors, top, interval, first );
   mirrors.loop().run();
}

}
