// What a writer found when it opened its table, for the caller to print.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/base/Enum.h"
#include "platform/base/String.h"

namespace Brane {

#define PIMSM_ATTACH_STATUSES( V )                                         \
   V( attachCreated )   /* there was no table */                           \
   V( attachReused )    /* same layout, capacity and boot: in place */     \
   V( attachResized )   /* another capacity: a new instance, all copied */ \
   V( attachConverted ) /* another layout: fields known to both copied */  \
   V( attachOtherKey )  /* another key: starts empty */                    \
   V( attachOtherBoot ) /* from before a reboot: starts empty */           \
   V( attachDamaged )   /* an unusable header: starts empty */
MOX_ENUM( AttachStatus, PIMSM_ATTACH_STATUSES )
MOX_ENUM_TEXT( AttachStatus, PIMSM_ATTACH_STATUSES )

struct AttachReport {
   AttachStatus status = attachCreated;
   uint32_t survivors = 0;    // records found whole and kept
   uint32_t dropped = 0;      // records found damaged, or beyond the index's reach
   uint32_t completed = 0;    // changes that a dying writer left half done
   uint32_t repaired = 0;     // index words and counts put right
   bool resequenced = false;  // the journal's head was damaged and moved on
   std::vector<Mox::String> texts;  // one line a finding, at most 32
};

}
