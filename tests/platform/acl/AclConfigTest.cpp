#include "platform/acl/AclConfig.h"
#include "tests/platform/acl/Rule.h"

#include <gtest/gtest.h>

#include "tests/support/ErrorText.h"
#include "tests/support/Recorder.h"

namespace Acl {
namespace {

using Mox::Test::Heard;
using Vantu::IpGenPrefix;

PIMSM_TEST_RECORDER( TypeRecorder, AclTypeConfig, PIMSM_ACL_TYPE_CONFIG_ATTRIBUTES )
PIMSM_TEST_RECORDER( ListRecorder, AclConfig, PIMSM_ACL_CONFIG_ATTRIBUTES )

TEST( AclConfig, RulesAreReplacedWithOneNotification ) {
   const AclRules one( standard, { rule( 10, permit, "232.0.0.0/8" ) } );
   const AclRules two( standard, { rule( 5, deny, "232.1.0.0/16" ) } );
   auto lists = Mox::newEntity<AclTypeConfig>();
   TypeRecorder outer( lists.get() );
   AclRules rulesWhenHeard;
   outer.inside = [&]( const Mox::String& ) {
      rulesWhenHeard = lists->acl( "groups" )->currCfg()->rules();
   };
   auto list = lists->aclIs( "groups", one );
   EXPECT_EQ( outer.take(), Heard{ "acl groups" } );
   EXPECT_EQ( rulesWhenHeard, one );
   ListRecorder inner( list.get() );
   for ( int i = 0; i < 2; ++i ) EXPECT_EQ( lists->aclIs( "groups", two ), list );
   EXPECT_EQ( inner.take(), Heard{ "currCfg" } );
   EXPECT_EQ( list->currCfg()->rules(), two );
   EXPECT_EQ( outer.take(), Heard{} );
   EXPECT_THROW( lists->aclIs( "", one ), Mox::RangeError );
}

TEST( AclRules, ReadBackWhatTheyPrint ) {
   const AclRules rules( extended,
                         { rule( 20, permit, "none", "ff3e::/32" ),
                           rule( 10, deny, "2001:db8::/32", "ff00::/8" ) } );
   for ( const AclRules& each : { rules, AclRules() } )
      EXPECT_EQ( Mox::stringToValue<AclRules>( valueToStrep( each ) ), each );
   EXPECT_EQ( valueToStrep( rules ),
              "Value('Acl::AclRules', ** {'type': extended, 'rules': "
              "[Value('Acl::AclRule', ** {'sequence': 10, 'action': deny, "
              "'source': 2001:db8::/32, 'destination': ff00::/8}), "
              "Value('Acl::AclRule', ** {'sequence': 20, 'action': permit, "
              "'source': none, 'destination': ff3e::/32})]})" );
}

TEST( AclRules, RefuseWhatContradictsItself ) {
   auto refusal = []( AclType type, const std::vector<AclRule>& rules ) {
      return Mox::Test::errorText<Mox::RangeError>(
         [&] { AclRules( type, rules ); } );
   };
   const AclRule plain = rule( 7, permit, "none" );
   EXPECT_EQ( refusal( standard, { plain, rule( 8, permit, "none" ),
                                   rule( 7, deny, "none" ) } ),
              "access list rule 7: sequence number given twice" );
   EXPECT_EQ( refusal( standard, { rule( 3, permit, "none", "232.0.0.0/8" ) } ),
              "access list rule 3: destination in a standard list" );
   EXPECT_EQ( refusal( extended, { rule( 1, permit, "none", "232.0.0.0/8" ),
                                   rule( 2, permit, "2001:db8::/32" ) } ),
              "access list rule 2: IPv4 and IPv6 in one list" );
}

}
}
