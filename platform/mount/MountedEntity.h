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

   // The mount path in whose directory the writer's lock and bell are, `writer.lock`
   // and `writer.bell`: the entity's own, unless it has one writer with another.
   const Mox::String& seat() const { return seat_; }

   // In order of declaration.
   const std::vector<TableBase*>& tables() const { return tables_; }

 protected:
   // `seat`: see seat().
   explicit MountedEntity( Mox::StringView name, Mox::String seat = {} )
      : name_( name ), seat_( seat.empty() ? name_ : std::move( seat ) ) {}
   ~MountedEntity() override;

   // An override calls this one too.
   void handleZeroReferences() override;

 private:
   friend class Corvex::EntityManager;
   friend class TableBase;

   void leaveManager();

   Mox::String name_;
   Mox::String seat_;
   Corvex::EntityManager* manager_ = nullptr;
   std::vector<TableBase*> tables_;
};

}
