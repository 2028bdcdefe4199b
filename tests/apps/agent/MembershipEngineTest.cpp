#include "apps/agent/engine/MembershipEngine.h"

#include <gtest/gtest.h>

#include "apps/agent/config/ConfigReader.h"
#include "platform/loop/TestClock.h"
#include "tests/support/VrfBuilder.h"

namespace Agent {
namespace {

using namespace Routing::Pim::SparseMode::Test;
using Routing::Pim::SparseMode::Intf;
using Routing::Pim::SparseMode::Route;

const char* const kGroup = "233.252.0.1";
const char* const kSsmGroup = "232.1.1.1";

// Members show in the records: "(*, G) eth1 member; (192.0.2.7, G) eth1 excluded".
class Members : public testing::Test {
 protected:
   void receive( MembershipRecordType type, const char* group = kGroup,
                 std::vector<Vantu::IpGenAddr> sources = {},
                 const char* intf = "eth1", uint8_t version = 3 ) {
      MembershipReport report;
      report.version = version;
      report.records.push_back( { type, addr( group ), std::move( sources ) } );
      engine->receive( intfId( intf ), report );
   }
   void after( double seconds ) { clock.runUntil( clock.now() + seconds ); }
   void restart() {
      engine.reset();
      engine = newEngine();
      routes.adopt();
      engine->adopt();
   }
   std::unique_ptr<MembershipEngine> newEngine() {
      return std::make_unique<MembershipEngine>( routes, clock, &policy, counters );
   }

   std::string state() const {
      std::map<std::string, std::string> lines;
      for ( const Route& route : model->route() ) {
         for ( const Intf& intf : route.routeIntf() ) {
            std::string source =
               route.wildCard() ? "*" : valueToStrep( route.key().source );
            std::string key =
               "(" + source + ") " + std::string( intf.intfId().name() );
            lines[key] = intf.localReceiverInclude()   ? " member"
                         : intf.localReceiverExclude() ? " excluded"
                                                       : " ?";
            EXPECT_EQ( intf.localMembership(), intf.localReceiverInclude() );
         }
      }
      std::string out;
      for ( const auto& [key, what] : lines )
         out += ( out.empty() ? "" : "; " ) + key + what;
      return out;
   }

   Mox::TestClock clock;
   VrfConfig config;
   Topology topology{ config };
   GroupPolicy policy{ Vantu::AddressFamily::ipv4, config };
   Mox::Ptr<Routing::Pim::SparseMode::Status> model =
      Routing::Pim::SparseMode::statusFactory( L3::VrfName( "default" ) );
   Routes routes{ model, clock, topology, &policy };
   AgentCounters counters;
   std::unique_ptr<MembershipEngine> engine = newEngine();
};

TEST_F( Members, AllSourcesJoinTheSharedTreeButTheExcludedOnes ) {
   receive( toExclude, kGroup, { addr( "192.0.2.7" ), addr( "192.0.2.8" ) } );
   receive( isExclude, kGroup, {}, "eth2", 2 );
   EXPECT_EQ( state(),
              "(*) eth1 member; (*) eth2 member; (192.0.2.7) eth1 excluded; "
              "(192.0.2.8) eth1 excluded" );
   receive( allow, kGroup, { addr( "192.0.2.7" ) } );
   EXPECT_EQ( state(),
              "(*) eth1 member; (*) eth2 member; (192.0.2.8) eth1 excluded" )
      << "what is wanted comes with the shared tree";
   // A leave, and nobody answers within two seconds.
   receive( toInclude, kGroup, {}, "eth2", 2 );
   after( 1.9 );
   EXPECT_NE( state().find( "eth2" ), std::string::npos );
   after( 0.2 );
   EXPECT_EQ( state(), "(*) eth1 member; (192.0.2.8) eth1 excluded" );
   after( 300 );
   EXPECT_EQ( state(), "" ) << "a membership time after the last report";
   EXPECT_EQ( model->route().size(), 0u );
}

TEST_F( Members, SomeSourcesJoinTheirTrees ) {
   receive( isInclude, kSsmGroup, { addr( "192.0.2.7" ), addr( "192.0.2.8" ) } );
   EXPECT_EQ( state(), "(192.0.2.7) eth1 member; (192.0.2.8) eth1 member" );
   EXPECT_TRUE( model->route( sgKey( "192.0.2.7", kSsmGroup ) )->spTree() );
   receive( block, kSsmGroup, { addr( "192.0.2.8" ) } );
   after( 2.1 );
   EXPECT_EQ( state(), "(192.0.2.7) eth1 member" );
   // From some sources to all, and back.
   receive( isInclude, kGroup, { addr( "192.0.2.7" ) } );
   receive( isExclude, kGroup );
   EXPECT_EQ( state(), "(*) eth1 member; (192.0.2.7) eth1 member" )
      << "the source of the other group";
   receive( toInclude, kGroup, { addr( "192.0.2.9" ) } );
   after( 2.1 );
   EXPECT_EQ( state(), "(192.0.2.7) eth1 member; (192.0.2.9) eth1 member" );
}

TEST_F( Members, WhatMakesNoSenseIsRefused ) {
   receive( isExclude, "192.0.2.1" );
   receive( isExclude, "224.0.0.251" );
   receive( isExclude, kSsmGroup );
   receive( toExclude, kSsmGroup );
   receive( allow, kGroup, { addr( "0.0.0.0" ), addr( "224.1.1.1" ) } );
   EXPECT_EQ( state(), "" );
   EXPECT_EQ( counters.text(),
              "refused: notMulticast 1, linkLocalGroup 1, "
              "badSource 2, ssmGroup 2" );
   receive( allow, kSsmGroup, { addr( "0.0.0.0" ), addr( "192.0.2.7" ) } );
   EXPECT_EQ( state(), "(192.0.2.7) eth1 member" ) << "the rest counts";
}

// Whoever makes up groups and sources takes no more room than the tables have.
TEST_F( Members, WhatFindsNoRoomIsForgotten ) {
   model->maxRoutesIs( 1 );
   receive( isExclude );
   after( 10 );
   receive( isExclude, "233.252.0.2" );
   receive( isInclude, kSsmGroup, { addr( "192.0.2.7" ) } );
   EXPECT_EQ( state(), "(*) eth1 member" );
   EXPECT_EQ( counters.refusedCount( tableFull ), 2u );
   after( 251 );
   EXPECT_EQ( clock.nextWakeup(), Mox::Clock::never );
   receive( isExclude, "233.252.0.2" );
   EXPECT_EQ( state(), "(*) eth1 member" );
   std::vector<Vantu::IpGenAddr> many;
   for ( size_t i = 0; i <= MembershipEngine::maxSources; ++i )
      many.push_back( addr(
         ( "10.1." + std::to_string( i / 256 ) + "." + std::to_string( i % 256 ) )
            .c_str() ) );
   receive( allow, "233.252.0.2", many );
   receive( allow, "233.252.0.2", { many.front() } );
   EXPECT_EQ( counters.refusedCount( tooManySources ), 1u );
}

TEST_F( Members, APolicyThatChangesEndsMembersOfTheSharedTree ) {
   receive( isExclude, kGroup, { addr( "192.0.2.7" ) } );
   receive( isExclude, "233.253.0.1" );
   config = parseConfig(
               "vrfs:\n"
               "- name: default\n"
               "  ssmFilter: ours\n"
               "  access-lists:\n"
               "  - name: ours\n"
               "    rules:\n"
               "    - {action: permit, group: 233.252.0.0/16}\n",
               "test" )
               .vrfs[0];
   policy.configIs( config );
   engine->endSourceSpecific();
   EXPECT_EQ( state(), "(*) eth1 member" );
   EXPECT_NE( model->route( wcKey( "233.253.0.1" ) ), nullptr );
}

TEST_F( Members, AnotherQuerierSetsTheTimes ) {
   receive( isExclude );
   receive( isExclude, "233.252.0.2" );
   MembershipQuery query;
   query.group = addr( kGroup );
   query.suppress = true;
   query.maxResponse = 3;
   engine->receive( intfId( "eth1" ), query );
   after( 100 );
   query.suppress = false;
   query.group = Vantu::IpGenAddr();
   query.robustness = 3;
   query.interval = 20;
   engine->receive( intfId( "eth1" ), query );
   MembershipQuery older;
   older.version = 2;
   older.maxResponse = 3;
   engine->receive( intfId( "eth1" ), older );
   receive( isExclude, "233.252.0.2" );
   query.group = addr( kGroup );
   engine->receive( intfId( "eth1" ), query );
   after( 8.9 );
   EXPECT_EQ( model->route().size(), 2u );
   after( 0.2 );
   EXPECT_EQ( model->route().size(), 1u ) << "three times three seconds";
   after( 53.8 );
   EXPECT_EQ( model->route().size(), 1u );
   after( 0.2 );
   EXPECT_EQ( model->route().size(), 0u ) << "3 * 20 + 3 s after the report";
   query.group = Vantu::IpGenAddr();
   query.robustness = 0;
   query.interval = 0;
   engine->receive( intfId( "eth1" ), query );
   receive( isExclude );
   after( 252.9 );
   EXPECT_EQ( model->route().size(), 1u ) << "the defaults, and 3 s";
   after( 0.2 );
   EXPECT_EQ( model->route().size(), 0u );
}

TEST_F( Members, ReloadedOnesLiveForAMembershipTime ) {
   receive( isExclude, kGroup, { addr( "192.0.2.7" ) } );
   receive( allow, kSsmGroup, { addr( "192.0.2.8" ) }, "eth2" );
   const std::string before = state();
   after( 200 );
   restart();
   EXPECT_EQ( state(), before );
   after( 100 );
   receive( isExclude, kGroup, { addr( "192.0.2.7" ) } );
   after( 159 );
   EXPECT_EQ( state(), before );
   after( 2 );
   EXPECT_EQ( state(), "(*) eth1 member; (192.0.2.7) eth1 excluded" );
   engine->handleIntfGone( intfId( "eth1" ) );
   EXPECT_EQ( state(), "" );
}

// As a process leaves it that died between two writes, or had no room for the group.
TEST_F( Members, AnExcludedSourceAloneIsReloadedWithItsGroup ) {
   receive( isExclude, kGroup, { addr( "192.0.2.7" ) } );
   model->routeDel( wcKey( kGroup ) );
   restart();
   EXPECT_EQ( state(), "(*) eth1 member; (192.0.2.7) eth1 excluded" );
   after( 261 );
   EXPECT_EQ( state(), "" );
}

}
}
