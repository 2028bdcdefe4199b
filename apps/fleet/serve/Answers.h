// The answers to what a page asks. One thread owns the store's reader and may block on it;
// another waits for Graphviz. Whoever asks does not wait: answers come by a call from one of
// these threads.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <string>

#include "apps/fleet/answers/Asked.h"
#include "apps/fleet/serve/Following.h"
#include "apps/fleet/serve/Layout.h"
#include "apps/fleet/serve/Target.h"
#include "apps/fleet/serve/Worker.h"

namespace Fleet {

struct Answer {
   unsigned status = 200;  // of HTTP
   std::string type = "text/plain; charset=utf-8";
   std::string body = {};  // a sentence where the status is another one
};

class Answers {
 public:
   using Tell = std::function<void( const Answer& )>;

   static constexpr size_t mostWaiting = 256;  // questions

   explicit Answers( std::unique_ptr<Reader> reader );
   ~Answers();

   // Is there an answer to what this path asks?
   static bool knows( const std::string& path );
   // Answers once, later or at once. Any thread.
   void ask( const Target& target, const Tell& tell );

   // Tells changes of the tree until leave(). The returned number is never 0. Throws
   // Mox::ParseError or Programs::WrongUsage for what asks no tree. Any thread.
   uint64_t follow( const Target& target, const Following::Tell& tell );
   void leave( uint64_t follower );

   // Ends both threads: nothing is told from here on.
   void stop();

 private:
   Answer answer( const Target& target );
   Answer history( const Target& target );
   void path( const Target& target, const Tell& tell, bool again );
   void draw( const PathAnswer& answer, const Target& target, const Tell& tell );
   PathAnswer find( const PathQuestion& question );
   void look();
   Layout layout( const Graph& graph );

   std::unique_ptr<Reader> reader_;
   Following following_;
   bool looks_ = false;
   std::atomic<uint64_t> followers_ = 0;
   std::deque<std::pair<Graph, Layout>> layouts_;  // of the drawing thread
   Worker drawing_{ mostWaiting };
   Worker asking_{ mostWaiting };
};

}
