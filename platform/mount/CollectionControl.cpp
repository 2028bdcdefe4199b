#include "platform/mount/CollectionControl.h"

#include "platform/mount/TableBase.h"

namespace MoxBrane {

MOX_ENTITY_TYPE( CollectionControl, PIMSM_COLLECTION_CONTROL_ATTRIBUTES )

void CollectionControl::initialize( Brane::TableRole wanted, uint32_t records,
                                    bool attachSuspended ) {
   if ( table_ == nullptr ) return;
   if ( wanted != Brane::tableWriter && attachSuspended ) return;
   table_->mount( wanted, records );
   roleIs( wanted );
   capacityIs( records );
   table_->updateMountStatus();
}

}
