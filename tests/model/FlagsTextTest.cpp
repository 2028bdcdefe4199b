// Text forms of the model's flag sets and enumerations.

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/ErrorText.h"
#include "tests/support/VrfBuilder.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::String;
using Mox::Test::errorText;

template <class T, uint32_t wantedLimit>
struct Known {
   using Flags = T;
   static constexpr uint32_t limit = wantedLimit;
   String fullName;
   std::vector<String> names;
};

const Known<ChangeFlags, 0x7ffff> kChange{
   "Routing::Pim::SparseMode::ChangeFlags",
   { "rpfRouteChanged", "rpfNeighborStatusChanged", "prevRpfNeighborStatusChanged",
     "rpfNeighborGenIdChanged", "prevRpfNeighborGenIdChanged",
     "rpfIntfStatusChanged", "prevRpfIntfStatusChanged", "rpfDrStatusChanged",
     "sptThresholdImmediate", "rpChanged", "ssmRangeChanged",
     "mbrIntfStatusChanged", "mfibWaitListChanged", "wcProgrammable",
     "rpfFrrNeighborStatusChanged", "rpfFrrNeighborGenIdChanged",
     "rpfFrrIntfStatusChanged", "sourceInjectChanged", "groupFilterChanged" } };
const Known<Route::RouteFlags, 0x7fff> kRoute{
   "Routing::Pim::SparseMode::Route::RouteFlags",
   { "rpTree", "wildCard", "spTree", "switching", "iifSwitching", "mbr",
     "katExpired", "markedForDeletion", "mayAdvertise", "msdpDiscovered",
     "anycastDiscovered", "drDiscovered", "oifRegister", "programmable",
     "hwRecovered" } };
const Known<Route::ExpiredFlags, 0x7> kExpired{
   "Routing::Pim::SparseMode::Route::ExpiredFlags",
   { "allExpired", "registerExpired", "advertiseExpired" } };
const Known<IntfChangeFlags, 0x3f> kIntf{
   "Routing::Pim::SparseMode::IntfChangeFlags",
   { "assertWinnerNeighborChanged", "addressChanged", "drStatusChanged",
     "pimIntfDeleted", "fastFailoverChanged", "vxlanIntfChanged" } };

template <class K>
String textOf( const K& known, uint32_t word ) {
   String text = "Value('" + known.fullName + "', ** {";
   for ( size_t bit = 0; bit < known.names.size(); ++bit ) {
      if ( bit != 0 ) text += ", ";
      text += "'" + known.names[bit] + "': ";
      text += ( ( word >> bit ) & 1 ) != 0 ? "true" : "false";
   }
   return text + "})";
}

// Every bit stands under its own name, both ways, and the limit is the exact one.
template <class K>
void checkFlagSet( const K& known ) {
   using Flags = typename K::Flags;
   SCOPED_TRACE( known.fullName );
   std::vector<uint32_t> words = { 0, K::limit };
   for ( uint32_t bit = 1; bit <= K::limit; bit <<= 1 ) words.push_back( bit );
   for ( uint32_t word : words ) {
      const String text = textOf( known, word );
      EXPECT_EQ( valueToStrep( Flags( word ) ), text );
      EXPECT_EQ( Mox::stringToValue<Flags>( text ), Flags( word ) ) << text;
   }
   std::ostringstream message;
   message << Flags::typeName << "::value > 0x" << std::hex << K::limit
           << " not allowed";
   EXPECT_EQ( errorText( [] { Flags flags( K::limit + 1 ); } ), message.str() );
}

TEST( FlagSets, PrintAndParseEachBitUnderItsName ) {
   checkFlagSet( kChange );
   checkFlagSet( kRoute );
   checkFlagSet( kExpired );
   checkFlagSet( kIntf );
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
void checkEnum( const std::vector<String>& names, Enum ( *byNumber )( uint32_t ),
                Enum ( *byName )( const String& ) ) {
   for ( uint32_t number = 0; number < names.size(); ++number ) {
      auto value = static_cast<Enum>( number );
      EXPECT_EQ( valueToStrep( value ), names[number] );
      EXPECT_EQ( byNumber( number ), value );
      EXPECT_EQ( byName( names[number] ), value );
   }
   auto beyond = static_cast<uint32_t>( names.size() );
   EXPECT_THROW( byNumber( beyond ), Mox::RangeError );
}

TEST( Enumerations, AreNumberedAndNamedInOrder ) {
   checkEnum<UpJoinState>(
      { "upNotJoined", "upJoined" }, Mox::enumInstance,
      []( const String& name ) { return Mox::enumInstance<UpJoinState>( name ); } );
   checkEnum<UpRptState>(
      { "upRptNotPruned", "upRptNotJoined", "upRptPruned" }, Mox::enumInstance,
      []( const String& name ) { return Mox::enumInstance<UpRptState>( name ); } );
   checkEnum<Route::IifSwitchState>(
      { "notSwitching", "switchIifUpdated", "wrongVifRecd", "intervalElapsed",
        "hwSwitchComplete" },
      Route::IifSwitchStateInstance, Route::IifSwitchStateInstance );
   checkEnum<Intf::JoinState>( { "noInfo", "prunePending", "joined" },
                               Intf::JoinStateInstance, Intf::JoinStateInstance );
   checkEnum<Intf::RptState>( { "rptNoInfo", "rptPruned", "rptPrunePending",
                                "rptPruneTemp", "rptPrunePendingTemp" },
                              Intf::RptStateInstance, Intf::RptStateInstance );
   checkEnum<AssertState>( { "assertNoInfo", "iAmAssertWinner", "iAmAssertLoser" },
                           AssertStateInstance, AssertStateInstance );
}

}
}
