// Visits a written table during which it may grow: records that stand throughout are
// met once. Positions are those of the instance that stands when the cursor is made;
// it stays mapped meanwhile. Same thread as the writer, which outlives the cursor.
#pragma once

#include <memory>

#include "platform/shm/TableWriter.h"

namespace Brane {

class PIMSM_API TableCursor {
 public:
   explicit TableCursor( const TableWriter& writer );
   ~TableCursor();

   // As in TableWriter.
   Position next( Position after = noPosition ) const;
   // The present record of the key that stood there; null when it has gone. Valid
   // until the next put, reserve or remove of any key. Throws CorruptionError.
   const void* at( Position position ) const;

 private:
   struct Instance;

   const TableWriter& writer_;
   std::unique_ptr<Instance> instance_;
};

}
