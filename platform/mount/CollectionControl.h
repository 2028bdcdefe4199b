// The mounting handle of one shared-memory table of an entity: through it the table
// is initialised for a role, and it tells how that went.
//
// Made by the table and outlives it while held; then its operations do nothing.
// Event-loop thread only.
#pragma once

#include "platform/entity/Attribute.h"
#include "platform/mount/TableRole.h"

namespace MoxBrane {

class MountedEntity;
class TableBase;

#define PIMSM_MOUNT_STATUSES( V )                                          \
   V( notMounted )                                                         \
   V( mountWaiting ) /* reader: no table there yet */                      \
   V( mountRemoved ) /* reader: its table was removed; none there */       \
   V( mountReady )                                                         \
   V( mountMismatch ) /* reader: a table of another record; see problem */ \
   V( mountDamaged )  /* reader: no usable table; see problem */
MOX_ENUM( MountStatus, PIMSM_MOUNT_STATUSES )
MOX_ENUM_TEXT( MountStatus, PIMSM_MOUNT_STATUSES )

// clang-format off
#define PIMSM_COLLECTION_CONTROL_ATTRIBUTES( A ) \
   A( Fixed, name,        Name,        Mox::String,      ,            "the table's name in its entity" ) \
   A( Value, role,        Role,        Brane::TableRole, Brane::tableReader, "what it was initialised for" ) \
   A( Value, capacity,    Capacity,    uint32_t,         0,           "asked for by the writer; 0 for a reader" ) \
   A( Value, mountStatus, MountStatus, MoxBrane::MountStatus, notMounted, "" ) \
   A( Value, writerAlive, WriterAlive, bool,             false,       "a process holds the table for writing" ) \
   A( Value, problem,     Problem,     Mox::String,      {},          "one line; empty: none" ) \
   A( Value, quiesced,    Quiesced,    bool,             false,       "mounted, and nothing pending: below" ) \
   A( Value, entity,      Entity,      MoxBrane::MountedEntity*, nullptr, "whose table it is; plain; null: gone" )
// clang-format on

// `writerAlive`: a reader hears by the doorbell when the writer has gone and when one is
// back, and gets the entity's whole-collection notification; no key is notified for it.
// A table that is removed, as when its VRF goes, is told by mountRemoved.
//
// `problem`: in a writer why records that stood in the table were not all taken up as
// they were (another boot, another layout, damage), what a write was refused for, or
// what a look-up met that cannot be.
//
// `quiesced`: nothing is pending in the journal of changes for this table. A writer has
// told its readers of all that it wrote; a reader has notified all that its last look at
// the journal found. False until mounted.
class PIMSM_API CollectionControl : public Mox::Entity {
 public:
   MOX_ENTITY( CollectionControl, PIMSM_COLLECTION_CONTROL_ATTRIBUTES )

   // Of no table: one to be given to the entity's mutator for the control.
   explicit CollectionControl( Mox::String name ) : name_( std::move( name ) ) {}

   // Mounts the table for the role. A writer creates it, or takes it over, with the
   // given capacity (records); a reader passes 0 and attaches when the table is
   // there. `attachSuspended` is the entity manager's flag of that name. Again with
   // the same role: nothing. With another: throws TableError. A writer gets what
   // TableWriter's constructor throws; nothing is mounted then. Nothing either once the
   // entity is null. REQUIRES: the entity was created by an entity manager.
   void initialize( Brane::TableRole role, uint32_t capacity,
                    bool attachSuspended );

 protected:
   ~CollectionControl() override = default;

 private:
   friend class TableBase;
   TableBase* table_ = nullptr;  // null once it has gone, or has another control
};

}
