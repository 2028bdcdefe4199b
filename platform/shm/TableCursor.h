// Visits a written table during which it may grow: records that stand throughout are
// met once, in the order of their writing, about. Positions are those of the instance
// that stands when the cursor is made; it stays mapped meanwhile. Memory: 4 bytes a
// record, some 20 while it is made. Same thread as the writer, which outlives the cursor.
#pragma once

#include <memory>
#include <vector>

#include "platform/shm/TableWriter.h"

namespace Brane {

class PIMSM_API TableCursor {
 public:
   explicit TableCursor( const TableWriter& writer );
   ~TableCursor();
   TableCursor( TableCursor&& other ) noexcept;

   // What stood when the cursor was made.
   const std::vector<Position>& positions() const { return positions_; }
   // The present record of the key that stood there; null when it has gone. Valid
   // until the next put, reserve or remove of any key. Throws CorruptionError.
   const void* at( Position position ) const;

 private:
   struct Instance;

   const TableWriter& writer_;
   std::unique_ptr<Instance> instance_;
   std::vector<Position> positions_;
};

}
