// What an agent publishes of its configuration, for readers that judge by it.
#include "router/Publishing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"

namespace Router {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

VrfConfig configOfBothFamilies() {
   auto list = []( const char* name, const char* denied, const char* permitted ) {
      return AccessListConfig{
         name,
         Acl::AclRules( Acl::standard,
                        { { 10, Acl::deny, IpGenPrefix( denied ), {} },
                          { 20, Acl::permit, IpGenPrefix( permitted ), {} } } ) };
   };
   VrfConfig config;
   config.requireHello = false;
   config.assertTime = 90.0;
   config.ssmFilter = "ssm";
   config.frrFilter = "fast";
   config.ssmFilter6 = "ssm6";
   config.accessLists = { list( "ssm", "239.1.0.0/16", "239.0.0.0/8" ),
                          list( "fast", "10.1.0.0/16", "10.0.0.0/8" ),
                          list( "other", "10.2.0.0/16", "10.0.0.0/8" ),
                          list( "ssm6", "ff3e::/96", "ff3e::/32" ) };
   config.interfaces = {
      { Vantu::IntfId( "eth0" ),
        { { IpGenAddr( "192.0.2.1" ), IpGenPrefix( "192.0.2.0/24" ) },
          { IpGenAddr( "2001:db8::1" ), IpGenPrefix( "2001:db8::/64" ) } } },
      { Vantu::IntfId( "eth1" ), {} },
      { Vantu::IntfId( "eth2" ), {} } };
   config.interfaces[0].boundary = { "other", "ssm6" };
   config.interfaces[2].boundary.ipv4 = "other";
   config.rps = {
      { IpGenAddr( "192.0.2.1" ), {} },
      { IpGenAddr( "198.51.100.1" ), { IpGenPrefix( "239.2.0.0/16" ) } },
      { IpGenAddr( "2001:db8::9" ), {} } };
   return config;
}

TEST( Publishing, TheConfigurationOfAFamily ) {
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   auto published = [&]( AddressFamily family ) {
      auto tables = Published::FamilyStatus::mount(
         manager,
         Published::FamilyStatus::mountPath( family, L3::VrfName( "red" ) ),
         Brane::tableWriter );
      EXPECT_TRUE( publishConfig( *tables, family, configOfBothFamilies() ) );
      std::set<std::string> lines;
      auto enter = [&]( const auto&... parts ) {
         std::ostringstream line;
         ( line << ... << parts );
         lines.insert( line.str() );
         return true;
      };
      tables->rp().visit( [&]( const Published::Rp& rp ) {
         return enter( "rp ", rp.address, " of ", rp.key.group, '/', rp.key.length,
                       rp.own ? " own" : "" );
      } );
      tables->accessRule().visit( [&]( const Published::AccessRule& rule ) {
         return enter( rule.key.list.text(), ' ', rule.key.sequence, ' ',
                       rule.action, ' ', rule.source );
      } );
      tables->setting().visit( [&]( const Published::Setting& setting ) {
         return enter( setting.key.text(), ": ", setting.value.text() );
      } );
      return lines;
   };
   EXPECT_THAT( published( AddressFamily::ipv4 ),
                testing::ElementsAre(
                   "access-rules: 4", "assert-time: 90", "boundaries: eth0 eth2",
                   "embedded-rp: yes", "fast 10 deny 10.1.0.0/16",
                   "fast 20 permit 10.0.0.0/8", "frrFilter: fast",
                   "require-hello: no", "rp 192.0.2.1 of 224.0.0.0/4 own",
                   "rp 198.51.100.1 of 239.2.0.0/16", "ssm 10 deny 239.1.0.0/16",
                   "ssm 20 permit 239.0.0.0/8", "ssmFilter: ssm" ) );
   EXPECT_THAT( published( AddressFamily::ipv6 ),
                testing::ElementsAre(
                   "access-rules: 2", "assert-time: 90", "boundaries: eth0",
                   "embedded-rp: yes", "frrFilter: ", "require-hello: no",
                   "rp 2001:db8::9 of ff00::/8", "ssm6 10 deny ff3e::/96",
                   "ssm6 20 permit ff3e::/32", "ssmFilter: ssm6" ) );
}

}
}
