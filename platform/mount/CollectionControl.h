// The mounting handle of one shared-memory table of an entity. It mounts the table
// in a role and reports the result.
//
// Made by the table. While held it outlives the table; its operations then do
// nothing. Event-loop thread only.
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

// `writerAlive`: a reader learns by the doorbell when the writer has gone or is
// back. Observers get the entity's whole-collection notification, not one a key.
// mountRemoved reports a table that is removed, as when its VRF goes.
//
// `problem`: a writer reports why records in the table were not all taken over as
// they were (another boot, another layout, damage), why a write was refused, or
// what corruption a look-up met.
//
// `quiesced`: the journal of changes holds nothing pending for this table. A writer
// has told its readers of all that it wrote; a reader has notified every change
// that its last look at the journal found. False until mounted.
class PIMSM_API CollectionControl : public Mox::Entity {
 public:
   MOX_ENTITY( CollectionControl, PIMSM_COLLECTION_CONTROL_ATTRIBUTES )

   // A control of no table yet, for the entity's mutator of the control.
   explicit CollectionControl( Mox::String name ) : name_( std::move( name ) ) {}

   // Mounts the table for the role. A writer creates it, or takes it over, with the
   // given capacity (records); a reader's capacity is 0, and it attaches when the
   // table is there. `attachSuspended` is the entity manager's flag of that name. Does
   // nothing when mounted in the same role, or when the entity is null. Throws
   // TableError when mounted in another role. Passes on what TableWriter's
   // constructor throws; nothing is mounted then. REQUIRES: the entity was created
   // by an entity manager.
   void initialize( Brane::TableRole role, uint32_t capacity,
                    bool attachSuspended );

 protected:
   ~CollectionControl() override = default;

 private:
   friend class TableBase;
   TableBase* table_ = nullptr;  // null: the table has gone, or another control
};

}
