// What an agent publishes of its configuration, for readers that judge by it.
#include "router/Publishing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/config/ConfigReader.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"

namespace Router {
namespace {

using Vantu::AddressFamily;

const char* const kConfig = R"(
vrfs:
- name: red
  require-hello: no
  assert-time: 90
  ssmFilter: ssm
  frrFilter: fast
  ssmFilter6: ssm6
  access-lists:
  - {name: ssm, rules: [{action: deny, group: 239.1.0.0/16}, {action: permit, group: 239.0.0.0/8}]}
  - {name: fast, rules: [{action: deny, source: 10.1.0.0/16}, {action: permit, source: 10.0.0.0/8}]}
  - {name: other, rules: [{action: deny, source: 10.2.0.0/16}]}
  - {name: ssm6, rules: [{action: deny, group: "ff3e::/96"}, {action: permit, group: "ff3e::/32"}]}
  interfaces:
  - {name: eth0, addresses: [192.0.2.1/24, "2001:db8::1/64"], boundary: other, boundary6: ssm6}
  - {name: eth1, addresses: [192.0.3.1/24]}
  - {name: eth2, addresses: [192.0.4.1/24], boundary: other}
  rps: [{address: 192.0.2.1}, {address: 198.51.100.1, groups: [239.2.0.0/16]}, {address: "2001:db8::9"}]
)";

TEST( Publishing, TheConfigurationOfAFamily ) {
   VrfConfig config = Agent::parseConfig( kConfig, "test" ).vrfs[0];
   config.rps[0].groups.clear();
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager{ clock, nullptr, root.path() };
   auto published = [&]( AddressFamily family ) {
      auto tables = Published::FamilyStatus::mount(
         manager,
         Published::FamilyStatus::mountPath( family, L3::VrfName( "red" ) ),
         Brane::tableWriter );
      EXPECT_TRUE( publishConfig( *tables, family, config ) );
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
