// An attribute that reacts needs its class's handleHeight().
#include "platform/entity/Attribute.h"

namespace Mox::Test {

#define TOWER_ATTRIBUTES( A ) \
   A( Reacting, height, Height, uint32_t, 0, "m; capped" )

class Tower : public Entity {
 public:
   MOX_ENTITY( Tower, TOWER_ATTRIBUTES )

#ifndef BAD
 private:
   void handleHeight() {
      heightIs( height() < 9 ? height() : 9 );
   }
#endif
 protected:
   ~Tower() override = default;
};

MOX_ENTITY_TYPE( Tower, TOWER_ATTRIBUTES )

}
