// What must not compile: each BAD is one mistake, and stands beside what is right. The
// patterns of their errors are in CMakeLists.txt.
#include "assembly/VrfMirror.h"
#include "model/Status.h"
#include "model/UpstreamInfo.h"
#include "published/Status.h"

#ifndef BAD
#define BAD 0
#endif

// The two spellings of an attribute may differ in the first letter's case alone. One that reacts
// needs its class's handleHeight().
namespace Mox::Test {

#if BAD == 1
#define TOWER_ATTRIBUTES( A ) A( Reacting, height, Hieght, uint32_t, 0, "m" )
#else
#define TOWER_ATTRIBUTES( A ) A( Reacting, height, Height, uint32_t, 0, "m" )
#endif

class Tower : public Entity {
 public:
   MOX_ENTITY( Tower, TOWER_ATTRIBUTES )

#if BAD != 2
 private:
   void handleHeight() {}
   void handleHieght() {}
#endif
 protected:
   ~Tower() override = default;
};

MOX_ENTITY_TYPE( Tower, TOWER_ATTRIBUTES )

}

namespace Routing::Pim::SparseMode::Test {

// A hook of an unknown attribute, or with other arguments, overrides nothing.
struct Watcher : Route::NotifieeConst {
   using NotifieeConst::onRouteIntf;
   void onUpJoinState() override {}
   void onRouteIntf( const Vantu::IntfId& ) override {}
#if BAD == 3
   void onJoinState() override {}
#elif BAD == 4
   void onRouteIntf( int ) override {}
#endif
};

void use( Status& status, Route& route, Watcher& watcher, Mox::Ptr<Route> held,
          VrfMirror::Observer& observer, Published::FamilyStatus& tables ) {
   const RouteKey key = route.key();
   const Vantu::IntfId intf( "eth0" );
   watcher.notifierIs( &route );
   observer.writer = []( bool ) {};
   observer.writer = nullptr;
   upstreamInfoFactory()->doUpdateRpf( Rpf() );
   route.changeFlagsInPlace().rpChangedIs( true );
   status.pimStatus()->intf( intf );
   route.rpTreeIs( route.wildCard() );
   route.umhIs()->rpfIs( Rpf() );
   status.pimStatusIs( nullptr );
   route.routeIntfIs( intf );
   tables.interfaceIs( Published::Interface() );
   status.maxRoutesIs( 7 );
   status.routeIs( key );
// An observer watches entities of its own type, by plain pointers.
#if BAD == 5
   watcher.notifierIs( &status );
#elif BAD == 6
   watcher.notifierIs( held );
// A hook takes only functions with its signature.
#elif BAD == 7
   observer.writer = []( const Mox::String& ) {};
#elif BAD == 8
   observer.route = []( const RouteKey& ) {};
// A mutator takes values, keys and records of its attribute's type, though the language would
// convert others.
#elif BAD == 9
   route.rpTreeIs( "yes" );
#elif BAD == 10
   status.maxRoutesIs( 7.5 );
#elif BAD == 11
   route.umhIs()->rpfIs( Vantu::IpGenAddr( "192.0.2.1" ) );
#elif BAD == 12
   status.pimStatusIs( Mox::Ptr<const Status>( &status ) );
#elif BAD == 13
   route.routeIntfIs( "eth0" );
#elif BAD == 14
   tables.interfaceIs( Published::Neighbor() );
// The first counted reference to an entity on the stack would also be its last.
#elif BAD == 15
   UpstreamInfo upstream;
// A reader returns a copy: a flag set in it would be lost.
#elif BAD == 16
   route.changeFlags().rpChangedIs( true );
// A status sees its PIM interfaces read-only.
#elif BAD == 17
   status.pimStatus()->intfIs( intf );
// A constructor argument has no mutator. Only its owner adds to a collection.
#elif BAD == 18
   status.vrfNameIs( L3::VrfName( "red" ) );
#elif BAD == 19
   status.routeAdd( new Route( key, nullptr ) );
#endif
   (void)held;
}

}
