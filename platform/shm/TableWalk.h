// Visits the records of a table that is read, all at once or in parts.
//
// In the order of their writing, about: who builds something of all records so goes
// through memory once. The keys are those that stand when the walk is made, each with
// its record of the time of its visit: what stands throughout is met once, later keys
// may be missed. Memory: 4 bytes a record, some 20 while it is made. Same thread as the reader or follower, which
// outlives the walk.
#pragma once

#include <memory>
#include <vector>

#include "platform/shm/TableFollower.h"

namespace Brane {

namespace Detail {
class Instance;
class Mirror;
class ReaderTable;
}

class PIMSM_API TableWalk {
 public:
   explicit TableWalk( const TableReader& reader );
   // Of the follower's reader; it is told of each key before the visitor, as by met().
   explicit TableWalk( TableFollower& follower );
   ~TableWalk();
   TableWalk( TableWalk&& other ) noexcept;

   // Goes on until the visitor returns false; its record comes first the next time.
   // True at the end. The record's bytes are a copy that lives during the call. Damaged
   // and busy records are counted and skipped. `ahead`, when given, gets the coming keys
   // up to 32 records early, to fetch memory that the visitor will need. It is a hint:
   // the record may change or go before its turn. It must not use the reader.
   using Ahead = std::function<void( const void* key )>;
   bool advance( const TableReader::Visitor& visitor, const Ahead& ahead = {} );

 private:
   TableWalk( Detail::ReaderTable& table, Detail::Mirror* mirror );
   void fetch( size_t& words, size_t& slots ) const;
   size_t until( size_t batches ) const;
   bool visit( const TableReader::Visitor& visitor, Position position );
   bool isHere() const;
   bool advanceElsewhere( const TableReader::Visitor& visitor );

   Detail::ReaderTable& table_;
   Detail::Mirror* mirror_;  // null without a follower
   std::shared_ptr<const Detail::Instance> instance_;
   std::vector<Position> order_;
   size_t next_ = 0;
   std::vector<std::byte> record_;
};

}
