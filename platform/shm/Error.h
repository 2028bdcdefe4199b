// The failures of shared-memory tables, one type each.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "platform/base/Error.h"

namespace Brane {

// A table refused or could not perform an operation; nothing was changed.
class PIMSM_API TableError : public Mox::Error {
 public:
   using Error::Error;
};

// A write into a table that is mounted for reading.
class PIMSM_API ReadOnlyError : public TableError {
 public:
   using TableError::TableError;
};

// There is no room for a record of this key now. Other keys may fit, and room may
// come when records go. Replacing stays possible.
class PIMSM_API NoRoomError : public TableError {
 public:
   using TableError::TableError;
};

// The table holds its capacity of records.
class PIMSM_API TableFullError : public NoRoomError {
 public:
   using NoRoomError::NoRoomError;
};

// The table has to grow, and the system has no space for that now.
class PIMSM_API NoSpaceError : public NoRoomError {
 public:
   using NoRoomError::NoRoomError;
};

// So many keys share this key's index lines that a reader would not find it.
class PIMSM_API ProbeLimitError : public NoRoomError {
 public:
   using NoRoomError::NoRoomError;
};

// The table's content is impossible; the text names table, position and slot.
class PIMSM_API CorruptionError : public TableError {
 public:
   using TableError::TableError;
};

// A record stands but cannot be read whole: it was rewritten faster than it could
// be copied, or it is damaged; the text says which.
class PIMSM_API UnreadableError : public TableError {
 public:
   using TableError::TableError;
};

// The directory, the permissions or the free space prevent making or mapping the
// table's files. The text holds the path and the system's reason.
class PIMSM_API CreateError : public TableError {
 public:
   using TableError::TableError;
};

// Another process, or another writer in this process, holds the table.
class PIMSM_API SecondWriterError : public TableError {
 public:
   SecondWriterError( const Mox::String& text, pid_t pid )
      : TableError( text ), pid_( pid ) {}
   // The first writer's process id; 0 while it has not written it yet.
   pid_t pid() const { return pid_; }

 private:
   pid_t pid_;
};

// A file's header does not fit; the text holds both values.
class PIMSM_API LayoutError : public TableError {
 public:
   enum Mismatch : uint32_t {
      tooShort,       // no room for a header, or less than the header promises
      magic,          // not a table at all
      formatVersion,  // made by another version of this library
      byteOrder,      // made on a machine of the other byte order
      notReady,       // its maker died before it was complete
      checksum,       // the header itself is damaged
      geometry,       // sizes that contradict each other
      keySize,
      recordSize,
      fingerprint,  // same sizes, other fields
   };

   LayoutError( Mismatch mismatch, const Mox::String& text )
      : TableError( text ), mismatch_( mismatch ) {}
   Mismatch mismatch() const { return mismatch_; }
   // Is it a sound table of another record type, rather than a broken file?
   bool otherRecord() const { return mismatch_ >= keySize; }

 private:
   Mismatch mismatch_;
};

}
