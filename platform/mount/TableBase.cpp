#include "platform/mount/TableBase.h"

#include <cstring>

#include "platform/mount/EntityManager.h"
#include "platform/mount/MountedEntity.h"

namespace MoxBrane {

TableBase::TableBase( MountedEntity& entity, Mox::String name,
                      ::Brane::Layout layout, ::Brane::WriterOptions options )
   : entity_( entity ),
     name_( std::move( name ) ),
     layout_( std::move( layout ) ),
     options_( std::move( options ) ),
     control_( Mox::newEntity<CollectionControl>( name_, this ) ) {
   entity_.tables_.push_back( this );
}

TableBase::~TableBase() {
   control_->table_ = nullptr;
   if ( reader_ != nullptr && entity_.manager() != nullptr ) {
      entity_.manager()->unwatch( bell_, *this );
   }
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
   return true;
}

void TableBase::mountWriter( Corvex::EntityManager& manager,
                             const Mox::String& path, uint32_t capacity ) {
   manager.makeDirectories( path );
   writer_ =
      std::make_unique<::Brane::TableWriter>( path, layout_, capacity, options_ );
}

void TableBase::mountReader( Corvex::EntityManager& manager,
                             const Mox::String& path ) {
   reader_ = std::make_unique<::Brane::TableReader>( path, layout_ );
   follower_ = std::make_unique<::Brane::TableFollower>( *reader_ );
   bell_ = manager.watch( path, *this );
}

void TableBase::updateMountStatus() {
   MountStatus status = mounted() ? mountReady : notMounted;
   if ( reader_ != nullptr ) {
      switch ( reader_->state() ) {
         case ::Brane::readerAttached:
            break;
         case ::Brane::readerAbsent:
            status = mountWaiting;
            break;
         case ::Brane::readerMismatch:
            status = mountMismatch;
            break;
         case ::Brane::readerDamaged:
            status = mountDamaged;
            break;
      }
      control_->problemIs( reader_->problem() );
   }
   control_->mountStatusIs( status );
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

void TableBase::ring() {
   if ( writer_ != nullptr ) writer_->ring();
}

// The keys are copied first: a handler may do anything, the follower's callback not.
// Those that a throwing handler leaves over are notified by the next drain.
void TableBase::drain() {
   if ( follower_ == nullptr ) return;
   Mox::Ptr<const MountedEntity> pin( &entity_ );
   ::Brane::TableFollower::Drained result;
   try {
      result = follower_->drain( [&]( const ::Brane::Change& change ) {
         auto* key = static_cast<const std::byte*>( change.key );
         pending_.insert( pending_.end(), key, key + layout_.keySize );
      } );
   } catch ( const ::Brane::CreateError& e ) {
      // The system refuses a descriptor or memory just now: say so, try again.
      control_->problemIs( e.what() );
      result.again = true;
   }
   if ( result.again ) drainSoon();
   if ( result.stateChanged ) {
      updateMountStatus();
      handleMountStatus();
   }
   notifyPending();
}

void TableBase::drainSoon() {
   if ( entity_.manager() != nullptr ) entity_.manager()->drainSoon( *this );
}

void TableBase::notifyPending() {
   std::vector<std::byte> keys = std::exchange( pending_, {} );
   size_t at = 0;
   try {
      while ( at < keys.size() ) {
         at += layout_.keySize;
         handleKey( keys.data() + at - layout_.keySize );
      }
   } catch ( ... ) {
      pending_.insert( pending_.begin(),
                       keys.begin() + static_cast<ptrdiff_t>( at ), keys.end() );
      drainSoon();
      throw;
   }
}

void TableBase::putRecord( const void* record ) {
   if ( writer_ == nullptr ) {
      throw ::Brane::ReadOnlyError( entity_.name() + "/" + name_ +
                                    " is not mounted for writing" );
   }
   writer_->put( record );
}

bool TableBase::removeRecord( const void* key, void* removed ) {
   if ( writer_ == nullptr ) {
      throw ::Brane::ReadOnlyError( entity_.name() + "/" + name_ +
                                    " is not mounted for writing" );
   }
   return writer_->remove( key, removed );
}

::Brane::Lookup TableBase::lookupRecord( const void* key, void* out ) const {
   if ( writer_ != nullptr ) {
      const void* record = writer_->find( key );
      if ( record == nullptr ) return ::Brane::lookupAbsent;
      std::memcpy( out, record, layout_.recordSize );
      return ::Brane::lookupFound;
   }
   return reader_ != nullptr ? reader_->lookup( key, out ) : ::Brane::lookupAbsent;
}

void TableBase::visitRecords( const void* from,
                              const RecordVisitor& visitor ) const {
   using ::Brane::Position;
   if ( reader_ != nullptr ) {
      reader_->visit(
         [&]( Position, const void* record ) { return visitor( record ); },
         from != nullptr ? reader_->resumeBefore( from ) : ::Brane::noPosition );
      return;
   }
   if ( writer_ == nullptr ) return;
   Position position =
      from != nullptr ? writer_->positionAtOrBefore( from ) : ::Brane::noPosition;
   if ( position == ::Brane::noPosition ) position = writer_->next();
   while ( position != ::Brane::noPosition ) {
      const void* record = writer_->at( position );
      if ( record != nullptr && !visitor( record ) ) return;
      position = writer_->next( position );
   }
}

Mox::String valueToStrep( const TableBase& table ) {
   return Mox::valueToStrep( table.size() ) + " of " +
          Mox::valueToStrep( table.capacity() ) + " records";
}

}
