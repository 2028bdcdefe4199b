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

// Each collection's mutators reach its own table, counters and observers.
TEST_F( RegisterTables, NotifyEachWriteAndRemoval ) {
   RegisterRecorder recorder( &status );
   const Mox::String owner = status.name();
#define EXPECT_COLLECTION( name )                                    \
   {                                                                 \
      Heard both = heardBoth( 1, #name );                            \
      Heard twice = { both[0], both[1], both[0], both[1] };          \
      const InternalRouteKey entry = entryOf( 1 );                   \
      status.name##Is( entry );                                      \
      status.name##Commit( &entry );                                 \
      EXPECT_EQ( recorder.take(), twice );                           \
      InternalRouteKeyTable::InPlace built = status.name##InPlace(); \
      built.is( entryOf( 2 ) );                                      \
      EXPECT_FALSE( status.name().has( keyOf( 2 ) ) );               \
      status.name##Commit( &built );                                 \
      EXPECT_EQ( recorder.take(), heardBoth( 2, #name ) );           \
      EXPECT_EQ( status.name().size(), 2U );                         \
      EXPECT_EQ( status.name##Del( keyOf( 1 ) ), entryOf( 1 ) );     \
      EXPECT_EQ( recorder.take(), both );                            \
      EXPECT_TRUE( !status.name##Del( keyOf( 1 ) ) );                \
      EXPECT_EQ( recorder.take(), Heard() );                         \
      auto counted = [&]( const char* what ) {                       \
         return Mox::eventCounter( owner, what )->value();           \
      };                                                             \
      EXPECT_EQ( counted( #name "Is" ), 3U );                        \
      EXPECT_EQ( counted( #name "Del" ), 2U );                       \
      EXPECT_EQ( counted( #name "Notify" ), 4U );                    \
   }
   EXPECT_COLLECTION( anycastDiscoveredSg )
   EXPECT_COLLECTION( drDiscoveredSg )
   EXPECT_COLLECTION( noRegisterOif )
   EXPECT_COLLECTION( registerOif )
#undef EXPECT_COLLECTION
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

TEST_F( RegisterTables, ReplaceTheControlAndSayIt ) {
   RegisterRecorder recorder( &status );
   auto control = Mox::newEntity<::MoxBrane::CollectionControl>( "registerOif" );
   status.registerOifControlIs( control );
   status.registerOifControlIs( control );
   EXPECT_EQ( recorder.take(), Heard{ "registerOifControl" } );
   EXPECT_EQ( status.registerOifControl(), control );
   EXPECT_EQ( control->mountStatus(), ::MoxBrane::mountReady );
}

// Notes which control loses its entity, and how many still have theirs.
class EntityWatch : public ::MoxBrane::CollectionControl::NotifieeConst {
 public:
   EntityWatch( const ::MoxBrane::CollectionControl* control, Heard& heard )
      : heard_( heard ), entity_( control->entity() ) {
      notifierIs( control );
   }
   void onEntity() override {
      if ( notifier()->entity() != nullptr ) return;
      heard_.push_back( notifier()->name() );
      shell = Mox::Ptr<const ::MoxBrane::MountedEntity>( entity_ );
   }

   Mox::Ptr<const ::MoxBrane::MountedEntity> shell;

 private:
   Heard& heard_;
   const ::MoxBrane::MountedEntity* entity_;
};

TEST_F( RegisterTables, LetGoOfTheirControlsInOrder ) {
   std::vector<Mox::Ptr<::MoxBrane::CollectionControl>> held = {
      status.registerOifControl(), status.anycastDiscoveredSgControl(),
      status.noRegisterOifControl(), status.drDiscoveredSgControl(),
      advertised.collControl() };
   Heard order;
   std::vector<std::unique_ptr<EntityWatch>> watches;
   for ( const auto& control : held ) {
      watches.push_back( std::make_unique<EntityWatch>( control.get(), order ) );
   }
   const Mox::String paths[] = { status.name(), advertised.name() };
   EXPECT_EQ( status.observerCount(), 1U );  // its own
   agent.status.reset();
   EXPECT_EQ( order, ( Heard{ "anycastDiscoveredSg", "drDiscoveredSg",
                              "noRegisterOif", "registerOif" } ) );
   agent.advertised.reset();
   EXPECT_EQ( order.back(), "coll" );
   // Shells that are still held are not handed out again, and not observed.
   for ( const Mox::String& path : paths ) {
      EXPECT_EQ( agent.manager.entity( path ), nullptr ) << path;
   }
   for ( const auto& watch : watches ) {
      ASSERT_NE( watch->shell, nullptr );
      EXPECT_EQ( watch->shell->observerCount(), 0U );
      watch->shell.reset();
   }
   for ( const auto& control : held ) {
      control->initialize( ::Brane::tableReader, 0,
                           false );  // nothing left to mount
      EXPECT_EQ( control->role(), ::Brane::tableWriter );
   }
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

TEST_F( RegisterTables, TellTheirMount ) {
   auto made = agent.manager.createEntity(
      "other", "Routing::Pim::SparseMode::RegisterStatus" );
   RegisterRecorder recorder( dynamic_cast<RegisterStatus*>( made.get() ) );
   RegisterCapacities capacities;
   capacities.registerOif = 2;
   capacities.noRegisterOif = 3;
   capacities.drDiscoveredSg = 4;
   capacities.anycastDiscoveredSg = 5;
   EXPECT_EQ( RegisterStatus::mount( agent.manager, "other", ::Brane::tableWriter,
                                     capacities ),
              made );
   EXPECT_EQ( recorder.take(), ( Heard{ "anycastDiscoveredSg", "drDiscoveredSg",
                                        "noRegisterOif", "registerOif" } ) );
   const RegisterStatus& mounted = *recorder.notifier();
   EXPECT_EQ( mounted.registerOif().capacity(), 2U );
   EXPECT_EQ( mounted.noRegisterOif().capacity(), 3U );
   EXPECT_EQ( mounted.drDiscoveredSg().capacity(), 4U );
   EXPECT_EQ( mounted.anycastDiscoveredSg().capacity(), 5U );
}

TEST_F( RegisterTables, AttachNoReaderWhileSuspended ) {
   Corvex::EntityManager readers( clock, nullptr, root.path() );
   readers.attachSuspendedIs( true );
   auto read =
      RegisterStatus::mount( readers, status.name(), ::Brane::tableReader );
   EXPECT_FALSE( read->registerOif().mounted() );
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
