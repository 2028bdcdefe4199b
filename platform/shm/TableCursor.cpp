#include "platform/shm/TableCursor.h"

#include "platform/shm/detail/SlotOrder.h"
#include "platform/shm/detail/WriterTable.h"

namespace Brane {

struct TableCursor::Instance {
   std::shared_ptr<Detail::Mapping> mapping;
   Detail::WriterView view;
};

TableCursor::TableCursor( const TableWriter& writer )
   : writer_( writer ),
     instance_( std::make_unique<Instance>(
        Instance{ writer.table_->mapping(), writer.table_->view() } ) ),
     positions_( Detail::standingBySlot( instance_->view ) ) {}

TableCursor::~TableCursor() = default;
TableCursor::TableCursor( TableCursor&& other ) noexcept = default;

// The index of a former instance stays as it was when the table grew.
const void* TableCursor::at( Position position ) const {
   const Detail::WriterView& view = instance_->view;
   if ( instance_->mapping == writer_.table_->mapping() )
      return writer_.at( position );
   const uint64_t word = view.index()[position];
   const uint32_t slot = Detail::slotOf( word );
   const bool names = word && slot < view.geometry.slotCount;
   return names ? writer_.find( view.record( slot ) ) : nullptr;
}

}
