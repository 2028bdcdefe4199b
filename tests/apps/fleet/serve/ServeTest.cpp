#include <gtest/gtest.h>

#include <functional>
#include <set>

#include "apps/fleet/serve/Fold.h"
#include "apps/fleet/serve/Following.h"
#include "apps/fleet/serve/Picture.h"
#include "apps/fleet/serve/Target.h"

namespace Fleet {
namespace {

// Three below each, in order; the last one breaks if it is to.
PathAnswer treeOf( size_t routers, bool broken ) {
   PathAnswer answer;
   for ( size_t i = 0; i < routers; ++i ) {
      answer.nodes.push_back( { "r" + std::to_string( i ), "eth0" } );
      if ( i > 0 ) answer.edges.push_back( { ( i - 1 ) / 3, i, "eth1", "eth0" } );
   }
   answer.roots.push_back( { 0 } );
   if ( broken )
      answer.edges.back().judgement = { Verdict::notForwarding, "so it is" };
   return answer;
}

TEST( Fold, KeepsTheWayToWhatIsAmiss ) {
   const Judgement breaks{ Verdict::notForwarding, "so it is" };
   using Fault = std::function<void( PathAnswer& )>;
   const Fault faults[] = {
      {},
      [&]( PathAnswer& a ) { a.edges.back().judgement = breaks; },
      [&]( PathAnswer& a ) {
         a.roots.push_back( { 999 } ), a.roots[1].judgement = breaks;
      },
      [&]( PathAnswer& a ) {
         a.receivers.push_back( { 999 } ), a.receivers[0].judgement = breaks;
      },
      []( PathAnswer& a ) { a.nodes[999].stale = true; },
      []( PathAnswer& a ) { a.nodes[999].agentGone = true; } };
   for ( const Fault& fault : faults ) {
      const bool broken = fault != nullptr;
      PathAnswer answer = treeOf( 1000, false );
      if ( broken ) fault( answer );
      const auto into = folded( answer, 300 );
      size_t drawn = 0;
      for ( size_t node = 0; node < into.size(); ++node ) {
         EXPECT_EQ( into[into[node]], into[node] ) << node;
         if ( into[node] != node ) continue;
         ++drawn;
         const size_t above = node == 0 ? 0 : ( node - 1 ) / 3;
         EXPECT_EQ( into[above], above ) << node << " hangs nowhere";
      }
      EXPECT_EQ( drawn, 300U );
      EXPECT_EQ( into[999] == 999, broken );
      // 998 hangs below 332, that one below 110.
      EXPECT_EQ( into[998], broken ? 332U : 110U );
   }
   const PathAnswer small = treeOf( 300, false );
   const auto whole = folded( small, 300 );
   EXPECT_EQ( std::set<size_t>( whole.begin(), whole.end() ).size(), 300U );
}

TEST( Fold, TellsHowManyAreHidden ) {
   const Picture picture( treeOf( 1000, false ), false, 40 );
   // 40 routers and the 39 edges between them.
   EXPECT_EQ( picture.graph().boxes.size(), 79U );
   EXPECT_EQ( picture.graph().lines.size(), 78U );
   Layout layout;
   layout.boxes.resize( 79 );
   layout.lines.resize( 78 );
   const std::string svg = picture.svg( layout );
   // 39 has 3 children, 9 grandchildren.
   EXPECT_NE( svg.find( "+ 12 routers below" ), std::string::npos );
}

TEST( Picture, NamesStayText ) {
   PathAnswer answer = treeOf( 2, true );
   const std::string name =
      "<script>'\"&\xff\xed\xa0\x80\xef\xbf\xbf\xc0\x80\x1b[2Jé";
   answer.nodes[0].router = answer.edges[0].fromInterface = name;
   answer.scope.vrf = name;
   answer.edges[0].judgement.reason = answer.verdict = name;
   const Picture picture( answer, false );
   Layout layout;
   layout.boxes.resize( 3 );
   layout.lines.resize( 2 );
   const std::string svg = picture.svg( layout );
   EXPECT_EQ( svg.find( "<script" ), std::string::npos );
   EXPECT_EQ( svg.find_first_of( "\xff\xed\xef\xc0\x1b'" ), std::string::npos );
   EXPECT_NE( svg.find( "&lt;script&gt;&#39;&quot;&amp;" ), std::string::npos );
   EXPECT_NE( svg.find( "é" ), std::string::npos );
   EXPECT_NE( svg.find( "vrf=%3Cscript%3E%27%22%26%FF%ED" ), std::string::npos );
}

TEST( Picture, SaysStatesInWords ) {
   struct Row {
      void ( *flip )( PathAnswer& );
      const char* word;
   };
   for ( const Row& row :
         { Row{ []( PathAnswer& a ) { a.edges[0].forwards = true; },
                "eth1 forwards" },
           { []( PathAnswer& a ) { a.edges[0].toBits = 4.1e6; }, "4.1 Mbit/s" },
           { []( PathAnswer& a ) { a.edges[0].judgement.verdict = Verdict::loop; },
             "BREAKS: loop" },
           { []( PathAnswer& a ) { a.edges[0].judgement.verdict = Verdict::stale; },
             "in doubt: stale" },
           { []( PathAnswer& a ) { a.nodes[1].stale = true; }, ">stale<" },
           { []( PathAnswer& a ) {
               a.nodes[1].agentGone = true, a.nodes[1].asOf = 1;
            },
             "as of 1970-01-01T00:00:00.001Z" },
           { []( PathAnswer& a ) {
               a.receivers.push_back( { 1, "eth9" } );
            },
             "eth9 unknown receiver" } } ) {
      PathAnswer answer = treeOf( 2, false );
      const auto drawn = [&] {
         Layout layout;
         layout.boxes.resize( 3 );
         layout.lines.resize( 2 );
         return Picture( answer, true ).svg( layout );
      };
      EXPECT_EQ( drawn().find( row.word ), std::string::npos ) << row.word;
      row.flip( answer );
      EXPECT_NE( drawn().find( row.word ), std::string::npos ) << row.word;
   }
}

// A store whose bell and answer the test sets.
struct Followed : testing::Test {
   struct OwnBell : Bell {
      explicit OwnBell( bool& flag ) : flag_( flag ) {}
      bool rang() override { return std::exchange( flag_, false ); }
      bool& flag_;
   };

   // What is told at a time, in ms.
   std::vector<std::string> at( int time ) {
      told.clear();
      following.look( Following::Clock::time_point(
         std::chrono::milliseconds( time ) + std::chrono::hours( 1 ) ) );
      return told;
   }
   void follow( uint64_t follower ) {
      following.add( follower, "tree", {}, [this]( const Telling& telling ) {
         told.push_back( telling.name.empty() ? telling.text : answer.verdict );
      } );
   }

   PathAnswer answer = treeOf( 2, false );
   bool rings = true, away = false;
   int reads = 0;
   std::vector<std::string> told;
   Following following{ [this]( const PathQuestion& ) {
                          ++reads;
                          if ( away ) throw StoreAway( "away" );
                          return answer;
                       },
                        [this]( const PathQuestion& ) {
                           return std::make_unique<OwnBell>( rings );
                        } };
};

using Tellings = std::vector<std::string>;

TEST_F( Followed, TellsChangesOnce ) {
   answer.verdict = "one";
   follow( 1 );
   EXPECT_EQ( at( 0 ), Tellings{ "one" } );
   rings = true;
   EXPECT_EQ( at( 200 ), Tellings{} );  // nothing new
   answer.verdict = "two";
   EXPECT_EQ( at( 400 ), Tellings{} );            // no bell
   EXPECT_EQ( at( 10'200 ), Tellings{ "two" } );  // but it looks anyway
   told.clear();
   follow( 2 );
   EXPECT_EQ( told, Tellings{ "two" } );
   answer.verdict = "three";
   rings = true;
   EXPECT_EQ( at( 10'400 ), ( Tellings{ "three", "three" } ) );
   EXPECT_EQ( reads, 4 );
   following.remove( 1 );
   following.remove( 2 );
   EXPECT_TRUE( following.empty() );
}

TEST_F( Followed, LooksTwiceAtWhatBreaks ) {
   follow( 1 );
   at( 0 );
   answer = treeOf( 2, true );
   answer.broken = true;
   answer.verdict = "breaks";
   rings = true;
   EXPECT_EQ( at( 200 ), Tellings{} );
   EXPECT_EQ( at( 600 ), Tellings{} );
   EXPECT_EQ( at( 700 ), Tellings{ "breaks" } );
   ASSERT_TRUE( following.last( "tree" ) );
   away = rings = true;
   EXPECT_EQ( at( 900 ), Tellings{ "\"away\"" } );
   EXPECT_FALSE( following.last( "tree" ) );
   away = false;
   at( 1400 );
   EXPECT_EQ( at( 1900 ), Tellings{ "breaks" } );
}

TEST( Target, IsWellFormedOrNothing ) {
   const auto target = parseTarget( "/a%2Fb?x=%3c1+2%3E&y=&&z" );
   ASSERT_TRUE( target );
   EXPECT_EQ( target->path, "/a/b" );
   EXPECT_EQ( ( *target )["x"], "<1 2>" );
   EXPECT_EQ( ( *target )["z"], "" );
   EXPECT_EQ( ( *parseTarget( "/?a=" + targetText( "é &+%" ) ) )["a"], "é &+%" );
   for ( const char* wrong :
         { "", "x", "http://x/", "/%", "/%4", "/%4g", "/?a=1&a=2", "/%00", "/\n" } )
      EXPECT_FALSE( parseTarget( wrong ) ) << wrong;
}

TEST( Target, OnlyOwnHosts ) {
   struct Row {
      const char* host;
      const char* listening;
      bool own;
   };
   for ( const Row& row : { Row{ "localhost:8080", "127.0.0.1", true },
                            { "127.0.0.1", "127.0.0.1", true },
                            { "[::1]:9", "127.0.0.1", true },
                            { "192.0.2.1", "192.0.2.1", true },
                            { "192.0.2.9:80", "0.0.0.0", true },
                            { "192.0.2.9", "192.0.2.1", false },
                            { "localhost.example.com", "127.0.0.1", false },
                            { "127.0.0.1.example.com", "0.0.0.0", false },
                            { "[::1", "::1", false },
                            { "", "0.0.0.0", false } } )
      EXPECT_EQ( isOwnHost( row.host, row.listening ), row.own ) << row.host;
}

}
}
