#include "frr/FrrFilterSm.h"

#include <gtest/gtest.h>

#include "tests/support/Lists.h"
#include "tests/support/Recorder.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode {
namespace {

using Acl::Test::rules;
using Mox::Test::Heard;
using Vantu::AddressFamily;
using Vantu::IpGenPrefix;
using Lines = Mox::Test::TraceCapture::Lines;

PIMSM_TEST_RECORDER( StatusRecorder, FrrFilterStatus,
                     PIMSM_FRR_FILTER_STATUS_ATTRIBUTES )

class FrrFilter : public testing::Test {
 protected:
   void start( AddressFamily family = AddressFamily::ipv4 ) {
      status = frrFilterStatusFactory( family );
      sm = FrrFilterSmIs( config, lists, status );
   }
   bool enabled( const char* group, const char* source = "192.0.2.1/32" ) const {
      return status->frrEnabled( IpGenPrefix( Mox::StringView( source ) ),
                                 IpGenPrefix( Mox::StringView( group ) ) );
   }
   // Steps of changeCount since the last call.
   uint32_t steps() {
      uint32_t now = status->changeCount();
      return now - std::exchange( counted, now );
   }

   Mox::Ptr<Config> config = Mox::newEntity<Config>( "red" );
   Mox::Ptr<Acl::AclTypeConfig> lists = Mox::newEntity<Acl::AclTypeConfig>();
   Mox::Ptr<FrrFilterStatus> status;
   Mox::Ptr<FrrFilterSm> sm;
   uint32_t counted = 0;
};

// Each line of the walk: a change, its steps of the counter, and whether a group of
// the list, and one that the list gets later, are enabled.
TEST_F( FrrFilter, FollowsConfigurationThroughEveryTransition ) {
   start();
   auto expect = [&]( uint32_t count, bool listed, bool added ) {
      EXPECT_EQ( steps(), count );
      EXPECT_EQ( enabled( "239.1.2.3/32" ), listed );
      EXPECT_EQ( enabled( "239.2.2.3/32" ), added );
   };
   const auto one = rules( "permit 239.1.0.0/16" );
   const auto two = rules( "permit 239.1.0.0/16, permit 239.2.0.0/16" );
   expect( 2, false, false );  // a rebuild, and the name's own step
   lists->aclIs( "groups", one );
   expect( 0, false, false );
   config->frrFilterIs( "groups" );
   expect( 2, true, false );
   lists->aclIs( "groups", two );
   expect( 1, true, true );
   auto current = Mox::newEntity<Acl::AclSubConfig>( two );
   lists->acl( "groups" )->currCfgIs( current );
   expect( 1, true, true );
   current->rulesIs( one );
   expect( 1, true, false );
   lists->aclIs( "others", rules( "permit 239.2.0.0/16" ) );
   lists->aclIs( "others", rules( "permit 239.3.0.0/16" ) );
   expect( 0, true, false );
   {
      Mox::Test::TraceCapture capture( "Pimsm::FrrFilterSm/8" );
      lists->acl( "groups" )->currCfgIs( nullptr );  // as if there were no list
      EXPECT_EQ( capture.take().back(),
                 "Pimsm::FrrFilterSm 8 handleAllRules acl "
                 "deletion, update changeCount " );
   }
   expect( 1, false, false );
   lists->acl( "groups" )->rulesIs( one );
   expect( 1, true, false );
   lists->aclDel( "groups" );
   expect( 1, false, false );
   lists->aclIs( "groups" );  // made anew, its rules later
   expect( 1, false, false );
   lists->acl( "groups" )->rulesIs( two );
   expect( 1, true, true );
   config->frrFilterIs( "missing" );
   expect( 2, false, false );
   config->frrFilterIs( "groups" );
   expect( 2, true, true );
   config->frrFilterIs( "" );
   expect( 2, false, false );
}

TEST_F( FrrFilter, AsksForTheWholeGroupPrefixWhateverTheSource ) {
   lists->aclIs( "groups", rules( "deny ff3e:1::/32, permit ff3e::/16" ) );
   config->frrFilterIs( "groups" );
   start( AddressFamily::ipv6 );
   EXPECT_TRUE( enabled( "ff3e::1/128", "::/0" ) );
   EXPECT_TRUE( enabled( "ff3e::1/128", "none" ) );
   EXPECT_TRUE( enabled( "ff3e:2::/32" ) );
   EXPECT_FALSE( enabled( "ff3e::/16" ) );
   EXPECT_FALSE( enabled( "ff3e:1::1/128" ) );
   EXPECT_FALSE( enabled( "239.1.1.1/32" ) );
   EXPECT_FALSE( enabled( "none" ) );
   lists->aclIs( "groups", rules( "permit ff3d::/16" ) );
   EXPECT_FALSE( enabled( "ff3e::1/128" ) );
}

// Only the name's own step counts.
TEST_F( FrrFilter, WithoutListsEnablesNothing ) {
   lists.reset();
   start();
   EXPECT_TRUE( sm->initialized() );
   EXPECT_EQ( steps(), 1U );
   config->frrFilterIs( "groups" );
   EXPECT_EQ( steps(), 1U );
   sm->handleAclConfig();
   sm->handleAclConfig( "groups" );
   EXPECT_EQ( steps(), 0U );
   EXPECT_FALSE( enabled( "239.1.2.3/32" ) );
}

TEST_F( FrrFilter, InitializesAStatusThatIsNot ) {
   status = frrFilterStatusFactory( AddressFamily::ipv4 );
   status->trieDel();
   status->initializedIs( false );
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   config->frrFilterIs( "groups" );
   sm = frrFilterSmFactory( config, lists, status );
   EXPECT_TRUE( status->initialized() );
   EXPECT_TRUE( enabled( "239.1.2.3/32" ) );
   steps();
   sm->handleAclConfig();  // the configured list's
   EXPECT_EQ( steps(), 1U );
}

TEST_F( FrrFilter, OfAnUnsupportedFamilyIsEmpty ) {
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   config->frrFilterIs( "groups" );
   Mox::Test::TraceCapture capture( "Pimsm::FrrFilterSm/7" );
   start( static_cast<AddressFamily>( 7 ) );
   EXPECT_EQ( capture.take(),
              Lines{ "Pimsm::FrrFilterSm 7 Unsupported address family family7" } );
   EXPECT_EQ( steps(), 2U );
   EXPECT_FALSE( enabled( "239.1.0.0/32" ) );
}

TEST_F( FrrFilter, NullListIsFatal ) {
   start();
   EXPECT_EQ( Mox::Test::assertionText( [&] { sm->aclConfigIs( nullptr ); } ),
              "null _aclConfig parameter to mutator for "
              "Routing::Pim::SparseMode::FrrFilterSm::aclConfig not allowed" );
}

// The observer of the counter releases the list that is being handled, then the
// reactor, inside the reactor's own work.
TEST_F( FrrFilter, SurvivesWhatObserversDo ) {
   start();
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   config->frrFilterIs( "groups" );
   StatusRecorder recorder( status.get() );
   recorder.inside = [&]( const Mox::String& ) {
      recorder.inside = nullptr;
      lists->aclDel( "groups" );
   };
   lists->aclIs( "groups", rules( "permit 239.2.0.0/16" ) );
   EXPECT_EQ( recorder.take(), ( Heard{ "changeCount", "changeCount" } ) );
   EXPECT_FALSE( enabled( "239.2.0.1/32" ) );

   recorder.inside = [&]( const Mox::String& ) { sm.reset(); };
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   EXPECT_TRUE( enabled( "239.1.0.1/32" ) );
   EXPECT_EQ( lists->observerCount() + config->observerCount(), 0U );
}

}
}
