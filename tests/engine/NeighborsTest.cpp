#include "engine/Neighbors.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/engine/ScriptRun.h"

namespace Router {
namespace {

Vantu::IpGenAddr addr( const std::string& text ) {
   return Vantu::IpGenAddr( Mox::StringView( text ) );
}

// Own address: 192.0.2.5. The state is what it was at the last notification.
struct Link {
   // "3 40 dr=7 gen=1 700/100" is a hello of 192.0.2.3: hold time, DR priority, generation
   // and delays in ms; "own 9" sets the own priority.
   void act( const ScriptWords& words ) {
      if ( words[0] == "own" )
         return neighbors.ownIs( addr( "192.0.2.5" ), std::stoul( words[1] ) );
      PimHello hello;
      hello.drPriority = 1;
      for ( const std::string& word :
            ScriptWords( words.begin() + 1, words.end() ) ) {
         const size_t slash = word.find( '/' );
         if ( word == "nodr" ) {
            hello.drPriority.reset();
         } else if ( word.rfind( "dr=", 0 ) == 0 ) {
            hello.drPriority = std::stoul( word.substr( 3 ) );
         } else if ( word.rfind( "gen=", 0 ) == 0 ) {
            hello.generationId = std::stoul( word.substr( 4 ) );
         } else if ( slash != std::string::npos ) {
            hello.lanPruneDelay =
               LanPruneDelay{ false, uint16_t( std::stoi( word ) ),
                              uint16_t( std::stoi( word.substr( slash + 1 ) ) ) };
         } else {
            hello.holdtime = std::stoi( word );
         }
      }
      EXPECT_TRUE( neighbors.receiveHello( addr( "192.0.2." + words[0] ), hello ) );
   }
   std::string state() const { return told; }
   // "2 3 wait 3 dr": neighbours, how long a prune waits, is this router the DR?
   void look() {
      told.clear();
      for ( const auto& [address, neighbor] : neighbors.all() )
         told += std::to_string( address.bytes()[3] ) + ' ';
      if ( neighbors.prunePendingTime() > 0 )
         told += fmt::format( "wait {:g} ", neighbors.prunePendingTime() );
      told += neighbors.iAmDr() ? "dr" : "no";
   }

   Mox::TestClock clock;
   std::string told = "dr";
   std::string lost;
   Neighbors neighbors{
      clock, addr( "192.0.2.5" ), 1,
      NeighborsObserver{ [this] { look(); },
                         [this]( const auto& address ) {
                            lost += std::to_string( address.bytes()[3] );
                         } } };
};

struct Row {
   const char* script;
   const char* history;
   const char* lost;
};

const Row kRows[] = {
   { "0 2 40", "0 2 dr, 40 dr", "2" },
   { "0 2", "0 2 dr, 105 dr", "2" },
   // Unlike a join's, a hello's hold time replaces the former one, and may be shorter.
   { "0 2 65535, 99000 2 50", "0 2 dr, 99050 dr", "2" },
   // Goodbye, also of a stranger.
   { "0 2 0", "", "" },
   { "0 2, 1 3 0, 2 2 0, 3 2 30", "0 2 dr, 2 dr, 3 2 dr, 33 dr", "22" },
   // Whoever has started anew has forgotten what it said (RFC 7761, 4.3.1): an option that
   // appears counts as well.
   { "0 2, 1 2 gen=7, 2 2 gen=7, 3 2 gen=8", "0 2 dr, 108 dr", "222" },
   // The DR: priority, then address, and the address alone where one has no priority. The
   // address and the priority point different ways, unless the row is about one alone.
   { "0 6", "0 6 no, 105 dr", "6" },
   { "0 4 dr=2", "0 4 no, 105 dr", "4" },
   { "0 own 2, 0 6", "0 6 dr, 105 dr", "6" },
   { "0 4 dr=4294967295", "0 4 no, 105 dr", "4" },
   { "0 6 dr=0", "0 6 dr, 105 dr", "6" },
   { "0 own 0, 0 4 nodr", "0 4 dr, 105 dr", "4" },
   { "0 own 9, 0 4 nodr, 0 6", "0 4 dr, 0 4 6 wait 3 no, 105 dr", "46" },
   { "0 own 5, 0 1 dr=6, 0 9", "0 1 no, 0 1 9 wait 3 no, 105 dr", "19" },
   { "0 4 dr=2, 1 own 3", "0 4 no, 1 4 dr, 105 dr", "4" },
   // A prune waits where another could override, for as long as the slowest takes if all
   // tell; the own delays are 500 and 2500 ms.
   { "0 2, 1 3, 2 3 0", "0 2 dr, 1 2 3 wait 3 dr, 2 2 dr, 105 dr", "32" },
   { "0 2 700/100, 0 3 10/4000, 1 4 30, 40 3 20/30",
     "0 2 dr, 0 2 3 wait 4.7 dr, 1 2 3 4 wait 3 dr, 31 2 3 wait 4.7 dr, "
     "40 2 3 wait 3.2 dr, 105 3 dr, 145 dr",
     "423" },
};

TEST( NeighborsOfALink, FollowTheirHellos ) {
   for ( const Row& row : kRows ) {
      Link link;
      EXPECT_EQ( playScript( link.clock, row.script, link ), row.history )
         << row.script;
      EXPECT_EQ( link.lost, row.lost ) << row.script;
   }
}

// Whoever makes up senders takes no more room than that, and no neighbour's place.
TEST( NeighborsOfALink, AreNoMoreThanSoMany ) {
   Link link;
   Neighbors& neighbors = link.neighbors;
   auto from = []( size_t i ) {
      return addr( fmt::format( "10.0.{}.{}", i / 256, i % 256 ) );
   };
   for ( size_t i = 0; i < Neighbors::maxNeighbors; ++i )
      EXPECT_TRUE( neighbors.receiveHello( from( i ), {} ) );
   EXPECT_FALSE( neighbors.receiveHello( addr( "192.0.2.2" ), {} ) );
   EXPECT_EQ( neighbors.size(), Neighbors::maxNeighbors );
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), {} ) );
   PimHello goodbye;
   goodbye.holdtime = 0;
   EXPECT_TRUE( neighbors.receiveHello( from( 0 ), goodbye ) );
   EXPECT_TRUE( neighbors.receiveHello( addr( "192.0.2.2" ), {} ) );
}

}
}
