// An entity whose collections are shared-memory tables, created at a path by an
// entity manager.
#pragma once

#include <vector>

#include "platform/entity/Entity.h"

namespace Corvex {
class EntityManager;
}

namespace MoxBrane {

class TableBase;

class PIMSM_API MountedEntity : public Mox::Entity {
 public:
   // The mount path, "routing/pim/..."; its last component names the entity.
   const Mox::String& name() const { return name_; }

   // Null for an entity made by its factory alone, and once the manager has gone;
   // tables cannot be mounted then.
   Corvex::EntityManager* manager() const { return manager_; }

   // In order of declaration.
   const std::vector<TableBase*>& tables() const { return tables_; }

 protected:
   explicit MountedEntity( Mox::StringView name ) : name_( name ) {}
   ~MountedEntity() override;

   // An override calls this one too.
   void handleZeroReferences() override;

 private:
   friend class Corvex::EntityManager;
   friend class TableBase;

   void leaveManager();

   Mox::String name_;
   Corvex::EntityManager* manager_ = nullptr;
   std::vector<TableBase*> tables_;
};

}
