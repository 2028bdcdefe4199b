// The built library from outside, through its public headers alone. Uses of
// run-time type information across its border would fail where a symbol is hidden.

#include <gtest/gtest.h>

#include "model/StatusColl.h"
#include "platform/entity/Factory.h"
#include "tests/support/ThrowingAssertions.h"
#include "tests/support/TraceCapture.h"

namespace Routing::Pim::SparseMode {
namespace {

constexpr const char* kStatus = "Routing::Pim::SparseMode::Status";

RouteKey key( const char* source, const char* group ) {
   return { Vantu::IpGenAddr( source ), Vantu::IpGenAddr( group ) };
}

// Inline code of this program and compiled code of the library reach the same
// hooks.
struct Watcher : UpstreamInfo::NotifieeConst {
   std::vector<Mox::String> heard;
   void onRpf() override { heard.push_back( "rpf" ); }
   void onPrevRpf() override { heard.push_back( "prevRpf" ); }
};

TEST( SharedLibrary, MakesEntitiesByTypeNameAndTellsTheirTypes ) {
   Mox::Ptr<Mox::Entity> made = Mox::newEntityByType( kStatus, "red" );
   auto* status = dynamic_cast<Status*>( made.get() );
   ASSERT_NE( status, nullptr );
   EXPECT_EQ( dynamic_cast<Route*>( made.get() ), nullptr );
   EXPECT_EQ( status->vrfName(), L3::VrfName( "red" ) );
   EXPECT_EQ( &made->typeInfo(), &Status::staticTypeInfo() );
}

TEST( SharedLibrary, NotifiesObserversOfThisProgram ) {
   Mox::Ptr<Status> status = statusFactory( L3::VrfName( "red" ) );
   Mox::Ptr<Route> route = status->routeIs( key( "192.0.2.1", "233.252.0.1" ) );
   Watcher watcher;
   watcher.notifierIs( route->umh() );
   Rpf rpf;
   rpf.intfId = Vantu::IntfId( "eth0" );
   route->umh()->rpfIs( rpf );          // inline
   route->umh()->doUpdateRpf( Rpf() );  // compiled into the library
   route->attributeTextIs( "rpf", valueToStrep( rpf ) );
   EXPECT_EQ( watcher.heard,
              ( std::vector<Mox::String>{ "rpf", "prevRpf", "rpf", "rpf" } ) );
   Mox::Entity::NotifieeConst* base = &watcher;
   EXPECT_EQ( dynamic_cast<Watcher*>( base ), &watcher );
   EXPECT_EQ( dynamic_cast<Route::NotifieeConst*>( base ), nullptr );
}

// A test's own entity type in the library's registry.
#define TOWER_ATTRIBUTES( A ) A( Value, height, Height, uint32_t, 3, "m" )
class Tower : public Mox::Entity {
 public:
   MOX_ENTITY( Tower, TOWER_ATTRIBUTES )

 protected:
   ~Tower() override = default;
};
MOX_ENTITY_TYPE( Tower, TOWER_ATTRIBUTES )

TEST( SharedLibrary, TakesEntityTypesOfThisProgram ) {
   Mox::entityFactoryIs( "Tower", []( Mox::StringView ) {
      return Mox::Ptr<Mox::Entity>( Mox::newEntity<Tower>() );
   } );
   Mox::Ptr<Mox::Entity> made = Mox::newEntityByType( "Tower", "" );
   made->attributeTextIs( "height", "7" );
   EXPECT_EQ( dynamic_cast<Tower&>( *made ).height(), 7U );
}

TEST( SharedLibrary, ThrowsWhatThisProgramCatchesByType ) {
   Mox::Ptr<Status> status = statusFactory( L3::VrfName( "red" ) );
   Mox::Ptr<Route> sg = status->routeIs( key( "192.0.2.1", "233.252.0.1" ) );
   Mox::Ptr<Route> wc = status->routeIs( key( "0.0.0.0", "233.252.0.1" ) );
   const Vantu::IntfId eth1( "eth1" );
   sg->routeIntfIs( eth1, sg.get() );
   EXPECT_THROW( sg->routeIntfIs( eth1, wc.get() ), Mox::NameInUseError );
   EXPECT_THROW( Mox::newEntityByType( "Bush", "" ), Mox::NameError );
   EXPECT_THROW( Vantu::IpGenAddr( "192.0.2" ), Mox::ParseError );
   EXPECT_THROW( Intf::JoinStateInstance( 3 ), Mox::RangeError );
   EXPECT_THROW( Intf::JoinStateInstance( "gone" ), Mox::Error );
}

// The process has one registry of interface names, one trace sink and one assertion
// handler, on whichever side of the border they are used.
TEST( SharedLibrary, SharesTheProcessWideState ) {
   Mox::Test::TraceCapture traces( "Pimsm/7" );
   Mox::Ptr<Status> status = statusFactory( L3::VrfName( "red" ) );
   Mox::Ptr<Route> route = status->routeIs( key( "192.0.2.1", "233.252.0.1" ) );
   EXPECT_EQ( route->iif(), Vantu::IntfId( "Null0" ) );
   MOX_TRACE( Mox::defaultTraceFacility, 3, "from outside" );
   auto lines = traces.take();
   ASSERT_EQ( lines.size(), 2U );
   EXPECT_EQ( lines[0],
              "Pimsm 7 iif(192.0.2.1, 233.252.0.1), Flags: E, not switching, "
              "returning ''" );
   EXPECT_EQ( Mox::Test::assertionText(
                 [] { Mox::stringToValue<AssertMetric>( "[S] 10.0.0.1" ); } ),
              "matches == 4" );
}

}
}
