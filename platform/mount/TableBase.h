// What the mounted tables of all record types share: the mount in either role, the
// doorbell, and the way from changes to notifications. Use Table.h.
#pragma once

#include <optional>

#include "platform/mount/CollectionControl.h"
#include "platform/shm/DoorbellHub.h"
#include "platform/shm/TableFollower.h"
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

   // Records that stand; a reader's count is that of its last drain.
   uint32_t size() const;
   // 0 while nothing is attached.
   uint32_t capacity() const;
   // Does some process hold the table for writing now?
   bool writerAlive() const;
   // Records read whole whose bytes were no value of the type.
   uint64_t undecodable() const { return undecodable_; }
   // Is nothing pending in the journal? CollectionControl says what that means.
   bool quiesced() const { return quiesced_; }

   // Makes another control the mounting handle; the former one's operations do
   // nothing from now on. Its attributes are set to what is mounted. False when it is
   // the handle already. REQUIRES: not null, no table's control.
   bool controlIs( const Mox::Ptr<CollectionControl>& control );

   // What a write comes to that the table refuses with CorruptionError. Fatal: this
   // process has written where it must not; the corruption handler is told first.
   enum Corruption : uint32_t { corruptionThrown, corruptionFatal };

   // Gets the refusal's text. The default, null, traces it and sets the control's
   // problem.
   using CorruptionHandler = std::function<void( const Mox::String& text )>;
   void corruptionHandlerIs( CorruptionHandler handler ) {
      corruptionHandler_ = std::move( handler );
   }
   // Refusals that it was told of.
   uint64_t corruptions() const { return corruptions_; }

   // Tells readers of what was written since the last ring; the manager does so at
   // the end of each turn. Nothing in a reader.
   void ring();
   // Takes up what the writer has changed and notifies; the manager calls it when
   // the doorbell rings. Nothing in a writer.
   // A burst is taken up in parts: past the manager's time for one dispatch the rest
   // waits for the next turn of the loop, and what changes again meanwhile is notified
   // once. False: there is such a rest. At least one part is done.
   bool drain();
   // drain(), after those of the entity's tables that were declared before this one:
   // what a later table refers to is there first. This one waits while one of those
   // has a rest.
   void drainInOrder();

 protected:
   TableBase( MountedEntity& entity, Mox::String name, ::Brane::Layout layout,
              ::Brane::WriterOptions options, Corruption corruption );
   virtual ~TableBase();

   // A key changed; `key` is keySize bytes.
   virtual void handleKey( const void* key ) = 0;
   // The key's handleKey comes soon. Must change nothing.
   virtual void handleKeySoon( const void* key ) = 0;
   // The table came, went, or was replaced by another instance.
   virtual void handleMountStatus() = 0;
   // Are a record's bytes a value of the type, under the key that they begin with?
   virtual bool isValue( const void* record ) const = 0;

   void putRecord( const void* record );
   bool removeRecord( const void* key, void* removed );
   // Free memory of a record, zeroed; and what makes it the key's record.
   ::Brane::Reservation reserveRecord();
   void commitRecord( ::Brane::Reservation& record );
   ::Brane::Lookup lookupRecord( const void* key, void* out ) const;
   [[noreturn]] void unreadable( const char* what ) const;
   // See Table::visit.
   using RecordVisitor = std::function<bool( const void* record )>;
   using KeyHint = ::Brane::TableReader::Ahead;
   void visitRecords( const void* from, const RecordVisitor& visitor,
                      const KeyHint& ahead ) const;

   mutable uint64_t undecodable_ = 0;

 private:
   friend class CollectionControl;

   // False when it is mounted in that role already.
   bool mount( ::Brane::TableRole role, uint32_t capacity );
   void mountWriter( Corvex::EntityManager& manager, const Mox::String& path,
                     uint32_t capacity );
   void dropWhatIsNoValue( ::Brane::AttachReport& report );
   void tellAttached( const ::Brane::AttachReport& report );
   void mountReader( Corvex::EntityManager& manager, const Mox::String& path );
   bool followPart();
   bool notifyPending();
   void foretell();
   bool updateWriterAlive( bool changes );
   bool unreadable() const;
   bool timeIsUp() const;
   void drainSoon( bool atOnce );
   void updateMountStatus();
   void quiescedIs( bool quiesced );
   ::Brane::TableWriter& writable();
   template <class Call>
   auto guarded( Call call );
   void corrupted( const char* text );
   ::Brane::Lookup lookupWritten( const void* key, void* out ) const;
   const void* writtenAt( ::Brane::Position position ) const;
   void visitWritten( ::Brane::Position position, const RecordVisitor& visitor,
                      const KeyHint& ahead ) const;
   void tellDamaged( const char* text ) const;

   MountedEntity& entity_;
   Mox::String name_;
   ::Brane::Layout layout_;
   ::Brane::WriterOptions options_;
   Mox::Ptr<CollectionControl> control_;
   std::unique_ptr<::Brane::TableWriter> writer_;
   std::unique_ptr<::Brane::TableReader> reader_;
   std::unique_ptr<::Brane::TableFollower> follower_;
   ::Brane::DoorbellHub::Id bell_ = 0;
   // Changed keys in parts of which the first have been notified or foretold.
   std::vector<std::byte> pending_;
   size_t notified_ = 0;
   size_t foretold_ = 0;
   bool again_ = false;  // the last look at the journal left something busy
   bool quiesced_ = false;
   Corruption corruption_;
   CorruptionHandler corruptionHandler_;
   uint64_t corruptions_ = 0;
};

// For reflection: "<records> of <capacity> records".
PIMSM_API Mox::String valueToStrep( const TableBase& table );

}
