// The two spellings of an attribute may differ in the first letter's case alone.
#include "platform/entity/Attribute.h"

namespace Mox::Test {

#ifdef BAD
#define TOWER_ATTRIBUTES( A ) A( Value, height, Hieght, uint32_t, 0, "m" )
#else
#define TOWER_ATTRIBUTES( A ) A( Value, height, Height, uint32_t, 0, "m" )
#endif

class Tower : public Entity {
 public:
   MOX_ENTITY( Tower, TOWER_ATTRIBUTES )

 protected:
   ~Tower() override = default;
};

MOX_ENTITY_TYPE( Tower, TOWER_ATTRIBUTES )

}
