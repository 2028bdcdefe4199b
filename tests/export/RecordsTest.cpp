#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "export/Records.h"
#include "tests/export/Content.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

Brane::Route fullRoute() {
   Brane::Route record( kKey );
   record.routeFlags.valueIs( 0x45 );
   record.creationTime = 12.5;
   record.rpf = rpfBy( "eth0" );
   record.prevRpf = rpfBy( "eth1", "192.0.2.253" );
   record.rpfAttached = true;
   record.mbrIif = intfId( "eth2" );
   record.rpfFrr = rpfBy( "eth3" );
   record.rpfFrrAttached = true;
   record.iifSwitchState = SparseMode::Route::wrongVifRecd;
   record.iifSwitchPending = true;
   record.upJoinState = upJoined;
   record.upRptState = upRptPruned;
   return record;
}

Brane::Intf fullIntf() {
   Brane::Intf record( RouteIntfKey{ kKey, intfId( "eth1" ) } );
   record.toBeDeleted = record.forward = record.fastForward = true;
   record.allowRpInUse = true;
   record.joinState = SparseMode::Intf::prunePending;
   record.lastJoinReceived = 0.1;
   record.rptState = SparseMode::Intf::rptPruned;
   record.lastRptPruneReceived = 1e9;
   record.assertInfo = { iAmAssertLoser, assertMetric( "[S] 192.0.2.9 [110/20]" ) };
   record.lastAssertAction = 255;
   record.localReceiverInclude = record.localReceiverExclude = true;
   return record;
}

template <class Record>
void expectReadsBack( const Record& record ) {
   Mox::String text = valueToStrep( record );
   EXPECT_EQ( Mox::stringToValue<Record>( text ), record ) << text;
}

TEST( Records, ReadBackWhatTheyPrint ) {
   expectReadsBack( Brane::Route() );
   expectReadsBack( fullRoute() );
   expectReadsBack( Brane::Intf() );
   expectReadsBack( fullIntf() );
   expectReadsBack( Brane::RouteCounter{ { Brane::switching, 7 }, 4294967295U } );
}

// "type: name name", of the text of an empty record.
template <class Record>
Mox::String namesIn( const Record& record ) {
   const Mox::String text = valueToStrep( record );
   Mox::String out = text.substr( 0, text.find( ',' ) ) + ':';
   for ( size_t at = text.find( "'key'" ); at != Mox::String::npos; ) {
      const size_t end = text.find( '\'', at + 1 );
      if ( text[end + 1] == ':' ) out += ' ' + text.substr( at + 1, end - at - 1 );
      at = text.find( '\'', end + 1 );
   }
   return out;
}

TEST( Records, PrintTheirFieldsInOrder ) {
   EXPECT_EQ( namesIn( Brane::RouteCounter{ { Brane::toBeDeleted, 0 }, 3 } ),
              "Value('Routing::Pim::SparseMode::Brane::RouteCounter': key "
              "routeCounterType dummy count" );
   const Mox::String rpf = " intfId neighbor preference metric";
   Mox::String flags;
   for ( const auto& row : SparseMode::Route::RouteFlags::rows() )
      flags += " " + Mox::String( row.name );
   EXPECT_EQ( namesIn( Brane::Route() ),
              "Value('Routing::Pim::SparseMode::Brane::Route': key source group "
              "routeFlags" +
                 flags + " creationTime rpf" + rpf + " prevRpf" + rpf +
                 " rpfAttached mbrIif rpfFrr" + rpf +
                 " rpfFrrAttached iifSwitchState iifSwitchPending upJoinState "
                 "upRptState" );
   EXPECT_EQ(
      namesIn( Brane::Intf() ),
      "Value('Routing::Pim::SparseMode::Brane::Intf': key routeKey source group "
      "intfId toBeDeleted forward fastForward allowRpInUse joinState "
      "lastJoinReceived rptState lastRptPruneReceived assertInfo assertState "
      "assertWinnerMetric lastAssertAction localReceiverInclude "
      "localReceiverExclude" );
}

// The program's locale has no say in it.
TEST( Records, TraceReadably ) {
   struct Grouping : std::numpunct<char> {
      std::string do_grouping() const override { return "\3"; }
      std::string do_truename() const override { return "yes"; }
   };
   const std::locale former =
      std::locale::global( std::locale( std::locale(), new Grouping ) );
   const Brane::RouteCounter counter{ {}, 1000 };
   EXPECT_THAT( counter.braneString(), testing::EndsWith( ", Count: 1000" ) );
   EXPECT_EQ(
      fullRoute().braneString(),
      "[(192.0.2.1, 233.252.0.1)], RPF: 'eth0' via 192.0.2.254 [110/20], "
      "Previous RPF: 'eth1' via 192.0.2.253 [110/20], RPF attached: true, "
      "MBR iif: 'eth2', IIF switch state: wrongVifRecd, IIF switch pending: "
      "true, UpJoin State: upJoined, UpRpt State: upRptPruned" );
   EXPECT_EQ( fullIntf().braneString(),
              "[(192.0.2.1, 233.252.0.1) 'eth1'], Deleted: true, Forward: true, "
              "AllowRpInUse: true, JoinState: prunePending, RptState: rptPruned, "
              "AssertState: iAmAssertLoser, AssertMetric: [S] 192.0.2.9 [110/20], "
              "Include: true, Exclude: true" );
   Brane::Intf fresh( RouteIntfKey{ wcKey( "233.252.0.1" ), intfId( "eth1" ) } );
   EXPECT_EQ( fresh.braneString(),
              "[(*, 233.252.0.1) 'eth1'], Deleted: false, Forward: false, "
              "AllowRpInUse: false, JoinState: noInfo, RptState: rptNoInfo, "
              "AssertState: assertNoInfo, AssertMetric: infinite, Include: false, "
              "Exclude: false" );
   std::locale::global( former );
}

TEST( Records, AreEmptyAsMadeByDefaultOnly ) {
   EXPECT_TRUE( !Brane::Route() );
   EXPECT_TRUE( !Brane::Intf() );
   EXPECT_FALSE( !Brane::Route( kKey ) );
   EXPECT_FALSE( !Brane::Intf( RouteIntfKey{ kKey, {} } ) );
}

TEST( Records, OrderAndHashCounterKeys ) {
   using Key = Brane::RouteCounterKey;
   EXPECT_LT( ( Key{ Brane::unresolved, 9 } ), ( Key{ Brane::toBeDeleted, 0 } ) );
   EXPECT_LT( ( Key{ Brane::switching, 1 } ),
              ( Key{ Brane::switching, 4294967295U } ) );
   EXPECT_EQ( std::hash<Key>()( { Brane::switching, 5 } ), 2U );
}

}
}
