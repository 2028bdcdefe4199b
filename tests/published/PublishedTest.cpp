// The agent's published state, from its tables to a reader's model.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "platform/entity/EventCounter.h"
#include "platform/loop/TestClock.h"
#include "platform/shm/DoorbellHub.h"
#include "published/EventLog.h"
#include "published/GroupRanges.h"
#include "published/MfibStatus.h"
#include "published/PimMirror.h"
#include "published/Publisher.h"
#include "tests/support/Damage.h"
#include "tests/support/TempRoot.h"
#include "tests/support/VrfBuilder.h"

namespace Published {
namespace {

using Routing::Pim::SparseMode::Test::addr;
using Routing::Pim::SparseMode::Test::intfId;

class Publishing : public testing::Test {
 protected:
   Interface interface( const char* name, const char* address, bool dr ) {
      return { intfId( name ), addr( address ), 24, dr, 2 };
   }
   void exchange() {
      agentSide.dispatch();
      clock.nowIs( clock.now() + 0.01 );
      clock.runPass();
      readerSide.dispatch();
   }
   static Mox::String path() {
      return FamilyStatus::mountPath( Vantu::AddressFamily::ipv6,
                                      L3::VrfName( "red" ) );
   }

   Mox::Test::TempRoot root;
   Mox::TestClock clock{ 1000.0 };
   Corvex::EntityManager agentSide{ clock, nullptr, root.path() };
   Corvex::EntityManager readerSide{ clock, nullptr, root.path() };
};

TEST_F( Publishing, AMirrorFollowsTheInterfaces ) {
   EXPECT_EQ( path(), "routing6/pim/sparsemode/agentstatus/red" );
   auto model = Routing::Pim::SparseMode::statusFactory( L3::VrfName( "red" ) );
   auto seen = FamilyStatus::mount( readerSide, path(), Brane::tableReader );
   PimMirror mirror( model, seen );
   EXPECT_EQ( model->pimStatus(), nullptr ) << "nothing is known yet";

   auto tables = FamilyStatus::mount( agentSide, path(), Brane::tableWriter );
   publishInterfaces( *tables, { interface( "eth0", "192.0.2.1", true ),
                                 interface( "eth1", "192.0.3.1", false ) } );
   exchange();
   ASSERT_NE( model->pimStatus(), nullptr );
   const auto* eth0 = model->pimStatus()->intf( intfId( "eth0" ) );
   ASSERT_NE( eth0, nullptr );
   EXPECT_EQ( eth0->addr(), ( Routing::Pim::IntfAddr{ addr( "192.0.2.1" ), 24 } ) );
   EXPECT_TRUE( eth0->iAmDr() );
   ASSERT_NE( model->pimStatus()->intf( intfId( "eth1" ) ), nullptr );

   publishInterfaces( *tables, { interface( "eth0", "192.0.2.2", false ) } );
   exchange();
   EXPECT_EQ( eth0->addr().address, addr( "192.0.2.2" ) );
   EXPECT_FALSE( eth0->iAmDr() );
   EXPECT_EQ( model->pimStatus()->intf( intfId( "eth1" ) ), nullptr );

   Interface down = interface( "eth1", "192.0.3.1", true );
   down.link = linkDown;
   publishInterfaces( *tables, { interface( "eth0", "192.0.2.2", false ), down } );
   exchange();
   EXPECT_EQ( model->pimStatus()->intf( intfId( "eth1" ) ), nullptr );

   // Damaged records are not used.
   publishInterfaces( *tables, { interface( "eth0", "192.0.2.3", true ) } );
   Mox::Test::breakRecord( root.path() + '/' + path() + "/interface",
                           intfId( "eth0" ), 64 );
   exchange();
   EXPECT_EQ( eth0->addr().address, addr( "192.0.2.2" ) );
   publishInterfaces( *tables, { interface( "eth0", "192.0.2.2", false ) } );
   exchange();

   // A reader that starts later finds the existing records; without a table nothing
   // is known.
   auto later = Routing::Pim::SparseMode::statusFactory( L3::VrfName( "red" ) );
   PimMirror second( later, seen );
   ASSERT_NE( later->pimStatus(), nullptr );
   EXPECT_EQ( later->pimStatus()->intf().size(), 1u );
   agentSide.removeTables( path() );
   exchange();
   EXPECT_EQ( model->pimStatus(), nullptr );
}

TEST_F( Publishing, WritesOnlyWhatHasChanged ) {
   auto tables = FamilyStatus::mount( agentSide, path(), Brane::tableWriter, 10 );
   class Counting : public FamilyStatus::NotifieeConst {
    public:
      using NotifieeConst::onDownstream;
      using NotifieeConst::onSetting;
      void onDownstream( const Routing::Pim::RouteIntfKey& ) override { ++changes; }
      void onSetting( const Text<32>& ) override { ++changes; }
      int changes = 0;
   } counting;
   counting.notifierIs( tables.get() );
   Setting routes{ Text<32>( "maxRoutes" ), Text<224>( "10" ) };
   Setting hello{ Text<32>( "require-hello" ), Text<224>( "no" ) };
   publishSettings( *tables, { routes, hello } );
   EXPECT_EQ( counting.changes, 2 );
   routes.value = Text<224>( "20" );
   publishSettings( *tables, { routes, hello } );
   EXPECT_EQ( counting.changes, 3 );
   publishSettings( *tables, { hello } );
   EXPECT_EQ( counting.changes, 4 );
   EXPECT_EQ( tables->setting().size(), 1u );
   Downstream timers{ { { {}, addr( "239.1.2.3" ) }, intfId( "eth0" ) }, 210 };
   publishDownstream( *tables, timers );
   publishDownstream( *tables, timers );
   EXPECT_EQ( counting.changes, 5 );
   publishDownstream( *tables, { timers.key } );
   EXPECT_EQ( tables->downstream().size(), 0u );
   publishRps( *tables, { { { addr( "239.0.0.0" ), 8 }, addr( "192.0.2.9" ) } } );
   Rp found;
   EXPECT_EQ( tables->rp().find( { addr( "239.0.0.0" ), 8 }, found ),
              Brane::lookupFound );
   EXPECT_EQ( found.address, addr( "192.0.2.9" ) );
}

TEST_F( Publishing, WhatFindsNoRoomKeepsNothingElseBack ) {
   auto tables = FamilyStatus::mount( agentSide, path(), Brane::tableWriter );
   std::vector<Setting> all;
   for ( uint32_t i = 0; i < tables->setting().capacity(); ++i )
      all.push_back( { Text<32>( std::to_string( i ) ), Text<224>( "old" ) } );
   publishSettings( *tables, all );
   for ( Setting& setting : all ) setting.value = Text<224>( "new" );
   all.insert( all.begin(), { Text<32>( "one more" ), Text<224>( "new" ) } );
   publishSettings( *tables, all );
   unsigned current = 0;
   tables->setting().visit( [&]( const Setting& setting ) {
      current += setting.value == Text<224>( "new" );
      return true;
   } );
   EXPECT_EQ( current, all.size() - 1 );
}

TEST_F( Publishing, ReadersKnowWhatTheConfigurationSaysOfGroups ) {
   using Known = std::optional<bool>;
   auto tables = FamilyStatus::mount( agentSide, path(), Brane::tableWriter );
   const auto ranges = [&] {
      return GroupRanges( Vantu::AddressFamily::ipv4, *tables );
   };
   const auto rp = [&]( const char* group ) {
      const auto found = ranges().rp( addr( group ) );
      return found ? valueToStrep( *found ) : "none";
   };
   const auto ssm = [&]( const char* group ) {
      return ranges().sourceSpecific( addr( group ) );
   };
   const auto policy = [&]( const char* filter, const char* rules ) {
      publishSettings( *tables,
                       { { Text<32>( "ssmFilter" ), Text<224>( filter ) },
                         { Text<32>( "access-rules" ), Text<224>( rules ) } } );
   };
   EXPECT_EQ( rp( "239.1.2.3" ), "none" );
   EXPECT_EQ( ssm( "232.1.2.3" ), Known() ) << "no setting, nothing known";

   // The longest range decides, and for one range the RP named first.
   publishRps( *tables, { { { addr( "224.0.0.0" ), 4 }, addr( "192.0.2.9" ) },
                          { { addr( "239.1.0.0" ), 16 }, addr( "192.0.2.10" ) },
                          { { addr( "239.1.0.0" ), 16 }, addr( "192.0.2.11" ) },
                          { { addr( "239.1.2.4" ), 32 }, addr( "192.0.2.12" ) } } );
   EXPECT_EQ( rp( "239.1.2.3" ), "192.0.2.10" );
   EXPECT_EQ( rp( "239.1.2.4" ), "192.0.2.12" );
   EXPECT_EQ( rp( "239.2.2.3" ), "192.0.2.9" );

   // The group's address has its RP, where the configuration lets it.
   const auto embeds = [&]( const char* says ) {
      publishSettings( *tables,
                       { { Text<32>( "embedded-rp" ), Text<224>( says ) } } );
      return rp( "ff7e:140:2001:db8::1" );
   };
   publishOwnAddresses( *tables,
                        { { { intfId( "eth0" ), addr( "2001::1" ), 0 } } } );
   EXPECT_EQ( rp( "ff7e:140:2001:db8::1" ), "none" ) << "it is not known";
   EXPECT_EQ( embeds( "no" ), "none" );
   EXPECT_EQ( embeds( "yes" ), "2001:db8::1" );
   EXPECT_FALSE( ranges().ownRp( addr( "ff7e:140:2001:db8::1" ) ) );
   EXPECT_TRUE( ranges().ownRp( addr( "ff7e:110:2001::1" ) ) );
   EXPECT_EQ( rp( "ff7e:40:2001:db8::1" ), "none" ) << "not a valid one";

   policy( "", "0" );
   EXPECT_EQ( ssm( "232.1.2.3" ), Known( true ) );
   EXPECT_EQ( ssm( "239.1.2.3" ), Known( false ) );
   policy( ".no-ssm-range", "0" );
   EXPECT_EQ( ssm( "232.1.2.3" ), Known( false ) );
   auto rule = [&]( uint32_t sequence, Acl::AclAction action, const char* group ) {
      return AccessRule{ { Text<224>( "ours" ), sequence, 0 },
                         Acl::standard,
                         action,
                         Vantu::IpGenPrefix( group ),
                         {} };
   };
   publishAccessRules( *tables, { rule( 20, Acl::permit, "239.0.0.0/8" ),
                                  rule( 10, Acl::deny, "239.1.0.0/16" ) } );
   policy( "ours", "2" );
   EXPECT_EQ( ssm( "232.1.2.3" ), Known( false ) );
   EXPECT_EQ( ssm( "239.1.2.3" ), Known( false ) );
   EXPECT_EQ( ssm( "239.2.2.3" ), Known( true ) );
   policy( "ours", "3" );
   EXPECT_EQ( ssm( "239.2.2.3" ), Known() ) << "a rule is missing";
}

TEST_F( Publishing, WhatTheForwardingProcessSaysReachesReadersWhole ) {
   auto path =
      MfibStatus::mountPath( Vantu::AddressFamily::ipv4, L3::VrfName( "red" ) );
   EXPECT_EQ( path, "routing/pim/sparsemode/mfibstatus/red" );
   auto tables = MfibStatus::mount( agentSide, path, Brane::tableWriter, 10 );
   auto seen = MfibStatus::mount( readerSide, path, Brane::tableReader );
   const Routing::Pim::RouteKey sg{ addr( "192.0.2.7" ), addr( "239.1.2.3" ) };
   const MfibVif vif{ intfId( "eth0" ), 1, 2, 3, 4, 5, 6 };
   const MfibCache cache{ sg, 1, 2, 3, 4.5 };
   const MfibUpcall upcall{ { sg, intfId( "eth0" ) }, wrongVifUpcall, 7, 8.5 };
   tables->vifIs( vif );
   tables->cacheIs( cache );
   tables->upcallIs( upcall );
   exchange();
   MfibVif seenVif;
   MfibCache seenCache;
   MfibUpcall seenUpcall;
   EXPECT_EQ( seen->vif().find( vif.key, seenVif ), Brane::lookupFound );
   EXPECT_EQ( seen->cache().find( sg, seenCache ), Brane::lookupFound );
   EXPECT_EQ( seen->upcall().find( upcall.key, seenUpcall ), Brane::lookupFound );
   EXPECT_EQ( seenVif, vif );
   EXPECT_EQ( seenCache, cache );
   EXPECT_EQ( seenUpcall, upcall );
}

TEST_F( Publishing, CountersFollowOnceASecond ) {
   auto tables = ProcessStatus::mount( agentSide, Brane::tableWriter );
   Mox::EventCounter counter( "test/published", "ticks" );
   auto value = [&] {
      Counter found;
      CounterKey key{ Text<160>( "test/published" ), Text<48>( "ticks" ) };
      bool there = tables->counter().find( key, found ) == Brane::lookupFound;
      return there ? static_cast<int>( found.value ) : -1;
   };
   auto pass = [&]( double seconds ) {
      clock.nowIs( clock.now() + seconds );
      clock.runPass();
   };
   CounterPublisher publisher( clock, tables );
   EXPECT_EQ( value(), -1 );
   publisher.touch();
   pass( 0 );
   EXPECT_EQ( value(), 0 );
   counter.inc( 7 );
   publisher.touch();
   pass( 0.9 );
   EXPECT_EQ( value(), 0 ) << "not more often";
   publisher.touch();
   pass( 0.1 );
   EXPECT_EQ( value(), 7 );
   counter.inc();
   publisher.publish();
   EXPECT_EQ( value(), 8 );
}

// A text of any length, and random bytes in its place.
TEST( PublishedText, IsBoundedAndNeverTrusted ) {
   using Short = Text<8>;
   using Form = Brane::FlatForm<Short>;
   Form::Bytes bytes{};
   Form::write( Short( "12345678" ), bytes );
   Short out;
   ASSERT_TRUE( Form::read( bytes, out ) );
   EXPECT_EQ( out.text(), "1234567" );
   EXPECT_EQ( Short( Mox::StringView( "a\0b", 3 ) ).text(), "a" );
   std::memset( bytes.text, 'x', sizeof bytes.text );
   EXPECT_FALSE( Form::read( bytes, out ) );
}

// A hundred different ones, then one a second; the same again after ten minutes.
TEST_F( Publishing, AFloodOfRefusalsIsCounted ) {
   EventLog log( agentSide, agentLog, clock );
   auto refused = [&]( int sender ) {
      Event event;
      event.kind = Published::refused;
      event.address = addr( "10.0.0." + std::to_string( sender ) );
      log.add( event );
      return log.written();
   };
   for ( int sender : { 0, 1, 1, 0 } ) refused( sender );
   EXPECT_EQ( log.written(), 2u );
   EventReader reader( root.path(), agentLog );
   while ( reader.next() ) {
   }
   EXPECT_TRUE( reader.repeated().empty() );
   refused( 0 );
   EXPECT_EQ( reader.repeated().at( 0 ).count, 3u );
   EXPECT_TRUE( reader.repeated().empty() );
   for ( int sender = 2; sender < 100; ++sender ) refused( sender );
   EXPECT_EQ( log.written(), 100u );
   EXPECT_EQ( refused( 100 ), 101u ) << "by its reason alone";
   EXPECT_EQ( refused( 101 ), 101u );
   clock.advance( 1.0 );
   EXPECT_EQ( refused( 102 ), 102u );
   EXPECT_EQ( refused( 103 ), 102u );
   clock.advance( EventLog::sameRefusal );
   EXPECT_EQ( refused( 99 ), 103u );
   EXPECT_EQ( Mox::eventCounter( "agent/events", "refused" )->value(), 108u );
   // Files that were removed come again, when there is something to tell.
   const std::string files = root.path() + "/routing/pim/log";
   log.flush();
   clock.advance( 1.0 );
   std::filesystem::remove_all( files );
   for ( const bool there : { false, true } ) {
      if ( there ) refused( 99 );
      log.flush();
      EXPECT_EQ( std::filesystem::exists( files ), there );
   }
}

TEST_F( Publishing, EventsAreReadInOrderAndWhatIsMissedIsCounted ) {
   constexpr uint32_t entries = 4;
   std::optional<EventLog> log;
   log.emplace( agentSide, agentLog, clock, entries );
   auto tell = [&]( EventKind kind, std::initializer_list<int> values ) {
      for ( int value : values ) {
         Event event;
         event.kind = kind;
         event.value = static_cast<uint32_t>( value );
         event.at = 100.0 + value;
         log->add( event );
      }
   };
   auto heardBy = []( EventReader& reader ) {
      std::string heard;
      while ( const auto entry = reader.next() ) {
         EXPECT_EQ( entry->event.at, 100.0 + entry->event.value );
         heard += std::to_string( entry->event.value ) + ' ';
      }
      return heard + '-' + std::to_string( reader.missed() );
   };
   EventReader reader( root.path(), agentLog );
   tell( configurationRead, { 1, 2 } );
   EXPECT_EQ( heardBy( reader ), "1 2 -0" );
   EXPECT_EQ( heardBy( reader ), "-0" );
   tell( configurationRead, { 3, 4, 5, 6, 7, 8 } );
   EXPECT_EQ( heardBy( reader ), "5 6 7 8 -2" );
   EventReader late( root.path(), agentLog );
   EXPECT_EQ( heardBy( late ), "5 6 7 8 -0" );
   // The bell rings once for all that was told.
   int rings = 0;
   Brane::DoorbellHub hub;
   hub.add( root.path() + '/' + Mox::String( agentLog ), [&]( auto ) { ++rings; } );
   hub.dispatch( 1.0 );
   for ( const int expected : { 1, 0 } ) {
      rings = 0;
      log->flush();
      hub.dispatch( 3.0 - expected );
      EXPECT_EQ( rings, expected );
   }
   // What repeats is counted, and a record that another takes the place of is forgotten.
   tell( wrongInterface, { 9, 9 } );
   EXPECT_EQ( heardBy( reader ), "9 -2" );
   tell( wrongInterface, { 9 } );
   EXPECT_EQ( reader.repeated().at( 0 ).count, 3u );
   // Another log in its place is read from its beginning.
   EXPECT_FALSE( reader.poll() );
   log.reset();
   std::filesystem::remove_all( root.path() + "/routing/pim/log" );
   EXPECT_FALSE( reader.poll() ) << "nothing is there yet";
   log.emplace( agentSide, agentLog, clock, entries );
   tell( wrongInterface, { 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 12 } );
   EXPECT_TRUE( reader.poll() );
   EXPECT_TRUE( reader.repeated().empty() );
   EXPECT_EQ( heardBy( reader ), "9 10 11 12 -2" );
}

}
}
