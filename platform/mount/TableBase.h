// The part of a mounted table that does not depend on its record type: the mount in
// either role, the doorbell, and turning changes into notifications. Use Table.h.
#pragma once

#include <optional>

#include "platform/mount/CollectionControl.h"
#include "platform/shm/DoorbellHub.h"
#include "platform/shm/TableCursor.h"
#include "platform/shm/TableFollower.h"
#include "platform/shm/TableWalk.h"
#include "platform/shm/TableWriter.h"

namespace Corvex {
class EntityManager;
}

namespace MoxBrane {

class MountedEntity;

class PIMSM_API TableBase {
 public:
   TableBase( const TableBase& ) = delete;
   TableBase& operator=( const TableBase& ) = delete;

   const Mox::String& name() const { return name_; }
   CollectionControl* control() const { return control_.get(); }
   bool mounted() const { return writer_ != nullptr || reader_ != nullptr; }

   // Null in the other role, and before the mount.
   ::Brane::TableWriter* writer() const { return writer_.get(); }
   ::Brane::TableReader* reader() const { return reader_.get(); }

   // Number of records; a reader's count is that of its last drain.
   uint32_t size() const;
   // 0 while nothing is attached.
   uint32_t capacity() const;
   // Does some process hold the table for writing now?
   bool writerAlive() const;
   // Number of records that were read whole but were no value of the type.
   uint64_t undecodable() const { return undecodable_; }
   // Is nothing pending in the journal? See CollectionControl.
   bool quiesced() const { return quiesced_; }

   // Makes another control the mounting handle, with its attributes set to the
   // present mount. The former control's operations do nothing from now on. Returns
   // false when it is the handle already. REQUIRES: not null, and not another
   // table's control.
   bool controlIs( const Mox::Ptr<CollectionControl>& control );

   // What happens when the table refuses a write with CorruptionError.
   // corruptionFatal: this process has written to memory where it must not; the
   // corruption handler is called first.
   enum Corruption : uint32_t { corruptionThrown, corruptionFatal };

   // Gets the refusal's text. The default, null, traces it and sets the control's
   // problem.
   using CorruptionHandler = std::function<void( const Mox::String& text )>;
   void corruptionHandlerIs( CorruptionHandler handler ) {
      corruptionHandler_ = std::move( handler );
   }
   // Number of refusals passed to the handler.
   uint64_t corruptions() const { return corruptions_; }

   // Tells readers of the changes since the last ring. The manager calls it at the
   // end of each turn. Does nothing in a reader.
   void ring();
   // Takes up the writer's changes and notifies. The manager calls it when the
   // doorbell rings. Does nothing in a writer. A burst is taken up in parts, at
   // least one. After the manager's time for one dispatch the rest waits for the
   // next turn of the loop; a key that changes again meanwhile is notified once.
   // Returns false when there is such a rest.
   bool drain();
   // Drains after the tables that the entity declared before this one: a later
   // table's records refer to theirs. Waits while one of those tables has a rest.
   void drainInOrder();
   // Drains in order if the bell can mean a change of this table.
   void handleBell( ::Brane::DoorbellHub::Ring why );

 protected:
   TableBase( MountedEntity& entity, Mox::String name,
              std::shared_ptr<const ::Brane::Layout> layout,
              ::Brane::WriterOptions options, Corruption corruption );
   virtual ~TableBase();

   // A key changed; `key` is keySize bytes, or the whole record that was told. They are
   // gone once an observer has been called.
   virtual void handleKey( const void* key, bool whole ) = 0;
   // Called before the key's handleKey. Must change nothing.
   virtual void handleKeySoon( const void* key ) = 0;
   // The table came, went, or was replaced by another instance.
   virtual void handleMountStatus() = 0;
   // Do the record's bytes decode to a value of the type under its key?
   virtual bool isValue( const void* record ) const = 0;
   // The bytes of a record with the fields' defaults.
   virtual std::vector<std::byte> freshRecord() const = 0;

   void putRecord( const void* record );
   void putRecords( std::span<::Brane::TableWriter::PutItem> items );
   bool removeRecord( const void* key, void* removed );
   // Reserves zeroed memory for a record, to be committed as its key's record.
   ::Brane::Reservation reserveRecord();
   void commitRecord( ::Brane::Reservation& record );
   ::Brane::Lookup lookupRecord( const void* key, void* out ) const;
   [[noreturn]] void unreadable( const char* what ) const;
   // The value that goes with the key being notified, until its handler returns; null:
   // none. It is the table's as long as it stands.
   const void* told() const { return told_.value; }
   void toldIs( const void* value ) { told_.value = value; }
   bool toldStands() const;
   // See Table::Walk.
   using RecordVisitor = std::function<bool( const void* record )>;
   using KeyHint = ::Brane::TableWalk::Ahead;
   class RecordWalk {
    public:
      explicit RecordWalk( const TableBase& table );
      bool advance( const RecordVisitor& visitor, const KeyHint& ahead );

    private:
      bool advanceWritten( const RecordVisitor& visitor, const KeyHint& ahead );

      const TableBase& table_;
      std::optional<::Brane::TableWalk> read_;
      std::optional<::Brane::TableCursor> written_;
      size_t next_ = 0;  // as writer
   };

   mutable uint64_t undecodable_ = 0;

 private:
   friend class CollectionControl;
   friend class ::Corvex::EntityManager;

   // As writer, and not retired?
   bool writes() const { return writer_ != nullptr && !retired_; }
   void retire();
   // Returns false when mounted in that role already.
   bool mount( ::Brane::TableRole role, uint32_t capacity );
   void mountWriter( Corvex::EntityManager& manager, const Mox::String& path,
                     uint32_t capacity );
   void dropWhatIsNoValue( ::Brane::AttachReport& report );
   void tellAttached( const ::Brane::AttachReport& report );
   void mountReader( Corvex::EntityManager& manager, const Mox::String& path );
   void keep( const ::Brane::Change& change );
   size_t pendingKeys() const { return pending_.size() / layout_->keySize; }
   bool followPart();
   bool notifyPending();
   void foretell();
   // As writerAlive(), at most one turn of the loop old.
   bool writerHeard() const;
   bool updateWriterAlive( bool changes );
   bool unreadable() const;
   bool timeIsUp() const;
   void drainSoon( bool atOnce );
   void updateMountStatus();
   void quiescedIs( bool quiesced );
   void handleWritten();
   ::Brane::TableWriter& writable();
   template <class Call>
   auto guarded( Call call );
   void corrupted( const char* text );
   ::Brane::Lookup lookupWritten( const void* key, void* out ) const;
   const void* writtenAt( const ::Brane::TableCursor& cursor,
                          ::Brane::Position position ) const;
   void tellDamaged( const char* text ) const;

   MountedEntity& entity_;
   Mox::String name_;
   std::shared_ptr<const ::Brane::Layout> layout_;
   ::Brane::WriterOptions options_;
   Mox::Ptr<CollectionControl> control_;
   std::unique_ptr<::Brane::TableWriter> writer_;
   std::unique_ptr<::Brane::TableReader> reader_;
   std::unique_ptr<::Brane::TableFollower> follower_;
   ::Brane::DoorbellHub::Id bell_ = 0;
   // Changed keys in parts. The first keys have been notified or announced.
   std::vector<std::byte> pending_;
   size_t notified_ = 0;
   size_t foretold_ = 0;
   // The records of the first of them: most observers ask for the one that they hear of.
   std::vector<::Brane::Found> found_;
   std::vector<std::byte> records_;
   struct Told {
      ::Brane::Found found = {};
      const void* value = nullptr;
   };
   Told told_;           // the one being notified
   bool again_ = false;  // the last look at the journal left something busy
   bool quiesced_ = false;
   bool retired_ = false;  // by removeTables()
   Corruption corruption_;
   CorruptionHandler corruptionHandler_;
   uint64_t corruptions_ = 0;
};

// For reflection: "<records> of <capacity> records".
PIMSM_API Mox::String valueToStrep( const TableBase& table );

}
