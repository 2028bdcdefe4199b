#include "tests/platform/entity/Fixture.h"

#include "platform/entity/Factory.h"

namespace Mox::Test {

MOX_ENTITY_TYPE( Leaf, TEST_LEAF_ATTRIBUTES )
MOX_ENTITY_TYPE( Tree, TEST_TREE_ATTRIBUTES )

MOX_FACTORY( Tree,
             []( StringView name ) { return newEntity<Tree>( String( name ) ); } )

}
