#include "engine/MembershipEngine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/engine/ScriptRun.h"
#include "tests/support/VrfBuilder.h"

namespace Router {
namespace {

using namespace Routing::Pim::SparseMode::Test;

const char* const kGroup = "233.252.0.1";
const char* const kSsmGroup = "232.1.1.1";

// "A" stands for 192.0.2.65, and so on.
Vantu::IpGenAddr source( char letter ) {
   return addr( "192.0.2." + std::to_string( int( letter ) ) );
}

class Members {
 public:
   Members() { restart(); }

   void restart() {
      engine.reset();
      engine =
         std::make_unique<MembershipEngine>( routes, clock, &policy, counters );
      routes.adopt();
      engine->adopt();
   }
   void report( MembershipRecordType type, const char* group = kGroup,
                std::vector<Vantu::IpGenAddr> sources = {},
                const char* intf = "eth1", uint8_t version = 3 ) {
      MembershipReport report;
      report.version = version;
      report.records.push_back( { type, addr( group ), std::move( sources ) } );
      engine->receive( intfId( intf ), report );
   }
   // "isIn A B", "eth2 isEx2", "query 5 A"; "times 3 20 5" are the robustness, the
   // interval and the time to respond that a general query tells.
   void act( ScriptWords words ) {
      const char* intf = "eth1";
      if ( words[0] == "eth2" ) {
         intf = "eth2";
         words.erase( words.begin() );
      }
      std::string event = words[0];
      if ( event == "restart" ) return restart();
      if ( event == "gone" ) return engine->handleIntfGone( intfId( intf ) );
      if ( event == "forget" ) {
         model->routeDel( wcKey( kGroup ) );
         return;
      }
      MembershipQuery query;
      if ( event == "times" || event == "times2" ) {
         query.version = event == "times" ? 3 : 2;
         query.robustness = std::stoi( words[1] );
         query.interval = std::stod( words[2] );
         query.maxResponse = std::stod( words[3] );
         return engine->receive( intfId( intf ), query );
      }
      std::vector<Vantu::IpGenAddr> sources;
      for ( const std::string& word : words )
         if ( word.size() == 1 && std::isupper( word[0] ) != 0 )
            sources.push_back( source( word[0] ) );
      if ( event == "query" || event == "suppressed" ) {
         query.suppress = event == "suppressed";
         query.group = addr( kGroup );
         query.sources = sources;
         query.maxResponse = std::stod( words[1] );
         return engine->receive( intfId( intf ), query );
      }
      uint8_t version = 3;
      if ( std::isdigit( event.back() ) != 0 ) {
         version = event.back() - '0';
         event.pop_back();
      }
      const std::string names[] = { "isIn", "isEx",  "toIn",
                                    "toEx", "allow", "block" };
      auto type = static_cast<MembershipRecordType>(
         std::find( std::begin( names ), std::end( names ), event ) - names );
      report( type, kGroup, sources, intf, version );
   }
   // "A B" are wanted, "* -B" is all but B.
   std::string state() const {
      std::set<std::string> out;
      for ( const auto& route : model->route() ) {
         std::string of = "*";
         if ( !route.wildCard() ) of = char( route.key().source.bytes()[3] );
         for ( const auto& intf : route.routeIntf() ) {
            std::string link = intf.intfId() == intfId( "eth1" ) ? "" : "eth2:";
            EXPECT_EQ( intf.localMembership(), intf.localReceiverInclude() );
            EXPECT_NE( intf.localReceiverExclude(), intf.localReceiverInclude() );
            out.insert( link + ( intf.localReceiverExclude() ? "-" : "" ) + of );
         }
      }
      return out.empty() ? "none" : fmt::format( "{}", fmt::join( out, " " ) );
   }

   Mox::TestClock clock;
   VrfConfig config;
   Topology topology{ config };
   GroupPolicy policy{ Vantu::AddressFamily::ipv4, config };
   Mox::Ptr<Routing::Pim::SparseMode::Status> model =
      Routing::Pim::SparseMode::statusFactory( L3::VrfName( "default" ) );
   Routes routes{ model, clock, topology, &policy };
   RouterCounters counters;
   std::unique_ptr<MembershipEngine> engine;
};

// A membership lives for 260 s; what a querier would ask for, for 2 s.
const ScriptRow kRows[] = {
   // RFC 3376, 6.4.1 and 6.4.2. Requested sources of a group that is wanted from all show
   // only when their time is up.
   { "0 isIn A, 10 isIn B", "0 A, 10 A B, 260 B, 270 none" },
   { "0 isIn A, 10 allow A", "0 A, 270 none" },
   { "0 isIn A B, 10 isEx B C", "0 A B, 10 * -C, 260 * -B -C, 270 none" },
   { "0 isIn A B, 10 block A C", "0 A B, 12 B, 260 none" },
   { "0 isIn A B, 10 toEx A C", "0 A B, 10 * -C, 12 * -A -C, 270 none" },
   { "0 isIn A B, 10 toIn B C", "0 A B, 10 A B C, 12 B C, 270 none" },
   { "0 isEx A, 10 allow A B", "0 * -A, 10 *, 260 A B, 270 none" },
   { "0 isEx A, 10 allow B D, 20 isEx A B C", "0 * -A, 270 * -A -B, 280 none" },
   { "0 isEx A, 10 block A B", "0 * -A, 12 * -A -B, 260 none" },
   { "0 isEx A D, 10 allow B, 20 toEx A C",
     "0 * -A -D, 20 * -A, 22 * -A -C, 280 none" },
   { "0 isEx A, 10 allow B, 20 toIn A", "0 * -A, 20 *, 22 A, 280 none" },
   // Another host answers, on that link.
   { "0 isEx, 10 toIn, 11 isEx", "0 *, 271 none" },
   { "0 isEx, 0 eth2 isEx, 10 eth2 toIn, 11 isEx",
     "0 *, 0 * eth2:*, 12 *, 271 none" },
   // 7.3.2
   { "0 isEx2, 10 toIn2", "0 *, 12 none" },
   { "0 isEx1, 10 toIn2", "0 *, 260 none" },
   { "0 isEx2, 10 block A, 20 toEx A", "0 *, 280 none" },
   { "0 isEx2, 100 isEx, 300 block A", "0 *, 302 * -A, 360 none" },
   // Another router asks, and tells its times, or those by default.
   { "0 isEx A, 10 query 2.5", "0 * -A, 15 none" },
   { "0 isIn A B, 10 query 2.5 A C", "0 A B, 15 B, 260 none" },
   { "0 isIn A, 258 query 2.5 A", "0 A, 260 none" },
   { "0 isEx, 10 suppressed 2.5", "0 *, 260 none" },
   { "0 times 3 20 3, 0 isEx", "0 *, 63 none" },
   { "0 times 3 20 3, 0 isEx, 1 query 3", "0 *, 7 none" },
   { "0 times 3 20 3, 0 times2 0 0 5, 0 isEx", "0 *, 65 none" },
   { "0 times 3 20 5, 0 times 0 0 3, 0 isEx", "0 *, 253 none" },
   // What is reloaded lives for a membership time, unless a host says so again.
   { "0 isEx A, 0 eth2 isIn B, 200 restart, 300 isEx A",
     "0 * -A, 0 * -A eth2:B, 460 * -A, 560 none" },
   // As a process leaves it that died between two writes, or had no room for the group.
   { "0 isEx A, 1 forget, 2 restart", "0 * -A, 1 -A, 2 * -A, 262 none" },
   { "0 isEx A, 0 eth2 isIn B, 1 gone",
     "0 * -A, 0 * -A eth2:B, 1 eth2:B, 260 none" },
};

TEST( MembershipEngine, FollowsTheTables ) {
   for ( const auto& [script, history] : kRows ) {
      Members members;
      EXPECT_EQ( playScript( members.clock, script, members ), history ) << script;
      EXPECT_EQ( members.model->route().size(), 0u );
   }
}

TEST( MembershipEngine, WhatMakesNoSenseIsRefused ) {
   Members members;
   members.report( isExclude, "192.0.2.1" );
   members.report( isExclude, "224.0.0.251" );
   members.report( isExclude, kSsmGroup );
   members.report( toExclude, kSsmGroup );
   members.report( allow, kSsmGroup,
                   { addr( "0.0.0.0" ), addr( "224.1.1.1" ), source( 'A' ) } );
   EXPECT_EQ( members.state(), "A" ) << "the rest counts";
   EXPECT_EQ(
      members.counters.text(),
      "refused: notMulticast 1, linkLocalGroup 1, badSource 2, ssmGroup 2" );
   EXPECT_TRUE(
      members.model->route( { source( 'A' ), addr( kSsmGroup ) } )->spTree() );
}

// Whoever makes up groups and sources takes no more room than the tables have.
TEST( MembershipEngine, WhatFindsNoRoomIsForgotten ) {
   Members members;
   members.model->maxRoutesIs( 1 );
   members.report( isExclude );
   members.report( isExclude, "233.252.0.2" );
   members.report( isInclude, kSsmGroup, { source( 'A' ) } );
   EXPECT_EQ( members.state(), "*" );
   EXPECT_EQ( members.counters.refusedCount( tableFull ), 2u );
   members.clock.runUntil( members.clock.now() + 261 );
   EXPECT_EQ( members.clock.nextWakeup(), Mox::Clock::never );
   members.report( isExclude, "233.252.0.2" );
   EXPECT_EQ( members.state(), "*" );
   std::vector<Vantu::IpGenAddr> many;
   for ( size_t i = 0; i <= MembershipEngine::maxSources; ++i )
      many.push_back( addr( fmt::format( "10.1.{}.{}", i / 256, i % 256 ) ) );
   members.report( allow, "233.252.0.2", many );
   members.report( allow, "233.252.0.2", { many.front() } );
   EXPECT_EQ( members.counters.refusedCount( tooManySources ), 1u );
}

}
}
