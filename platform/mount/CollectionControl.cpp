#include "platform/mount/CollectionControl.h"

#include "platform/mount/TableBase.h"

namespace MoxBrane {

MOX_ENTITY_TYPE( CollectionControl, PIMSM_COLLECTION_CONTROL_ATTRIBUTES )

void CollectionControl::initialize( Brane::TableRole wanted, uint32_t records,
                                    bool attachSuspended ) {
   if ( table_ == nullptr || entity() == nullptr ) return;
   if ( wanted != Brane::tableWriter && attachSuspended ) return;
   if ( !table_->mount( wanted, records ) ) return;
   // An observer of one value may release the table before the next is set.
   Mox::Pin pin( this );
   roleIs( wanted );
   capacityIs( wanted == Brane::tableWriter ? records : 0 );
   if ( table_ != nullptr ) table_->updateMountStatus();
   bool came = table_ != nullptr && mountStatus() == mountReady;
   if ( came ) table_->handleMountStatus();
}

}
