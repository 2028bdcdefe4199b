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

// Entries of one source or group, written one after the other: "+1" entry 1 with
// the flag true, "~1" with false, "-1" removes it.
struct Row {
   const char* name;
   const char* before;  // written first
   const char* step;
   // What the step notifies, then the histogram, for a source and for a group.
   const char* sourceHeard;
   const char* sources;
   const char* groupHeard;
   const char* groups;
};
constexpr Row kRows[] = {
   { "first", "", "+1", "1 0 0", "1{192.0.2.1}", "1 0 0", "1{233.252.0.1}" },
   { "second", "+1", "+2", "2 1 1", "2{192.0.2.1}", "2 1 1", "2{233.252.0.1}" },
   { "oneOfTwoGoes", "+1+2", "-1", "1 2 2", "1{192.0.2.1}", "1 2 2",
     "1{233.252.0.1}" },
   { "lastGoes", "+1", "-1", "0 1 1", "0{192.0.2.1}", "0 1 1", "0{233.252.0.1}" },
   { "comesBack", "+1-1", "+1", "1 0 0", "1{192.0.2.1}", "1 0 0",
     "1{233.252.0.1}" },
   // The flag counts for a source, the presence for a group.
   { "falseIntoAnEntry", "+1", "~1", "2 2", "1{192.0.2.1}", "0 0",
     "1{233.252.0.1}" },
   { "trueIntoAFalseEntry", "~1", "+1", "0 0", "1{192.0.2.1}", "0 0",
     "1{233.252.0.1}" },
   { "newButFalse", "+1", "~2", "2 3 3", "1{192.0.2.1} 2{192.0.2.1}", "2 1 1",
     "2{233.252.0.1}" },
   { "falseGoes", "+1~2", "-2", "2 2", "1{192.0.2.1}", "1 2 2", "1{233.252.0.1}" },
};

class Transition : public testing::TestWithParam<Row> {
 protected:
   template <class Write, class Remove>
   static void apply( Mox::StringView steps, Write write, Remove remove ) {
      for ( size_t i = 0; i + 1 < steps.size(); i += 2 ) {
         const unsigned n = unsigned( steps[i + 1] - '0' );
         steps[i] == '-' ? remove( n ) : write( n, steps[i] == '+' );
      }
   }
   // The counts notified, without the attribute's name.
   static Mox::String counts( const Mox::Test::Heard& heard ) {
      Mox::String text;
      for ( const Mox::String& one : heard ) {
         if ( !text.empty() ) text += ' ';
         text += one.substr( one.find( ' ' ) + 1 );
      }
      return text;
   }

   Counting c;
};

TEST_P( Transition, MovesASource ) {
   c.start();
   auto source = c.status->sourceIs( sourceAddr( 1 ) );
   EXPECT_EQ( c.sources(), "" );
   auto run = [&]( Mox::StringView steps ) {
      apply(
         steps,
         [&]( unsigned n, bool on ) {
            source->sourceGroupIs( groupAddr( n ), on );
         },
         [&]( unsigned n ) { source->sourceGroupDel( groupAddr( n ) ); } );
   };
   run( GetParam().before );
   c.sourcesHeard.take();
   run( GetParam().step );
   EXPECT_EQ( counts( c.sourcesHeard.take() ), GetParam().sourceHeard );
   EXPECT_EQ( c.sources(), GetParam().sources );
   EXPECT_EQ( c.groups(), "" );
}

TEST_P( Transition, MovesAGroup ) {
   c.start();
   auto group = c.groupSourceMap->groupIs( groupAddr( 1 ) );
   EXPECT_EQ( c.groups(), "" );
   auto run = [&]( Mox::StringView steps ) {
      apply(
         steps,
         [&]( unsigned n, bool on ) {
            group->groupSourceIs( sourceAddr( n ), on );
         },
         [&]( unsigned n ) { group->groupSourceDel( sourceAddr( n ) ); } );
   };
   run( GetParam().before );
   c.groupsHeard.take();
   run( GetParam().step );
   EXPECT_EQ( counts( c.groupsHeard.take() ), GetParam().groupHeard );
   EXPECT_EQ( c.groups(), GetParam().groups );
   EXPECT_EQ( c.sources(), "" );
}

INSTANTIATE_TEST_SUITE_P(, Transition, testing::ValuesIn( kRows ),
                         []( const auto& row ) { return row.param.name; } );

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
   // The first count heeds no flag.
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
   // Filed a second time, nothing changes.
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
}

// One observer an address: a second would file each change twice, which goes
// unnoticed in the histogram.
TEST( SgCountSm, ObservesWhatStandsInTheCollectionsAlone ) {
   Counting c;
   c.status->sourceIs( sourceAddr( 1 ) );
   c.groupSourceMap->groupIs( groupAddr( 1 ) );
   c.start();
   Mox::Ptr<Source> oldSource = c.status->sourceDel( sourceAddr( 1 ) );
   Mox::Ptr<Group> oldGroup = c.groupSourceMap->groupDel( groupAddr( 1 ) );
   EXPECT_EQ( oldSource->observerCount() + oldGroup->observerCount(), 0U );
   EXPECT_EQ( c.sm->srcHandler( sourceAddr( 1 ) ), nullptr );
   EXPECT_EQ( c.sm->grpHandler( groupAddr( 1 ) ), nullptr );
   auto source = c.status->sourceIs( sourceAddr( 1 ) );
   auto group = c.groupSourceMap->groupIs( groupAddr( 1 ) );
   EXPECT_EQ( c.sm->srcHandler( sourceAddr( 1 ) )->notifier(), source.get() );
   EXPECT_EQ( c.sm->grpHandler( groupAddr( 1 ) )->notifier(), group.get() );
   EXPECT_EQ( source->observerCount(), 1U );
   EXPECT_EQ( group->observerCount(), 1U );
   EXPECT_EQ( c.sm->attributeText( "srcHandler" ), "[192.0.2.1]" );
   // What it leaves behind: the histograms as they are, and no observer.
   c.sm.reset();
   EXPECT_EQ( source->observerCount() + group->observerCount(), 0U );
   EXPECT_EQ( c.status->observerCount() + c.groupSourceMap->observerCount(), 0U );
   EXPECT_EQ( c.sources(), "0{192.0.2.1}" );
   EXPECT_EQ( c.groups(), "0{233.252.0.1}" );
}

// An observer of a status registered earlier replaces a source before the reactor
// hears of the first one's going.
TEST( SgCountSm, FollowsASourceAndAGroupReplacedInsideANotification ) {
   struct Replacer : Status::NotifieeConst, GroupSourceMap::NotifieeConst {
      explicit Replacer( Counting& counting ) : c( counting ) {
         Status::NotifieeConst::notifierIs( c.status.get() );
         GroupSourceMap::NotifieeConst::notifierIs( c.groupSourceMap.get() );
      }
      void onSource( const Vantu::IpGenAddr& a ) override {
         if ( c.status->source( a ) == nullptr ) c.status->sourceIs( a );
      }
      void onGroup( const Vantu::IpGenAddr& a ) override {
         if ( c.groupSourceMap->group( a ) == nullptr )
            c.groupSourceMap->groupIs( a );
      }
      Counting& c;
   };
   Counting c;
   Replacer replacer( c );
   c.status->sourceIs( sourceAddr( 1 ) );
   c.groupSourceMap->groupIs( groupAddr( 1 ) );
   c.start();
   Mox::Ptr<Source> oldSource = c.status->sourceDel( sourceAddr( 1 ) );
   Mox::Ptr<Group> oldGroup = c.groupSourceMap->groupDel( groupAddr( 1 ) );
   EXPECT_EQ( oldSource->observerCount() + oldGroup->observerCount(), 0U );
   EXPECT_EQ( c.status->source( sourceAddr( 1 ) )->observerCount(), 1U );
   EXPECT_EQ( c.groupSourceMap->group( groupAddr( 1 ) )->observerCount(), 1U );
}

// Whatever goes inside a write, the move of the address is finished.
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

// The first count's observers change the model under a reactor that nobody holds.
TEST( SgCountSm, OutlivesChangesInsideItsFirstCount ) {
   Counting c;
   auto source = c.status->sourceIs( sourceAddr( 1 ) );
   c.status->sourceIs( sourceAddr( 2 ) );
   auto group = c.groupSourceMap->groupIs( groupAddr( 1 ) );
   c.groupSourceMap->groupIs( groupAddr( 2 ) );
   c.sourcesHeard.inside = [&]( const Mox::String& ) {
      source->sourceGroupIs( groupAddr( 1 ), true );
      c.status->sourceDel( sourceAddr( 2 ) );
   };
   c.groupsHeard.inside = [&]( const Mox::String& ) {
      group->groupSourceIs( sourceAddr( 1 ), true );
      c.groupSourceMap->groupDel( groupAddr( 2 ) );
   };
   c.start();
   EXPECT_EQ( c.sources(), "1{192.0.2.1}" );
   EXPECT_EQ( c.groups(), "1{233.252.0.1}" );
}

}
}
