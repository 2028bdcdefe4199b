// Both programs' pictures of a host's interfaces, where more changes than a socket holds.
#include <gtest/gtest.h>

#include <fstream>

#include "apps/agent/wire/HostLinks.h"
#include "apps/mfib/Links.h"
#include "tests/netns/Namespace.h"
#include "tests/support/TempRoot.h"

namespace Netns {
namespace {

uint32_t indexOf( const Forwarding::Links& links ) {
   return links.table().index( Vantu::IntfId( "a0" ) );
}
uint32_t indexOf( const Agent::HostLinks& links ) {
   return links.table().index( "a0" );
}

// What still waits in the socket is older than what was lost.
template <class Kind>
void expectTheLastState( const Namespace& space, const std::string& changes ) {
   const Namespace::Inside inside( space );
   Mox::Loop loop;
   uint32_t told = 0;
   std::unique_ptr<Kind> links;
   links = std::make_unique<Kind>( loop, [&] { told = indexOf( *links ); } );
   const uint32_t index = indexOf( *links );
   EXPECT_NE( index, 0u );
   space.ip( "link set a0 name c0" );
   loop.dispatch();
   EXPECT_EQ( indexOf( *links ), 0u );
   space.ip( "-batch " + changes );
   space.ip( "link set c0 name a0" );
   for ( int turn = 0; turn < 1000; ++turn ) loop.dispatch();
   EXPECT_EQ( told, index );
}

TEST( Links, AreReadAnewAfterMoreChangesThanTheSocketHolds ) {
   const std::string problem = notPermitted();
   if ( !problem.empty() ) GTEST_SKIP() << problem;
   const Mox::Test::TempRoot root;
   const std::string changes = root.path() + "/changes";
   std::ofstream file( changes );
   for ( int i = 0; i < 3000; ++i )
      file << "link set c0 mtu " << 1400 + i % 2 << '\n';
   file.close();
   Namespace space;
   space.ip( "link add a0 type veth peer name b0" );
   expectTheLastState<Forwarding::Links>( space, changes );
   expectTheLastState<Agent::HostLinks>( space, changes );
}

}
}
