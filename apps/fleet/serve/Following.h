// Trees that pages follow: looks again at each on its bell, and now and then anyway, and
// tells when it has changed. One thread's, which may block as its reader does.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "apps/fleet/path/Path.h"

namespace Fleet {

// What a page gets of a tree: a line of JSON, and a name of it that is the same whoever
// tells it, and when; or why there is none.
struct Telling {
   std::string name = {};  // empty: the text is a sentence about the store, in JSON
   std::string text = {};
};

class Following {
 public:
   using Clock = std::chrono::steady_clock;
   using Tell = std::function<void( const Telling& )>;
   using Find = std::function<PathAnswer( const PathQuestion& )>;
   using Ring = std::function<std::unique_ptr<Bell>( const PathQuestion& )>;

   static constexpr auto interval = std::chrono::milliseconds( 200 );
   static constexpr auto anyway = std::chrono::seconds( 10 );
   static constexpr auto doubt = std::chrono::milliseconds( 500 );

   Following( Find find, Ring ring );

   // Tells what is known of that tree at once, and its changes from then on. `text` stands
   // for the question: whoever gives the same shares what is read.
   void add( uint64_t follower, const std::string& text,
             const PathQuestion& question, Tell tell );
   void remove( uint64_t follower );
   bool empty() const { return trees_.empty(); }
   // The last one told of that question; null: none.
   const PathAnswer* last( const std::string& text ) const;

   // Looks at what is due. What breaks is looked at again before it is told: values of
   // two routers are of slightly different times.
   void look( Clock::time_point now );

 private:
   struct Tree {
      PathQuestion question;
      std::unique_ptr<Bell> bell = {};
      std::map<uint64_t, Tell> followers = {};
      Clock::time_point next = {};  // to look anyway
      bool doubted = false;
      Telling told = {};
      std::optional<PathAnswer> answer = {};
   };

   void look( Tree& tree, Clock::time_point now );
   void read( Tree& tree, Clock::time_point now );
   static void giveUp( Tree& tree, const std::string& why, Clock::time_point now );
   static void tell( Tree& tree, Telling telling );

   Find find_;
   Ring ring_;
   std::map<std::string, Tree> trees_;
};

// The answer as the page wants it: pathJson() with words and rates for people.
std::string tellingText( const PathAnswer& answer );

}
