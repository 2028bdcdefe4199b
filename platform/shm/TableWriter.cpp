#include "platform/shm/TableWriter.h"

#include <utility>

#include "platform/shm/detail/WriterTable.h"

namespace Brane {

TableWriter::TableWriter( const Mox::String& path,
                          std::shared_ptr<const Layout> layout, uint32_t capacity,
                          const WriterOptions& options )
   : table_( std::make_unique<Detail::WriterTable>( path, std::move( layout ),
                                                    capacity, options ) ) {}
TableWriter::~TableWriter() = default;

Position TableWriter::put( const void* record, Position hint ) {
   return table_->put( record, hint );
}
void TableWriter::put( std::span<PutItem> items ) {
   table_->put( items );
}

Reservation TableWriter::reserve() {
   uint32_t slot = table_->reserve();
   return Reservation( *table_, slot, table_->view().record( slot ) );
}

bool TableWriter::remove( const void* key, void* removed, Position hint ) {
   return table_->remove( key, removed, hint );
}

const void* TableWriter::find( const void* key, Position hint ) const {
   return table_->find( key, hint );
}
const void* TableWriter::at( Position position ) const {
   return table_->at( position );
}
Position TableWriter::next( Position after ) const {
   return table_->next( after );
}
Position TableWriter::positionAtOrBefore( const void* key ) const {
   return table_->positionAtOrBefore( key );
}

void TableWriter::ring() {
   table_->ring();
}
uint32_t TableWriter::size() const {
   return table_->size();
}
uint32_t TableWriter::capacity() const {
   return table_->limit();
}
const Layout& TableWriter::layout() const {
   return table_->layout();
}
const Mox::String& TableWriter::path() const {
   return table_->path();
}
uint64_t TableWriter::instanceId() const {
   return table_->instanceId();
}
uint64_t TableWriter::sequence() const {
   return table_->sequence();
}
const AttachReport& TableWriter::attachReport() const {
   return table_->report();
}
Sweep TableWriter::verify() const {
   return table_->verify();
}
bool TableWriter::filesStand() const {
   return table_->filesStand();
}
void TableWriter::restoreFiles() {
   table_->restoreFiles();
}
void TableWriter::removeFiles() {
   table_->removeFiles();
}

Reservation::Reservation( Reservation&& other ) noexcept
   : table_( other.table_ ),
     slot_( other.slot_ ),
     record_( std::exchange( other.record_, nullptr ) ) {}

Reservation::~Reservation() {
   abandon();
}

Position Reservation::commit( Position hint ) {
   Position position;
   try {
      position = table_->commit( slot_, record_, hint );
   } catch ( ... ) {
      abandon();
      throw;
   }
   record_ = nullptr;
   return position;
}

void Reservation::abandon() {
   if ( void* record = std::exchange( record_, nullptr ) )
      table_->abandon( slot_, record );
}

}
