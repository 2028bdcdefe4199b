#include "platform/shm/TableReader.h"

#include <utility>

#include "platform/shm/detail/Lock.h"
#include "platform/shm/detail/ReaderTable.h"

namespace Brane {

TableReader::TableReader( const Mox::String& path,
                          std::shared_ptr<const Layout> layout,
                          const Mox::String& seat )
   : table_( std::make_unique<Detail::ReaderTable>( TableFiles( path, seat ),
                                                    std::move( layout ) ) ) {}
TableReader::~TableReader() = default;

bool TableReader::poll() {
   return table_->poll();
}
ReaderState TableReader::state() const {
   return table_->state();
}
const Mox::String& TableReader::problem() const {
   return table_->problem();
}
LayoutError::Mismatch TableReader::mismatch() const {
   return table_->mismatch();
}
bool TableReader::writerAlive() const {
   return Detail::writerRings( bell() );
}

void TableReader::verifyingIs( bool verifying ) {
   table_->verifyingIs( verifying );
}

Lookup TableReader::lookup( const void* key, void* out, Position* position ) const {
   return table_->lookup( key, out, position );
}
void TableReader::lookup( std::span<LookupItem> items ) const {
   table_->lookup( items );
}
Lookup TableReader::at( Position position, void* out ) const {
   return table_->at( position, out );
}
Position TableReader::visit( const Visitor& visitor, Position after ) const {
   return table_->visit( visitor, after );
}
Position TableReader::resumeBefore( const void* key ) const {
   return table_->resumeBefore( key );
}
Lookup TableReader::verify( const void* key ) const {
   return table_->verify( key );
}

uint32_t TableReader::capacity() const {
   return table_->instance() ? table_->instance()->limit() : 0;
}
uint64_t TableReader::instanceId() const {
   return table_->instance() ? table_->instance()->id() : 0;
}
uint64_t TableReader::sequence() const {
   return table_->instance() ? table_->instance()->head() : 0;
}

const Mox::String& TableReader::path() const {
   return table_->files().table;
}
Mox::String TableReader::bell() const {
   return table_->files().bell();
}
const Layout& TableReader::layout() const {
   return table_->layout();
}
const TableReader::Counters& TableReader::counters() const {
   return table_->counters();
}

}
