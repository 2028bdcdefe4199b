#include <gtest/gtest.h>

#include <filesystem>

#include "tests/register/RegisterSides.h"
#include "tests/support/Damage.h"
#include "tests/support/ErrorText.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

using Mox::Test::assertionText;
using Vantu::AddressFamily;

TEST( RegisterPaths, NameFamilyAndVrf ) {
   const L3::VrfName red( "red" );
   for ( auto [path, name] :
         { std::pair( &RegisterStatus::mountPath, "registerstatus" ),
           std::pair( &AdvertisedSgStatus::mountPath, "advertisedsgstatus" ) } ) {
      const Mox::String rest = Mox::String( "/pim/sparsemode/" ) + name + "/red";
      EXPECT_EQ( path( AddressFamily::ipv4, red ), "routing" + rest );
      EXPECT_EQ( path( AddressFamily::ipv6, red ), "routing6" + rest );
      EXPECT_EQ( assertionText( [path = path, &red] {
                    path( static_cast<AddressFamily>( 7 ), red );
                 } ),
                 "Unsupported address family" );
      EXPECT_THROW( path( AddressFamily::ipv4, L3::VrfName( "a/b" ) ),
                    Mox::RangeError );
   }
}

TEST( RegisterCapacities, AreTheModelsLimits ) {
   Mox::Ptr<Status> model = statusFactory( L3::VrfName( "red" ) );
   model->maxRoutesIs( 77 );
   RegisterCapacities capacities( *model );
   for ( uint32_t each :
         { capacities.registerOif, capacities.noRegisterOif,
           capacities.drDiscoveredSg, capacities.anycastDiscoveredSg } ) {
      EXPECT_EQ( each, 77U );
   }
   EXPECT_EQ( AdvertisedSgStatus::capacityFor( *model ), 77U );
}

// "name value, " of every counter of the owner, in order of registration.
Mox::String countersOf( Mox::StringView owner ) {
   Mox::String text;
   for ( const Mox::EventCounter* counter : Mox::eventCounters() ) {
      if ( counter->owner() != owner ) continue;
      text += counter->name() + ' ' + std::to_string( counter->value() ) + ", ";
   }
   return text;
}

class RegisterTables : public testing::Test {
 protected:
   Heard heardBoth( unsigned number, const Mox::String& name ) {
      std::ostringstream key;
      key << ' ' << keyOf( number );
      return { name + '!' + key.str(), name + key.str() };
   }

   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   RegisterSide agent{ clock, root.path(), ::Brane::tableWriter };
   RegisterStatus& status = *agent.status;
   AdvertisedSgStatus& advertised = *agent.advertised;
};

TEST_F( RegisterTables, CountUnderTheirNames ) {
   auto fresh = registerStatusFactory( "fresh" );
   EXPECT_EQ(
      countersOf( "fresh" ),
      "anycastDiscoveredSgIs 0, anycastDiscoveredSgDel 0, "
      "anycastDiscoveredSgNotify 0, drDiscoveredSgIs 0, drDiscoveredSgDel 0, "
      "drDiscoveredSgNotify 0, noRegisterOifIs 0, noRegisterOifDel 0, "
      "noRegisterOifNotify 0, registerOifIs 0, registerOifDel 0, "
      "registerOifNotify 0, " );
   fresh.reset();
   EXPECT_EQ( countersOf( "fresh" ), "" );
   // Notifications count without an observer, too.
   advertised.collIs( advertisedOf( 1 ) );
   advertised.collIs( advertisedOf( 1 ) );
   AdvertisedSgTable::InPlace built = advertised.collInPlace();
   built.is( advertisedOf( 2 ) );
   advertised.collCommit( &built );
   advertised.collDel( keyOf( 1 ) );
   advertised.collDel( keyOf( 1 ) );
   advertised.collNotify( keyOf( 3 ) );
   EXPECT_EQ( countersOf( advertised.name() ),
              "collIs 3, collDel 2, collNotify 5, " );
   advertised.collDelAll();
   EXPECT_EQ( countersOf( advertised.name() ),
              "collIs 3, collDel 3, collNotify 6, " );
   // Refused calls count.
   EXPECT_THROW( advertised.collIs( AdvertisedSg() ), Mox::RangeError );
   EXPECT_EQ( countersOf( advertised.name() ),
              "collIs 4, collDel 3, collNotify 6, " );
}

TEST_F( RegisterTables, LetAFullTablesRefusalThrough ) {
   AdvertisedRecorder recorder( &advertised );
   for ( unsigned i = 1; i <= RegisterSide::kCapacity; ++i ) {
      advertised.collIs( advertisedOf( i ) );
   }
   recorder.take();
   EXPECT_THROW( advertised.collIs( advertisedOf( 99 ) ), ::Brane::TableFullError );
   advertised.collIs( advertisedOf( 1, "192.0.2.2", true ) );
   EXPECT_EQ( recorder.take().size(), 2U );
   EXPECT_EQ( advertised.collDel( keyOf( 1 ) ),
              advertisedOf( 1, "192.0.2.2", true ) );
   EXPECT_TRUE( !advertised.collDel( keyOf( 1 ) ) );
}

TEST_F( RegisterTables, AreSeenByAnotherProcess ) {
   status.drDiscoveredSgIs( entryOf( 1 ) );
   advertised.collIs( advertisedOf( 2, "192.0.2.9", true ) );
   RegisterSide reader( clock, root.path(), ::Brane::tableReader );
   EXPECT_TRUE( reader.status->drDiscoveredSg().has( keyOf( 1 ) ) );
   AdvertisedSg seen;
   ASSERT_EQ( reader.advertised->coll().find( keyOf( 2 ), seen ),
              ::Brane::lookupFound );
   EXPECT_EQ( seen, advertisedOf( 2, "192.0.2.9", true ) );
   RegisterRecorder recorder( reader.status.get() );
   status.registerOifIs( entryOf( 3 ) );
   status.registerOifIs( entryOf( 3 ) );
   status.registerOifDel( keyOf( 3 ) );
   status.registerOifIs( entryOf( 3 ) );
   EXPECT_EQ( recorder.take(), Heard() );
   EXPECT_FALSE( status.registerOifControl()->quiesced() );
   EXPECT_NE( status.attributeText( "registerOifControl" ), "" );
   agent.manager.dispatch();
   EXPECT_TRUE( status.registerOifControl()->quiesced() );
   clock.advance( 0.01 );
   reader.manager.dispatch();
   EXPECT_EQ( recorder.take(), heardBoth( 3, "registerOif" ) );
   EXPECT_THROW( reader.status->registerOifIs( entryOf( 4 ) ),
                 ::Brane::ReadOnlyError );
   // The tables go with their VRF: one notification for each collection.
   agent.manager.removeTables( status.name() );
   clock.advance( 0.01 );
   reader.manager.dispatch();
   Heard heard = recorder.take();
   for ( const char* table : { "registerOif", "noRegisterOif", "drDiscoveredSg",
                               "anycastDiscoveredSg" } ) {
      EXPECT_EQ( std::count( heard.begin(), heard.end(), table ), 1 ) << table;
   }
}

// Damaged as by a stray pointer. The table reports the next mount's repair.
TEST_F( RegisterTables, AreFatalToWriteWhenCorruptAfterTheHandlerWasTold ) {
   constexpr const char* kFatal = "write outside the mapped region";
   auto& table = const_cast<InternalRouteKeyTable&>( status.registerOif() );
   status.registerOifIs( entryOf( 1 ) );
   Mox::Test::breakStamp( root.path() + '/' + status.name() + "/registerOif",
                          keyOf( 1 ) );
   RegisterRecorder recorder( &status );
   Mox::Test::TraceCapture traces( "Pimsm::Table/0" );
   Heard told;
   EXPECT_EQ( assertionText( [&] { status.registerOifIs( entryOf( 1 ) ); } ),
              kFatal );
   // Without a handler: traced, and named in the control.
   const Mox::String problem = status.registerOifControl()->problem();
   EXPECT_NE( problem, "" );
   ASSERT_EQ( traces.lines().size(), 1U );
   EXPECT_NE( traces.lines()[0].find( problem ), Mox::String::npos );
   table.corruptionHandlerIs(
      [&]( const Mox::String& text ) { told.push_back( text ); } );
   EXPECT_EQ( assertionText( [&] { status.registerOifDel( keyOf( 1 ) ); } ),
              kFatal );
   InternalRouteKeyTable::InPlace built = status.registerOifInPlace();
   built.is( entryOf( 1 ) );
   EXPECT_EQ( assertionText( [&] { status.registerOifCommit( &built ); } ),
              kFatal );
   ASSERT_EQ( told.size(), 2U );
   for ( const Mox::String& text : told ) {
      EXPECT_NE( text.find( "registerOif" ), Mox::String::npos ) << text;
   }
   EXPECT_EQ( table.corruptions(), 3U );
   EXPECT_EQ( recorder.take(), Heard() );
   // Other keys are unaffected.
   status.registerOifIs( entryOf( 2 ) );
   EXPECT_EQ( recorder.take(), heardBoth( 2, "registerOif" ) );
}

}
}
