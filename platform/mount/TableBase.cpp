#include "platform/mount/TableBase.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "platform/mount/EntityManager.h"
#include "platform/mount/MountedEntity.h"
#include "platform/trace/Probe.h"
#include "platform/trace/Trace.h"

MOX_TRACE_FACILITY( trace, "Pimsm::Table" )

namespace MoxBrane {
namespace {

// Changes taken up in one part: few enough for their records to stay in a cache
// until they are notified, and enough to make the clock's cost negligible.
constexpr uint32_t kPartKeys = 256;
// Keys are announced ahead in batches, so that memory can be fetched in batches.
// When fewer than this many are announced, twice as many will be.
constexpr size_t kForetoldKeys = 16;
constexpr size_t kCacheLine = 64;

bool wasReady( MountStatus status ) {
   return status == mountReady || status == mountRemoved;
}

}

TableBase::TableBase( MountedEntity& entity, Mox::String name,
                      std::shared_ptr<const ::Brane::Layout> layout,
                      ::Brane::WriterOptions options, Corruption corruption )
   : entity_( entity ),
     name_( std::move( name ) ),
     layout_( std::move( layout ) ),
     options_( std::move( options ) ),
     control_( Mox::newEntity<CollectionControl>( name_ ) ),
     corruption_( corruption ) {
   control_->table_ = this;
   control_->entity_ = &entity_;
   entity_.tables_.push_back( this );
}

TableBase::~TableBase() {
   control_->table_ = nullptr;
   control_->entity_ = nullptr;
   if ( mounted() && entity_.manager() != nullptr )
      entity_.manager()->unwatch( bell_, *this );
}

bool TableBase::mount( ::Brane::TableRole role, uint32_t capacity ) {
   if ( mounted() ) {
      if ( ( writer_ != nullptr ) == ( role == ::Brane::tableWriter ) )
         return false;
      throw ::Brane::TableError( entity_.name() + "/" + name_ +
                                 " is mounted in another role already" );
   }
   Corvex::EntityManager* manager = entity_.manager();
   MOX_ASSERT( manager != nullptr );
   Mox::String path = manager->tablePath( entity_.name(), name_ );
   if ( role == ::Brane::tableWriter ) {
      mountWriter( *manager, path, capacity );
   } else {
      mountReader( *manager, path );
   }
   quiesced_ = true;  // an attach notifies readers, and leaves nothing pending
   return true;
}

void TableBase::mountWriter( Corvex::EntityManager& manager,
                             const Mox::String& path, uint32_t capacity ) {
   manager.makeDirectories( path );
   ::Brane::WriterOptions options = options_;
   options.fresh = freshRecord();
   options.seat = manager.seatOf( entity_ );
   writer_ =
      std::make_unique<::Brane::TableWriter>( path, layout_, capacity, options );
   ::Brane::AttachReport report = writer_->attachReport();
   dropWhatIsNoValue( report );
   tellAttached( report );
   bell_ = manager.watchFiles( path, *this );
}

// Such a record has a good checksum, yet no reader can decode it. It would take
// room and keep readers at the former value for ever: nothing writes its key again.
void TableBase::dropWhatIsNoValue( ::Brane::AttachReport& report ) {
   constexpr size_t kTexts = 32;
   std::vector<std::byte> keys;
   RecordWalk( *this ).advance(
      [&]( const void* record ) {
         auto* key = static_cast<const std::byte*>( record );
         if ( !isValue( record ) )
            keys.insert( keys.end(), key, key + layout_->keySize );
         return true;
      },
      {} );
   for ( size_t at = 0; at < keys.size(); at += layout_->keySize ) {
      const std::byte* key = keys.data() + at;
      ::Brane::Position position = writer_->positionAtOrBefore( key );
      if ( !writer_->remove( key ) ) continue;
      ++report.dropped;
      --report.survivors;
      if ( report.texts.size() >= kTexts ) continue;
      // Inserted before harmless findings: the first text becomes the problem.
      report.texts.insert(
         report.texts.begin(),
         fmt::format( "{}: position {}: the record is no value of this program's",
                      writer_->path(), position ) );
   }
}

// Reports why records in the table were not simply taken over, for those who look
// for lost records.
void TableBase::tellAttached( const ::Brane::AttachReport& report ) {
   if ( report.texts.empty() ) return;
   for ( const Mox::String& text : report.texts ) MOX_TRACE( trace, 0, text );
   MOX_TRACE( trace, 0,
              writer_->path()
                 << ": " << report.status << ", " << report.survivors
                 << " records kept, " << report.dropped << " dropped" );
   bool harmless = report.status == ::Brane::attachResized && report.dropped == 0;
   if ( !harmless ) control_->problemIs( report.texts.front() );
}

void TableBase::mountReader( Corvex::EntityManager& manager,
                             const Mox::String& path ) {
   reader_ = std::make_unique<::Brane::TableReader>( path, layout_,
                                                     manager.bellBase( entity_ ) );
   // A process that mirrors the table would otherwise keep and pass on damaged
   // records.
   reader_->verifyingIs( true );
   follower_ = std::make_unique<::Brane::TableFollower>( *reader_ );
   bell_ = manager.watch( path, *this );
}

void TableBase::retire() {
   if ( writer_ == nullptr ) return;
   retired_ = true;
   writer_->removeFiles();
}

void TableBase::updateMountStatus() {
   MountStatus status = mounted() ? mountReady : notMounted;
   if ( reader_ != nullptr ) {
      switch ( reader_->state() ) {
         case ::Brane::readerAttached:
            break;
         case ::Brane::readerAbsent:
            status =
               wasReady( control_->mountStatus() ) ? mountRemoved : mountWaiting;
            break;
         case ::Brane::readerMismatch:
            status = mountMismatch;
            break;
         case ::Brane::readerDamaged:
            status = mountDamaged;
            break;
      }
      control_->problemIs( reader_->problem() );
      if ( status == mountReady && control_->mountStatus() != mountReady ) {
         MOX_PROBE( reader_attach, name_.c_str(), reader_->capacity() );
      }
   }
   control_->mountStatusIs( status );
   control_->writerAliveIs( writerHeard() );
   control_->quiescedIs( quiesced_ );
}

bool TableBase::controlIs( const Mox::Ptr<CollectionControl>& control ) {
   if ( control == control_ ) return false;
   MOX_ASSERT( control && control->table_ == nullptr );
   Mox::Ptr<CollectionControl> former = std::exchange( control_, control );
   former->table_ = nullptr;
   control->table_ = this;
   control->entityIs( std::exchange( former->entity_, nullptr ) );
   control->roleIs( former->role() );
   control->capacityIs( former->capacity() );
   updateMountStatus();
   return true;
}

void TableBase::quiescedIs( bool quiesced ) {
   quiesced_ = quiesced;
   control_->quiescedIs( quiesced );
}

// The first write since the last ring.
void TableBase::handleWritten() {
   if ( !quiesced_ ) return;
   quiescedIs( false );
   if ( entity_.manager() != nullptr ) entity_.manager()->written( *this );
}

void TableBase::corrupted( const char* text ) {
   ++corruptions_;
   if ( corruptionHandler_ ) {
      corruptionHandler_( text );
   } else {
      MOX_TRACE( trace, 0, "refused as corrupt: " << text );
      control_->problemIs( text );
   }
   MOX_ASSERT_TEXT( corruption_ != corruptionFatal,
                    "write outside the mapped region" );
}

template <class Call>
auto TableBase::guarded( Call call ) {
   try {
      return call();
   } catch ( const ::Brane::CorruptionError& e ) {
      if ( corruption_ == corruptionFatal ) corrupted( e.what() );
      throw;
   }
}

uint32_t TableBase::size() const {
   if ( writer_ != nullptr ) return writer_->size();
   return follower_ != nullptr ? follower_->size() : 0;
}

uint32_t TableBase::capacity() const {
   if ( writer_ != nullptr ) return writer_->capacity();
   return reader_ != nullptr ? reader_->capacity() : 0;
}

bool TableBase::writerAlive() const {
   return writer_ != nullptr || ( reader_ != nullptr && reader_->writerAlive() );
}

bool TableBase::writerHeard() const {
   if ( reader_ == nullptr || entity_.manager() == nullptr ) return writerAlive();
   return entity_.manager()->writerAlive( *reader_ );
}

void TableBase::ring() {
   if ( writer_ == nullptr ) return;
   writer_->ring();
   if ( !quiesced_ ) quiescedIs( true );
}

bool TableBase::drain() {
   if ( follower_ == nullptr ) return true;
   Mox::Pin pin( &entity_ );
   try {
      bool more = !notifyPending();
      while ( !more && followPart() ) more = timeIsUp();
      if ( more ) drainSoon( true );
      quiescedIs( !more && !again_ && pending_.empty() );
      return !more;
   } catch ( ... ) {
      drainSoon( true );
      throw;
   }
}

// A new writer rings once it has mounted, without a change.
void TableBase::handleBell( ::Brane::DoorbellHub::Ring why ) {
   const bool idle = !follower_->pending() && control_->writerAlive();
   if ( why == ::Brane::DoorbellHub::bellRang && idle ) return;
   drainInOrder();
}

void TableBase::drainInOrder() {
   Mox::Pin pin( &entity_ );
   for ( TableBase* table : entity_.tables() ) {
      bool done = table->drain();
      if ( table == this ) return;
      if ( !done ) return drainSoon( true );
   }
}

// An undivided difference to another instance may be all of a table: of most of it the
// keys do.
void TableBase::keep( const ::Brane::Change& change ) {
   auto* key = static_cast<const std::byte*>( change.key );
   pending_.insert( pending_.end(), key, key + layout_->keySize );
   if ( found_.size() == kPartKeys ) return;
   found_.push_back( change.found );
   auto* record = static_cast<const std::byte*>( change.record );
   if ( record != nullptr )
      records_.insert( records_.end(), record, record + layout_->recordSize );
   else
      records_.resize( found_.size() * layout_->recordSize );
}

// Takes up one part; true when there is more. The records are copied first: a handler
// may change anything, the follower's callback must not.
bool TableBase::followPart() {
   ::Brane::TableFollower::Drained result;
   try {
      result = follower_->drain(
         [&]( const ::Brane::Change& change ) { keep( change ); }, kPartKeys );
   } catch ( const ::Brane::CreateError& e ) {
      // The system refuses a descriptor or memory for now: report it and try again.
      control_->problemIs( e.what() );
      result.again = true;
   }
   again_ = result.again;
   if ( !pending_.empty() ) quiescedIs( false );
   if ( result.again ) drainSoon( false );
   bool writerChanged = updateWriterAlive( result.written + result.removed != 0 );
   if ( result.stateChanged ) updateMountStatus();
   if ( result.stateChanged || writerChanged ) handleMountStatus();
   return !notifyPending() || result.more;
}

// Has the writer gone or come back? A bell without a change may mean the writer's
// end; the hub rings once more when the lock must be free as well.
bool TableBase::updateWriterAlive( bool changes ) {
   const bool known = control_->writerAlive();
   if ( changes && known ) return false;
   control_->writerAliveIs( writerHeard() );
   return control_->writerAlive() != known;
}

bool TableBase::timeIsUp() const {
   return entity_.manager() != nullptr && entity_.manager()->timeIsUp();
}

void TableBase::drainSoon( bool atOnce ) {
   if ( entity_.manager() != nullptr )
      entity_.manager()->drainSoon( *this, atOnce );
}

void TableBase::foretell() {
   const size_t end = std::min( notified_ + 2 * kForetoldKeys, pendingKeys() );
   for ( foretold_ = std::max( foretold_, notified_ ); foretold_ < end; )
      handleKeySoon( pending_.data() + foretold_++ * layout_->keySize );
}

// Does another program's table, or a damaged one, stand there now?
bool TableBase::unreadable() const {
   return reader_->state() == ::Brane::readerMismatch ||
          reader_->state() == ::Brane::readerDamaged;
}

// Pending keys wait here while their table cannot be read: the follower reported
// them once and does not repeat them. Returns false when the time ran out before
// all were notified. A handler may drain or throw, so members keep the position and
// nothing is notified twice.
bool TableBase::notifyPending() {
   struct Restore {
      explicit Restore( Told& told ) : told_( told ), outer_( told ) {}
      ~Restore() { told_ = outer_; }
      Told& told_;
      const Told outer_;
   } restore( told_ );
   for ( size_t count = 1; notified_ < pendingKeys(); ++count ) {
      if ( unreadable() ) return true;
      if ( foretold_ < notified_ + kForetoldKeys ) foretell();
      const size_t at = notified_++;
      const bool whole = at < found_.size() && found_[at].word;
      told_ = {};
      if ( whole ) told_.found = found_[at];
      handleKey( whole ? records_.data() + at * layout_->recordSize
                       : pending_.data() + at * layout_->keySize,
                 whole );
      bool look = count % kPartKeys == 0 && notified_ < pendingKeys();
      if ( look && timeIsUp() ) return false;
   }
   pending_.clear();
   found_.clear();
   records_.clear();
   notified_ = foretold_ = 0;
   return true;
}

::Brane::TableWriter& TableBase::writable() {
   if ( writer_ != nullptr ) return *writer_;
   throw ::Brane::ReadOnlyError( entity_.name() + "/" + name_ +
                                 " is not mounted for writing" );
}

void TableBase::putRecord( const void* record ) {
   guarded( [&] { return writable().put( record ); } );
   handleWritten();
}

// Some may be written when a later one is refused.
void TableBase::putRecords( std::span<::Brane::TableWriter::PutItem> items ) {
   ::Brane::TableWriter& writer = writable();
   handleWritten();
   guarded( [&] { writer.put( items ); } );
}

bool TableBase::removeRecord( const void* key, void* removed ) {
   if ( !guarded( [&] { return writable().remove( key, removed ); } ) )
      return false;
   handleWritten();
   return true;
}

::Brane::Reservation TableBase::reserveRecord() {
   ::Brane::Reservation reserved = writable().reserve();
   std::memset( reserved.record(), 0, layout_->recordSize );
   return reserved;
}

void TableBase::commitRecord( ::Brane::Reservation& record ) {
   guarded( [&] { return record.commit(); } );
   handleWritten();
}

bool TableBase::toldStands() const {
   return follower_ != nullptr && follower_->stands( told_.found );
}

::Brane::Lookup TableBase::lookupRecord( const void* key, void* out ) const {
   if ( writer_ != nullptr ) return lookupWritten( key, out );
   if ( reader_ == nullptr ) return ::Brane::lookupAbsent;
   ::Brane::Position position = ::Brane::noPosition;
   ::Brane::Lookup result = reader_->lookup( key, out, &position );
   if ( result == ::Brane::lookupFound ) follower_->met( position, key );
   return result;
}

void TableBase::unreadable( const char* what ) const {
   throw ::Brane::UnreadableError( entity_.name() + "/" + name_ + ": a record " +
                                   what );
}

// A look-up changes nothing: damage is reported, and is fatal only for writes.
::Brane::Lookup TableBase::lookupWritten( const void* key, void* out ) const {
   try {
      const void* record = writer_->find( key );
      if ( record == nullptr ) return ::Brane::lookupAbsent;
      std::memcpy( out, record, layout_->recordSize );
      return ::Brane::lookupFound;
   } catch ( const ::Brane::CorruptionError& e ) {
      tellDamaged( e.what() );
      return ::Brane::lookupDamaged;
   }
}

// Null when no readable record stands there.
const void* TableBase::writtenAt( const ::Brane::TableCursor& cursor,
                                  ::Brane::Position position ) const {
   try {
      return cursor.at( position );
   } catch ( const ::Brane::CorruptionError& e ) {
      tellDamaged( e.what() );
      return nullptr;
   }
}

void TableBase::tellDamaged( const char* text ) const {
   if ( control_->problem() == text ) return;
   MOX_TRACE( trace, 0, "damaged: " << text );
   control_->problemIs( text );
}

TableBase::RecordWalk::RecordWalk( const TableBase& table ) : table_( table ) {
   if ( table.follower_ != nullptr ) read_.emplace( *table.follower_ );
   if ( table.writer_ != nullptr ) written_.emplace( *table.writer_ );
}

bool TableBase::RecordWalk::advance( const RecordVisitor& visitor,
                                     const KeyHint& ahead ) {
   if ( written_ ) return advanceWritten( visitor, ahead );
   if ( !read_ ) return true;
   return read_->advance(
      [&]( ::Brane::Position, const void* record ) { return visitor( record ); },
      ahead );
}

// Records are fetched two batches ahead of their visit, and the keys of the nearer
// batch announced. A record removed meanwhile is skipped in its turn.
bool TableBase::RecordWalk::advanceWritten( const RecordVisitor& visitor,
                                            const KeyHint& ahead ) {
   const std::vector<::Brane::Position>& positions = written_->positions();
   auto at = [&]( size_t i ) {
      return table_.writtenAt( *written_, positions[i] );
   };
   auto until = [&]( size_t batches ) {
      return std::min( next_ + batches * kForetoldKeys, positions.size() );
   };
   size_t fetched = next_, told = next_;
   for ( ; next_ < positions.size(); ++next_ ) {
      if ( told < until( 1 ) ) {
         for ( ; fetched < until( 3 ); ++fetched ) {
            auto* record = static_cast<const std::byte*>( at( fetched ) );
            if ( record == nullptr ) continue;
            for ( size_t i = 0; i < table_.layout_->recordSize; i += kCacheLine )
               __builtin_prefetch( record + i );
         }
         for ( ; told < until( 2 ); ++told ) {
            const void* record = ahead ? at( told ) : nullptr;
            if ( record != nullptr ) ahead( record );
         }
      }
      const void* record = at( next_ );
      if ( record != nullptr && !visitor( record ) ) return false;
   }
   return true;
}

Mox::String valueToStrep( const TableBase& table ) {
   return Mox::valueToStrep( table.size() ) + " of " +
          Mox::valueToStrep( table.capacity() ) + " records";
}

}
