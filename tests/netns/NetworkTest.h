// Common to the tests in the test network, for each address family.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "tests/netns/Flow.h"
#include "tests/netns/Topology.h"
#include "tests/support/TempRoot.h"

namespace Netns {

class NetworkTest : public testing::TestWithParam<Vantu::AddressFamily> {
 protected:
   using IpGenAddr = Vantu::IpGenAddr;
   using Faults = Receiver::Faults;

   void SetUp() override {
      static const std::string kWhyNot = notPermitted();
      if ( !kWhyNot.empty() ) GTEST_SKIP() << kWhyNot;
      net = std::make_unique<Topology>();
   }

   bool ipv4() const { return GetParam() == Vantu::AddressFamily::ipv4; }
   IpGenAddr group( int last, bool ssm = false ) const {
      const char* const kBase[] = { "ff0e::9:", "ff3e::9:", "239.9.9.",
                                    "232.9.9." };
      return IpGenAddr( kBase[( ipv4() ? 2 : 0 ) + ( ssm ? 1 : 0 )] +
                        std::to_string( last ) );
   }
   IpGenAddr host( int link ) const {
      return Topology::hostAddress( GetParam(), link );
   }
   Receiver receiver( int link, const IpGenAddr& of,
                      const IpGenAddr& source = {} ) {
      return Receiver( net->host( link ), Topology::hostInterface( link ), of,
                       source );
   }
   Sender sender( int link, const IpGenAddr& to, int rate = 1000 ) {
      return Sender( net->host( link ), Topology::hostInterface( link ), to, rate );
   }
   // Checks that the next packets arrive.
   testing::AssertionResult flows( Receiver& receiver, const Sender& sender ) {
      uint32_t number = sender.sent() + 20;
      if ( eventually( [&] { return receiver.reached( number ); } ) )
         return testing::AssertionSuccess();
      return testing::AssertionFailure() << receiver.received().size() << " of "
                                         << sender.sent() << " packets came\n"
                                         << state();
   }
   // The entries of the router's kernel.
   std::string kernel() const {
      return net->router.ip( ipv4() ? "mroute show" : "-6 mroute show" );
   }
   // The text for a stream that fails.
   virtual std::string state() const { return kernel(); }

   Mox::Test::TempRoot root;
   std::unique_ptr<Topology> net;
};

#define INSTANTIATE_FOR_FAMILIES( Suite )                                        \
   INSTANTIATE_TEST_SUITE_P(                                                     \
      Families, Suite,                                                           \
      testing::Values( Vantu::AddressFamily::ipv4, Vantu::AddressFamily::ipv6 ), \
      []( const auto& row ) {                                                    \
         return row.param == Vantu::AddressFamily::ipv4 ? "IPv4" : "IPv6";       \
      } )

}
