#include "platform/mount/MountedEntity.h"

#include "platform/mount/EntityManager.h"

namespace MoxBrane {

MountedEntity::~MountedEntity() {
   leaveManager();
}

void MountedEntity::handleZeroReferences() {
   // An empty shell that is still held must not be handed out again.
   if ( manager_ != nullptr ) manager_->entities_.erase( name_ );
}

void MountedEntity::leaveManager() {
   if ( manager_ == nullptr ) return;
   auto found = manager_->entities_.find( name_ );
   if ( found != manager_->entities_.end() && found->second == this ) {
      manager_->entities_.erase( found );
   }
}

}
