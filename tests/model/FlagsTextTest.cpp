// Text forms of the model's flag sets and enumerations.

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/ErrorText.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::String;
using Mox::Test::errorText;

// Checks the full name, then the flags in bit order. The platform's tests cover
// printing and parsing.
template <class Flags>
String namesOf() {
   const String text = valueToStrep( Flags() );
   String names = text.substr( 0, text.find( "**" ) );
   for ( const auto& row : Flags::rows() ) names += String( row.name ) + ' ';
   return names;
}
template <class Flags>
String refusal() {
   return errorText( [] { Flags flags( Flags::limit + 1 ); } );
}

TEST( FlagSets, HaveTheirNamesInOrder ) {
   EXPECT_EQ(
      namesOf<ChangeFlags>(),
      "Value('Routing::Pim::SparseMode::ChangeFlags', "
      "rpfRouteChanged rpfNeighborStatusChanged prevRpfNeighborStatusChanged "
      "rpfNeighborGenIdChanged prevRpfNeighborGenIdChanged "
      "rpfIntfStatusChanged prevRpfIntfStatusChanged rpfDrStatusChanged "
      "sptThresholdImmediate rpChanged ssmRangeChanged mbrIntfStatusChanged "
      "mfibWaitListChanged wcProgrammable rpfFrrNeighborStatusChanged "
      "rpfFrrNeighborGenIdChanged rpfFrrIntfStatusChanged "
      "sourceInjectChanged groupFilterChanged " );
   EXPECT_EQ( namesOf<Route::RouteFlags>(),
              "Value('Routing::Pim::SparseMode::Route::RouteFlags', "
              "rpTree wildCard spTree switching iifSwitching mbr katExpired "
              "markedForDeletion mayAdvertise msdpDiscovered anycastDiscovered "
              "drDiscovered oifRegister programmable hwRecovered " );
   EXPECT_EQ( namesOf<Route::ExpiredFlags>(),
              "Value('Routing::Pim::SparseMode::Route::ExpiredFlags', "
              "allExpired registerExpired advertiseExpired " );
   EXPECT_EQ( namesOf<IntfChangeFlags>(),
              "Value('Routing::Pim::SparseMode::IntfChangeFlags', "
              "assertWinnerNeighborChanged addressChanged drStatusChanged "
              "pimIntfDeleted fastFailoverChanged vxlanIntfChanged " );
   EXPECT_EQ( refusal<ChangeFlags>(), "ChangeFlags::value > 0x7ffff not allowed" );
   EXPECT_EQ( refusal<Route::RouteFlags>(),
              "RouteFlags::value > 0x7fff not allowed" );
   EXPECT_EQ( refusal<Route::ExpiredFlags>(),
              "ExpiredFlags::value > 0x7 not allowed" );
   EXPECT_EQ( refusal<IntfChangeFlags>(),
              "IntfChangeFlags::value > 0x3f not allowed" );
   IntfChangeFlags flags;
   for ( unsigned bit : { 6U, 32U, 64U } )
      EXPECT_THROW( flags.flagIs( bit, true ), Mox::RangeError ) << bit;
}

template <class Flags>
String compact( uint32_t word ) {
   const Flags flags( word );
   std::ostringstream stream;
   stream << &flags;
   return stream.str();
}

TEST( FlagSets, CompactFormHasItsOwnOrder ) {
   EXPECT_EQ( compact<ChangeFlags>( 0 ), "0" );
   EXPECT_EQ( compact<ChangeFlags>( 0x100 ), "" );
   EXPECT_EQ( compact<ChangeFlags>( 0x8000 ), "Z" );
   EXPECT_EQ( compact<ChangeFlags>( 0x18000 ), "CZ" );
   EXPECT_EQ( compact<ChangeFlags>( 0x8100 ), "Z" );
   EXPECT_EQ( compact<ChangeFlags>( 0x7ffff ), "RNJHKILDPSBWACZ" );
   EXPECT_EQ( compact<IntfChangeFlags>( 0 ), "0" );
   EXPECT_EQ( compact<IntfChangeFlags>( 0x3f ), "WADPFV" );
}

template <class Enum>
String enumerators() {
   String names;
   try {
      for ( uint32_t number = 0;; ++number )
         names += valueToStrep( Mox::enumInstance<Enum>( number ) ) + ' ';
   } catch ( const Mox::RangeError& ) {
      return names;
   }
}

TEST( Enumerations, AreNumberedAndNamedInOrder ) {
   EXPECT_EQ( enumerators<UpJoinState>(), "upNotJoined upJoined " );
   EXPECT_EQ( enumerators<UpRptState>(),
              "upRptNotPruned upRptNotJoined upRptPruned " );
   EXPECT_EQ( enumerators<Route::IifSwitchState>(),
              "notSwitching switchIifUpdated wrongVifRecd intervalElapsed "
              "hwSwitchComplete " );
   EXPECT_EQ( enumerators<Intf::JoinState>(), "noInfo prunePending joined " );
   EXPECT_EQ( enumerators<Intf::RptState>(),
              "rptNoInfo rptPruned rptPrunePending rptPruneTemp "
              "rptPrunePendingTemp " );
   EXPECT_EQ( enumerators<AssertState>(),
              "assertNoInfo iAmAssertWinner iAmAssertLoser " );
   // By their own names, too.
   EXPECT_EQ( Route::IifSwitchStateInstance( 2 ), Route::wrongVifRecd );
   EXPECT_EQ( Intf::JoinStateInstance( "joined" ), Intf::joined );
   EXPECT_EQ( Intf::RptStateInstance( "rptPruned" ), Intf::rptPruned );
   EXPECT_EQ( AssertStateInstance( 2 ), iAmAssertLoser );
}

}
}
