#include "model/Source.h"

#include "platform/entity/Factory.h"

namespace Routing::Pim::SparseMode {

MOX_ENTITY_TYPE( Source, PIMSM_SOURCE_ATTRIBUTES )

MOX_FACTORY( Source, []( Mox::StringView address ) {
   return sourceFactory( Mox::stringToValue<Vantu::IpGenAddr>( address ) );
} )

Mox::Ptr<Source> sourceFactory( const Vantu::IpGenAddr& sourceAddr ) {
   return Mox::newEntity<Source>( sourceAddr );
}

}
