#include "tests/platform/mount/Shelf.h"

#include "platform/entity/Factory.h"

namespace MoxBrane::Test {

MOX_ENTITY_TYPE( Shelf, TEST_SHELF_ATTRIBUTES )
MOX_ENTITY_TYPE( Drawer, TEST_SHELF_ATTRIBUTES )

MOX_FACTORY( Shelf,
             []( Mox::StringView name ) { return Mox::newEntity<Shelf>( name ); } )
MOX_FACTORY( Drawer,
             []( Mox::StringView name ) { return Mox::newEntity<Drawer>( name ); } )

}
