// The answers of `explain` about an interface against the agent's engine, whose
// result `routes` prints.
#include <gtest/gtest.h>

#include <random>

#include "apps/mirror/Olist.h"
#include "engine/ForwardingEngine.h"
#include "published/Publisher.h"
#include "tests/apps/mirror/Published.h"
#include "tests/support/Seed.h"

namespace Show {
namespace {

namespace Sm = Routing::Pim::SparseMode;

// The limit of groups, each with a (*,G) route and up to four (S,G) routes.
constexpr int kGroups = Mox::Test::stepsOf( 206 );
constexpr int kIntfs = 6;

std::string nameOf( int intf ) {
   return "eth" + std::to_string( intf );
}
std::string ownAddress( int intf ) {
   return "10.0." + std::to_string( intf ) + ".5";
}

// Any state that the protocol's machines may produce, and some that they may not.
class RandomModel {
 public:
   RandomModel( SmTest::Vrf vrf, uint32_t seed ) : vrf_( vrf ), random_( seed ) {
      for ( int g = 0; g < kGroups; ++g ) {
         std::string group = "239.1." + std::to_string( g ) + ".1";
         if ( g % 7 != 0 ) fill( vrf_.wc( group ).rpTree(), true );
         for ( int s = 1; s <= 4; ++s ) {
            auto sg = vrf_.sg( "192.0.2." + std::to_string( s ), group );
            sg.spTree( chance( 60 ) ).upJoined( chance( 70 ) );
            fill( sg, false );
         }
      }
   }

 private:
   bool chance( uint32_t percent ) { return random_() % 100 < percent; }

   void fill( SmTest::RouteBuilder route, bool shared ) {
      if ( chance( 90 ) )
         route.rpf( SmTest::rpfBy( nameOf( random_() % kIntfs ) ) );
      for ( int i = 0; i < kIntfs; ++i ) {
         if ( chance( 40 ) ) continue;
         auto intf = route.intf( nameOf( i ) );
         if ( chance( 40 ) ) intf.joined();
         if ( chance( 10 ) ) intf.prunePending();
         if ( !shared && chance( 25 ) ) intf.rptPruned();
         intf.include( chance( 30 ) ).exclude( !shared && chance( 20 ) );
         fillAssert( intf, ownAddress( i ), shared );
      }
   }
   void fillAssert( SmTest::IntfBuilder intf, const std::string& own,
                    bool shared ) {
      std::string tree = shared ? "[R] " : "[S] ";
      if ( chance( 15 ) ) return intf.wonAssert( tree + own + " [110/20]" ), void();
      if ( chance( 20 ) ) intf.lostAssertTo( "10.0.0.66" );
      if ( chance( 10 ) ) intf.lostAssert( tree + "10.0.0.1 [110/20]" );
   }

   SmTest::Vrf vrf_;
   std::mt19937 random_;
};

size_t marks( const Outgoing& outgoing ) {
   size_t count = outgoing.incoming ? 1 : 0;
   for ( const Olist& list : outgoing.olists ) {
      count += list.decides ? 1 : 0;
      for ( const Term& term : list.terms ) count += term.decides ? 1 : 0;
   }
   return count;
}

struct Tally {
   size_t routes = 0, intfs = 0, forwarding = 0, unknown = 0;
};

// Checks every interface of the view.
Tally expectAgreement( const Mirror& mirror, bool published ) {
   Tally tally;
   for ( const Sm::Route& route : std::as_const( *mirror.model ).route() ) {
      ++tally.routes;
      for ( const Sm::Intf& intf : route.routeIntf() ) {
         SCOPED_TRACE( testing::Message()
                       << route.key() << ' ' << intf.intfId().name() );
         const Outgoing outgoing = outgoingOf( mirror, intf );
         ++tally.intfs;
         tally.forwarding += intf.forward() ? 1 : 0;
         if ( !outgoing.forwards ) {
            ++tally.unknown;
            EXPECT_FALSE( published );
            continue;
         }
         EXPECT_EQ( *outgoing.forwards, intf.forward() );
         // The deciding term may be unknown.
         if ( published ) {
            EXPECT_EQ( marks( outgoing ), 1U );
         }
      }
   }
   return tally;
}

TEST( Outgoing, AgreesWithWhatTheAgentWroteOnEveryInterface ) {
   const unsigned seed = Mox::Test::seedOf();
   Mox::Test::TempRoot root;
   Mox::TestClock clock;
   PublishedSide side( clock, root.path() );
   SmTest::Vrf vrf = side.vrf();
   RandomModel random( vrf, seed );
   std::vector<::Published::Interface> interfaces;
   for ( int i = 0; i < kIntfs; ++i ) {
      vrf.pimIntf( nameOf( i ), ownAddress( i ), i % 2 == 0 );
      interfaces.push_back( { SmTest::intfId( nameOf( i ) ),
                              SmTest::addr( ownAddress( i ) ), 24, i % 2 == 0,
                              1 } );
   }
   Router::ForwardingEngine engine( side.model );
   while ( !engine.review( [] { return false; } ) ) continue;
   side.publish();

   // Unpublished input gives "unknown"; the answers still known are right.
   Tally blind = expectAgreement( *View( root.path() ).all().all()[0], false );
   EXPECT_EQ( blind.routes, size_t( 5 * kGroups - ( kGroups + 6 ) / 7 ) );
   EXPECT_GT( blind.unknown, blind.intfs / 50 );
   EXPECT_LT( blind.unknown, blind.intfs / 2 );

   auto agent = ::Published::FamilyStatus::mount(
      side.manager,
      ::Published::FamilyStatus::mountPath( Vantu::AddressFamily::ipv4,
                                            L3::VrfName( "default" ) ),
      ::Brane::tableWriter );
   ::Published::publishInterfaces( *agent, interfaces );
   Tally seeing = expectAgreement( *View( root.path() ).all().all()[0], true );
   EXPECT_EQ( seeing.intfs, blind.intfs );
   EXPECT_GT( seeing.forwarding, seeing.intfs / 10 );
   EXPECT_LT( seeing.forwarding, seeing.intfs * 9 / 10 );
}

}
}
