#include "ssm/SsmGroupSm.h"

#include <gtest/gtest.h>

#include "ssm/SsmJoinPruneFilter.h"
#include "tests/support/ErrorText.h"
#include "tests/support/Lists.h"
#include "tests/support/Recorder.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode {
namespace {

using Acl::AclConfigMap;
using Acl::Test::rules;
using Mox::Test::Heard;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;
using Lines = Mox::Test::TraceCapture::Lines;

PIMSM_TEST_RECORDER( ListsRecorder, Acl::AclTypeConfig,
                     PIMSM_ACL_TYPE_CONFIG_ATTRIBUTES )
PIMSM_TEST_RECORDER( InfoRecorder, SsmGroupInfo, PIMSM_SSM_GROUP_INFO_ATTRIBUTES )

class SsmGroups : public testing::Test {
 protected:
   void start( AddressFamily family = AddressFamily::ipv4 ) {
      info = Mox::newEntity<SsmGroupInfo>( family );
      sm = SsmGroupSmIs( config, lists, info );
      counted = info->ssmConfigChanged();
   }
   bool ssm( const char* group ) const {
      return info->ssmGroup( IpGenAddr( Mox::StringView( group ) ), *config );
   }
   // Steps of ssmConfigChanged since the last call.
   uint32_t steps() {
      uint32_t now = info->ssmConfigChanged();
      return now - std::exchange( counted, now );
   }

   Mox::Ptr<Config> config = Mox::newEntity<Config>( "red" );
   Mox::Ptr<Acl::AclTypeConfig> lists = Mox::newEntity<Acl::AclTypeConfig>();
   Mox::Ptr<SsmGroupInfo> info;
   Mox::Ptr<SsmGroupSm> sm;
   uint32_t counted = 0;
};

TEST_F( SsmGroups, DefaultRangeEndsWhereTheProtocolSays ) {
   start();
   EXPECT_TRUE( ssm( "232.0.0.0" ) );
   EXPECT_TRUE( ssm( "232.255.255.255" ) );
   EXPECT_FALSE( ssm( "231.255.255.255" ) );
   EXPECT_FALSE( ssm( "233.0.0.0" ) );
   EXPECT_TRUE( ssm( "ff3e::8000:1" ) );
   EXPECT_TRUE( ssm( "ff30::" ) );
   EXPECT_TRUE( ssm( "ff3f:0:ffff::" ) );
   EXPECT_FALSE( ssm( "ff3e:1::1" ) );
   EXPECT_FALSE( ssm( "ff3e:100::1" ) );
   EXPECT_FALSE( ssm( "ff2f:0:ffff::" ) );
   EXPECT_FALSE( ssm( "ff40::" ) );
}

// Each line of the walk: a change, its steps of the counter, and whether a group of
// the default range, one of the list's, and one that the list gets later are in.
TEST_F( SsmGroups, FollowConfigurationThroughEveryTransition ) {
   start();
   auto expect = [&]( uint32_t count, bool byDefault, bool listed, bool added ) {
      EXPECT_EQ( steps(), count );
      EXPECT_EQ( ssm( "232.1.1.1" ), byDefault );
      EXPECT_EQ( ssm( "239.1.2.3" ), listed );
      EXPECT_EQ( ssm( "239.2.2.3" ), added );
   };
   const auto one = rules( "permit 239.1.0.0/16" );
   const auto two = rules( "permit 239.2.0.0/16, permit 239.1.0.0/16" );
   expect( 0, true, false, false );
   config->ssmFilterIs( "groups" );  // no such list yet
   expect( 1, false, false, false );
   lists->aclIs( "groups", one );
   expect( 1, false, true, false );
   lists->aclIs( "groups", two );
   expect( 1, false, true, true );
   lists->acl( "groups" )->rulesIs( two );  // the same
   expect( 0, false, true, true );
   auto current = Mox::newEntity<Acl::AclSubConfig>( two );
   lists->acl( "groups" )->currCfgIs( current );
   expect( 1, false, true, true );
   current->rulesIs( one );  // inside the current sub-configuration
   expect( 1, false, true, false );
   config->ssmFilterIs( ".no-ssm-range" );
   expect( 1, false, false, false );
   EXPECT_EQ( info->trie()->size(), 1U );  // left as it is
   current->rulesIs( two );
   lists->aclDel( "groups" );
   expect( 0, false, false, false );
   EXPECT_EQ( info->trie()->size(), 1U );
   config->ssmFilterIs( "groups" );  // gone meanwhile
   expect( 1, false, false, false );
   lists->aclIs( "groups", one );
   expect( 1, false, true, false );
   lists->aclIs( "groups", rules( "deny 224.0.0.0/4" ) );
   expect( 1, false, false, false );  // the default does not come back
   config->ssmFilterIs( "" );
   expect( 1, true, false, false );
   config->ssmFilterIs( "groups" );
   lists->aclIs( "groups", two );
   expect( 2, false, true, true );
   lists->aclDel( "groups" );
   expect( 1, false, false, false );
   current->rulesIs( one );  // of a list that is gone
   config->ssmFilterIs( "" );
   expect( 1, true, false, false );
}

// An earlier observer makes the list anew inside the notification of its removal.
TEST_F( SsmGroups, FollowAListMadeAnewUnderItsName ) {
   ListsRecorder earlier( lists.get() );
   start();
   config->ssmFilterIs( "groups" );
   Mox::Ptr<Acl::AclConfig> former =
      lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   earlier.inside = [&]( const Mox::String& ) {
      earlier.inside = nullptr;
      lists->aclIs( "groups", rules( "permit 239.2.0.0/16" ) );
   };
   lists->aclDel( "groups" );
   EXPECT_TRUE( ssm( "239.2.0.1" ) );
   steps();
   former->rulesIs( rules( "permit 239.3.0.0/16" ) );
   EXPECT_EQ( steps(), 0U );
   EXPECT_EQ( former->observerCount(), 0U );
   lists->acl( "groups" )->rulesIs( rules( "permit 239.4.0.0/16" ) );
   EXPECT_TRUE( ssm( "239.4.0.1" ) );
}

TEST_F( SsmGroups, WatchListsThatWereThereBefore ) {
   auto current = Mox::newEntity<Acl::AclSubConfig>(
      rules( "permit ff3e::/16, permit 2001:db8::/32" ) );
   lists->aclIs( "groups" )->currCfgIs( current );
   config->ssmFilterIs( "groups" );
   start( AddressFamily::ipv6 );
   EXPECT_TRUE( ssm( "ff3e:1::1" ) );
   EXPECT_FALSE( ssm( "ff3d::1" ) );
   EXPECT_FALSE( ssm( "2001:db8::1" ) );
   current->rulesIs( rules( "permit ff3d::/16" ) );
   EXPECT_TRUE( ssm( "ff3d::1" ) );
   EXPECT_FALSE( ssm( "ff3e:1::1" ) );
   EXPECT_EQ( steps(), 1U );
}

TEST_F( SsmGroups, CountOneStepAtTheStartWhateverTheFilter ) {
   for ( const char* filter : { "", "missing", ".no-ssm-range" } ) {
      config->ssmFilterIs( filter );
      start();
      EXPECT_EQ( info->ssmConfigChanged(), 1U ) << filter;
      EXPECT_TRUE( sm->initialized() );
   }
}

TEST_F( SsmGroups, IgnoreOtherListsAndSayWhatTheyDo ) {
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   config->ssmFilterIs( "groups" );
   start();
   Mox::Test::TraceCapture capture( "Pimsm::SsmGroupSm/8" );
   lists->aclIs( "others", rules( "permit 239.9.0.0/16" ) );
   lists->aclIs( "others", rules( "permit 239.8.0.0/16" ) );
   EXPECT_EQ(
      capture.take(),
      ( Lines{ "Pimsm::SsmGroupSm 8 handleAclConfig() not interested in others",
               "Pimsm::SsmGroupSm 8 handleCurrCfg" } ) );
   EXPECT_EQ( steps(), 0U );

   EXPECT_TRUE( ssm( "239.1.0.1" ) );
   const Mox::String signature =
      "<Vrf:red>bool Routing::Pim::SparseMode::SsmGroupInfo::ssmGroup("
      "const Vantu::IpGenAddr&, const Config&) const";
   EXPECT_EQ( capture.take(),
              ( Lines{ "Pimsm::SsmGroupSm 8 " + signature + " for 239.1.0.1",
                       "Pimsm::SsmGroupSm 5 " + signature +
                          " LPM for 239.1.0.1 returned valid prefix" } ) );
   lists->aclDel( "groups" );
   EXPECT_EQ( capture.take(),
              ( Lines{ "Pimsm::SsmGroupSm 8 handleAllRules",
                       "Pimsm::SsmGroupSm 8 handleAllRules cleanup trie4 first ",
                       "Pimsm::SsmGroupSm 8 handleAllRules acl deletion, update "
                       "ssmConfigChanged " } ) );
   config->ssmFilterIs( ".no-ssm-range" );
   capture.take();
   sm->handleAclConfig();
   EXPECT_EQ( capture.take(),
              Lines{ "Pimsm::SsmGroupSm 8 handleAclConfig() not interested" } );
}

TEST_F( SsmGroups, RebuildNothingBeforeTheInfoIsInitialized ) {
   start();
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   info->initializedIs( false );
   Mox::Test::TraceCapture capture( "Pimsm::SsmGroupSm/8" );
   sm->handleAllRules( lists->acl( "groups" ) );
   EXPECT_EQ( capture.take().back(),
              "Pimsm::SsmGroupSm 8 handleAllRules not initialized " );
   EXPECT_EQ( steps(), 0U );
   sm->handleInitialized();
   EXPECT_TRUE( info->initialized() );
   EXPECT_EQ( steps(), 1U );
}

TEST_F( SsmGroups, OfAnUnsupportedFamilyAreNone ) {
   const auto other = static_cast<AddressFamily>( 7 );
   Mox::Test::TraceCapture capture( "Pimsm::SsmGroupSm/7" );
   start( other );
   EXPECT_FALSE( info->ssmGroup( IpGenAddr::unspecified( other ), *config ) );
   EXPECT_EQ(
      capture.take(),
      Lines{ "Pimsm::SsmGroupSm 7 <Vrf:red>ssmGroup(family7), AddressFamily "
             "not supported" } );
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   config->ssmFilterIs( "groups" );
   EXPECT_FALSE( info->ssmGroup( IpGenAddr::unspecified( other ), *config ) );
   EXPECT_EQ( capture.take(),
              Lines{ "Pimsm::SsmGroupSm 7 Unsupported address family family7" } );
   EXPECT_EQ( steps(), 1U );
}

TEST_F( SsmGroups, RaiseForALongVrfNameWhereItIsTraced ) {
   config = Mox::newEntity<Config>( Mox::String( 101, 'v' ) );
   start();
   EXPECT_TRUE( ssm( "232.0.0.0" ) );
   Mox::Test::TraceCapture capture( "Pimsm::SsmGroupSm/8" );
   EXPECT_EQ( Mox::Test::errorText<Mox::RangeError>( [&] { ssm( "232.0.0.0" ); } ),
              "VrfName::bytes > VrfName::maxLength not allowed" );
}

TEST_F( SsmGroups, AreFilteredFromJoins ) {
   start();
   SsmJoinPruneFilter filter( config, info );
   const IpGenAddr group( "232.1.1.1" );
   EXPECT_TRUE( filter.deny( group ) );
   config->ssmFilterIs( ".no-ssm-range" );
   EXPECT_FALSE( filter.deny( group ) );
}

TEST_F( SsmGroups, NullListIsFatalWithItsQuote ) {
   start();
   EXPECT_EQ( Mox::Test::assertionText( [&] { sm->aclConfigIs( nullptr ); } ),
              "null _aclConfig parameter to mutator for "
              "Routing::Pim::SparseMode::SsmGroupSm::aclConfig not allowed\"" );
}

TEST_F( SsmGroups, StayAsTheyAreOnceDetached ) {
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   config->ssmFilterIs( "groups" );
   start();
   sm->configDel();
   sm->aclIpConfigDel();
   EXPECT_EQ( sm->aclConfig( "groups" ), nullptr );
   lists->aclIs( "groups", rules( "permit 239.2.0.0/16" ) );
   config->ssmFilterIs( "others" );
   EXPECT_EQ( steps(), 0U );
   EXPECT_TRUE( ssm( "239.1.0.1" ) );
   EXPECT_EQ( config->observerCount() + lists->observerCount(), 0U );
}

// The observer of the counter releases the reactor, or changes the configuration,
// inside the reactor's own work.
TEST_F( SsmGroups, SurviveWhatObserversDo ) {
   start();
   InfoRecorder recorder( info.get() );
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   recorder.inside = [&]( const Mox::String& ) {
      recorder.inside = nullptr;
      lists->aclDel( "groups" );
   };
   config->ssmFilterIs( "groups" );
   EXPECT_EQ( recorder.take(),
              ( Heard{ "ssmConfigChanged", "ssmConfigChanged" } ) );
   EXPECT_EQ( sm->aclConfig( "groups" ), nullptr );
   EXPECT_FALSE( ssm( "239.1.0.1" ) );

   recorder.inside = [&]( const Mox::String& ) { sm.reset(); };
   lists->aclIs( "groups", rules( "permit 239.1.0.0/16" ) );
   EXPECT_TRUE( ssm( "239.1.0.1" ) );
   EXPECT_EQ( lists->observerCount() + config->observerCount(), 0U );

   // While the next reactor is being constructed.
   recorder.inside = [&]( const Mox::String& ) {
      recorder.inside = nullptr;
      config->ssmFilterIs( "" );
   };
   sm = SsmGroupSmIs( config, lists, info );
   EXPECT_TRUE( ssm( "232.1.1.1" ) );
}

}
}
