// What makes a process the one writer of some tables: a lock, and the bell by which
// their readers hear of it. Tables of one writer share it, so that many of them cost
// two descriptors; a table without one makes its own.
//
// Owner's thread only. Ends with its last owner; its files stay.
#pragma once

#include <memory>
#include <vector>

#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Brane {

class PIMSM_API WriterSeat {
 public:
   // Takes the lock `path`.lock and opens the bell `path`.bell. Throws
   // SecondWriterError, CreateError.
   explicit WriterSeat( const Mox::String& path );
   ~WriterSeat();
   WriterSeat( const WriterSeat& ) = delete;
   WriterSeat& operator=( const WriterSeat& ) = delete;

   const Mox::String& path() const;

   // Gives the bell one more name, `base`.bell, beside tables in another directory
   // of the file system. Throws CreateError.
   void addBell( const Mox::String& base );

   // False when the system refuses for now.
   bool ring() const;

   // Do all names still lead to these files?
   bool stands() const;
   // Makes the missing ones anew; throws as TableWriter::restoreFiles does.
   void restore();
   // Removes the names.
   void removeFiles();

 private:
   struct Files;
   void nameBells() const;

   std::unique_ptr<Files> files_;
};

}
