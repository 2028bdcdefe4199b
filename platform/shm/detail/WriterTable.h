// The writer's side of a table: the mapping and the writer's own state.
#pragma once

#include <memory>
#include <span>
#include <thread>
#include <vector>

#include "platform/shm/TableFiles.h"
#include "platform/shm/TableWriter.h"
#include "platform/shm/detail/FreeSlots.h"
#include "platform/shm/detail/Mapping.h"
#include "platform/shm/detail/Order.h"

namespace Brane::Detail {

class Growth;
class Survey;

class WriterTable {
 public:
   WriterTable( const Mox::String& path, std::shared_ptr<const Layout> layout,
                uint32_t capacity, const WriterOptions& options );
   ~WriterTable();

   Position put( const void* record, Position hint );
   void put( std::span<TableWriter::PutItem> items );
   uint32_t reserve();
   Position commit( uint32_t slot, const void* record, Position hint );
   void abandon( uint32_t slot, const void* record );
   bool remove( const void* key, void* removed, Position hint );

   const void* find( const void* key, Position hint ) const;
   const void* at( Position position ) const;
   Position next( Position after ) const;
   Position positionAtOrBefore( const void* key ) const;

   void ring();
   bool filesStand() const;
   void restoreFiles();
   void removeFiles();
   Sweep verify() const;

   const WriterView& view() const { return view_; }
   const Layout& layout() const { return *layout_; }
   const Mox::String& path() const { return files_.table; }
   uint64_t instanceId() const { return instanceId_; }
   uint32_t limit() const { return limit_; }
   const std::shared_ptr<Mapping>& mapping() const { return mapping_; }
   uint64_t sequence() const { return sequence_; }
   uint32_t size() const { return size_; }
   const AttachReport& report() const { return report_; }

 private:
   friend class TableMaker;

   uint64_t hashOf( const void* key ) const;
   Place locate( const void* key, uint64_t hash, Position hint ) const;
   bool standsAt( const void* key, uint64_t hash, Position position ) const;
   Place probe( const void* key, uint64_t hash ) const;
   bool holdsKey( Position position, uint64_t word, const void* key ) const;
   uint32_t checkedSlot( Position position, uint64_t word ) const;
   [[noreturn]] void corrupted( Position position, uint32_t slot,
                                const char* what ) const;
   [[noreturn]] void noPlace( bool full ) const;
   void decideWhenToGrow();
   void makeRoom( const void* key, uint64_t hash, Position hint );
   bool mustGrow( const void* key, uint64_t hash, Position hint ) const;
   void growAhead();
   void grow();
   void finishGrowth();
   void giveGrowthUp();
   void releaseAside( std::shared_ptr<Mapping> mapping );
   template <class Change>
   void repeat( const Change& change );
   void rest();
   void map();
   void markRetired();
   Place placeFor( const void* key, uint64_t hash, Position hint ) const;
   Position putHashed( const void* record, uint64_t hash, Position hint );
   bool sharesSeat() const { return seat_->path() != path(); }
   void copyToNewFile();
   void release( uint32_t slot );
   void unreserve( uint32_t slot );
   std::vector<bool> liveSlots() const;
   void finish( const WriterView& view, const Place& place, const void* record,
                const RecordIdentity& identity );
   uint64_t hashAhead( const void* key, Position hint ) const;
   void fetchSlot( uint64_t hash, Position hint ) const;

   TableFiles files_;
   std::shared_ptr<const Layout> layout_;
   bool zeroKey_ = false;
   uint32_t growsAheadFrom_ = 0;
   std::shared_ptr<WriterSeat> seat_;
   FileId file_;  // the mapping keeps it
   // Null while nothing has been put: the view is on zeroes then, an empty index.
   std::shared_ptr<Mapping> mapping_;
   // Of former instances in which records are reserved.
   std::vector<std::shared_ptr<Mapping>> former_;
   WriterView view_;
   uint64_t instanceId_ = 0;
   uint64_t sequence_ = 0;  // sequence of the last change
   uint64_t rung_ = 0;      // sequence of the last ring
   bool filesRemoved_ = false;
   uint32_t limit_ = 0;
   uint32_t size_ = 0;
   uint32_t growAt_ = 0;  // with that many records it grows, or begins to
   std::vector<uint32_t> reserved_;  // slots, noSlot for one of a former instance
   FreeSlots free_;
   std::unique_ptr<Growth> growth_;  // null while none is under way
   std::jthread release_;            // of the instance before the last growth
   AttachReport report_;
};

}
