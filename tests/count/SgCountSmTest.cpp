#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/count/Counting.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::Test::assertionText;
using testing::ElementsAre;
using testing::IsEmpty;

// The random walk tests how entries move in general.

TEST( SgCountSm, FirstCountFilesEverythingInOrderAndClearsNothing ) {
   Counting c;
   IpAddrCollection stale;
   stale.addrIs( sourceAddr( 9 ), true );
   c.sourceCount->sourcesByGroupCountIs( 1, stale );
   c.groupCount->groupsBySourceCountIs( 7, stale );
   for ( unsigned n : { 3, 1, 2 } ) {
      c.status->sourceIs( sourceAddr( n ) );
      c.groupSourceMap->groupIs( groupAddr( n ) );
   }
   // The first count ignores the flag.
   c.status->source( sourceAddr( 2 ) )->sourceGroupIs( groupAddr( 1 ), false );
   c.groupSourceMap->group( groupAddr( 3 ) )
      ->groupSourceIs( sourceAddr( 1 ), false );
   c.sourcesHeard.take();
   c.groupsHeard.take();
   Mox::Test::TraceCapture traces( "Pimsm::SgCountSm/8" );
   c.start();
   EXPECT_TRUE( c.sm->initialized() );
   EXPECT_EQ( c.sources(), "0{192.0.2.1 192.0.2.3} 1{192.0.2.2 192.0.2.9}" );
   EXPECT_EQ( c.groups(),
              "0{233.252.0.1 233.252.0.2} 1{233.252.0.3} 7{192.0.2.9}" );
   EXPECT_THAT( c.sourcesHeard.take(),
                ElementsAre( "sourcesByGroupCount 0", "sourcesByGroupCount 1",
                             "sourcesByGroupCount 0" ) );
   EXPECT_THAT( c.groupsHeard.take(),
                ElementsAre( "groupsBySourceCount 0", "groupsBySourceCount 0",
                             "groupsBySourceCount 1" ) );
   // A second filing changes nothing.
   EXPECT_TRUE( c.sm->handleInitialized() );
   EXPECT_THAT( c.sourcesHeard.take(), IsEmpty() );
   EXPECT_THAT( c.groupsHeard.take(), IsEmpty() );
   c.status->source( sourceAddr( 1 ) )->sourceGroupIs( groupAddr( 5 ), true );
   c.groupSourceMap->group( groupAddr( 2 ) )
      ->groupSourceIs( sourceAddr( 5 ), true );
   EXPECT_THAT(
      traces.take(),
      ElementsAre( "Pimsm::SgCountSm 8 <Vrf:red>handleInitialized",
                   "Pimsm::SgCountSm 8 <Vrf:red>handleInitialized",
                   "Pimsm::SgCountSm 8 <Vrf:red>handleSourceGroupChanged G: "
                   "233.252.0.5 S: 192.0.2.1",
                   "Pimsm::SgCountSm 8 <Vrf:red>handleGroupSourceChanged G: "
                   "233.252.0.2 S: 192.0.2.5" ) );
}

TEST( SgCountSm, RefusesNullHandlersAndUnknownAddresses ) {
   Counting c;
   c.start();
   EXPECT_EQ( assertionText( [&] { c.sm->srcHandlerIs( nullptr ); } ),
              "null _srcHandler parameter to mutator for "
              "Routing::Pim::SparseMode::SgCountSm::srcHandler not allowed" );
   EXPECT_EQ( assertionText( [&] { c.sm->grpHandlerIs( nullptr ); } ),
              "null _grpHandler parameter to mutator for "
              "Routing::Pim::SparseMode::SgCountSm::grpHandler not allowed" );
   EXPECT_EQ( assertionText( [&] {
                 c.sm->handleSourceGroupChanged( sourceAddr( 1 ), groupAddr( 1 ) );
              } ),
              "source != nullptr" );
   EXPECT_EQ( assertionText( [&] {
                 c.sm->handleGroupSourceChanged( groupAddr( 1 ), sourceAddr( 1 ) );
              } ),
              "group != nullptr" );
   EXPECT_EQ( c.sources() + c.groups(), "" );
   Mox::Ptr<Group> group = c.groupSourceMap->groupIs( groupAddr( 1 ) );
   EXPECT_EQ( c.sm->attributeText( "grpHandler" ), "[233.252.0.1]" );
   c.sm->grpHandlerDelAll();
   EXPECT_EQ( group->observerCount(), 0U );
}

// An observer registered earlier replaces a source and a group that go, before the
// reactor is notified of the removal.
TEST( SgCountSm, FollowsWhatIsReplacedInsideANotification ) {
   struct Replacer : Status::NotifieeConst, GroupSourceMap::NotifieeConst {
      explicit Replacer( Counting& counting ) : c( counting ) {
         Status::NotifieeConst::notifierIs( c.status.get() );
         GroupSourceMap::NotifieeConst::notifierIs( c.groupSourceMap.get() );
      }
      void onSource( const Vantu::IpGenAddr& a ) override {
         if ( c.status->source( a ) != nullptr ) return;
         c.status->sourceIs( a );
         source = c.sm->srcHandler( a );
      }
      void onGroup( const Vantu::IpGenAddr& a ) override {
         if ( c.groupSourceMap->group( a ) != nullptr ) return;
         c.groupSourceMap->groupIs( a );
         group = c.sm->grpHandler( a );
      }
      Counting& c;
      const SgCountSm::MoxSrcHandler* source = nullptr;
      const SgCountSm::MoxGrpHandler* group = nullptr;
   };
   Counting c;
   Replacer replacer( c );
   c.status->sourceIs( sourceAddr( 1 ) );
   c.groupSourceMap->groupIs( groupAddr( 1 ) );
   c.start();
   Mox::Ptr<Source> oldSource = c.status->sourceDel( sourceAddr( 1 ) );
   Mox::Ptr<Group> oldGroup = c.groupSourceMap->groupDel( groupAddr( 1 ) );
   EXPECT_EQ( oldSource->observerCount() + oldGroup->observerCount(), 0U );
   // The late notification of the removal leaves the new handlers as they are.
   const auto* source = c.sm->srcHandler( sourceAddr( 1 ) );
   const auto* group = c.sm->grpHandler( groupAddr( 1 ) );
   ASSERT_NE( source, nullptr );
   ASSERT_NE( group, nullptr );
   EXPECT_EQ( source, replacer.source );
   EXPECT_EQ( group, replacer.group );
   EXPECT_EQ( source->notifier(), c.status->source( sourceAddr( 1 ) ) );
   EXPECT_EQ( group->notifier(), c.groupSourceMap->group( groupAddr( 1 ) ) );
}

// What goes while the first count is made is not counted.
TEST( SgCountSm, FirstCountLeavesOutWhatGoesInsideIt ) {
   Counting c;
   for ( unsigned n : { 1, 2 } ) {
      c.status->sourceIs( sourceAddr( n ) );
      c.groupSourceMap->groupIs( groupAddr( n ) );
   }
   c.sourcesHeard.inside = [&]( const Mox::String& ) {
      c.status->sourceDel( sourceAddr( 2 ) );
   };
   c.groupsHeard.inside = [&]( const Mox::String& ) {
      c.groupSourceMap->groupDel( groupAddr( 2 ) );
   };
   c.start();
   EXPECT_EQ( c.sources() + c.groups(), "0{192.0.2.1}0{233.252.0.1}" );
}

// The move of an address is finished whatever goes inside a write.
TEST( SgCountSm, FinishesAMoveWhenAllElseGoesInsideIt ) {
   Counting c;
   c.start();
   auto source = c.status->sourceIs( sourceAddr( 1 ) );
   auto group = c.groupSourceMap->groupIs( groupAddr( 1 ) );
   source->sourceGroupIs( groupAddr( 1 ), true );
   group->groupSourceIs( sourceAddr( 1 ), true );
   c.sourcesHeard.inside = [&]( const Mox::String& ) {
      source.reset();
      c.status->sourceDel( sourceAddr( 1 ) );
   };
   c.groupsHeard.inside = [&]( const Mox::String& ) {
      group.reset();
      c.groupSourceMap->groupDel( groupAddr( 1 ) );
      c.sm.reset();
   };
   Mox::Ptr<Source>( source )->sourceGroupIs( groupAddr( 2 ), true );
   EXPECT_EQ( c.sources(), "2{192.0.2.1}" );
   Mox::Ptr<Group>( group )->groupSourceIs( sourceAddr( 2 ), true );
   EXPECT_EQ( c.groups(), "2{233.252.0.1}" );
}

}
}
