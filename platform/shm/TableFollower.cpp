#include "platform/shm/TableFollower.h"

#include "platform/shm/detail/Mirror.h"

namespace Brane {

TableFollower::TableFollower( TableReader& reader )
   : mirror_( std::make_unique<Detail::Mirror>( *reader.table_ ) ) {}
TableFollower::~TableFollower() = default;

TableFollower::Drained TableFollower::drain( const Callback& callback,
                                             uint32_t limit ) {
   return mirror_->drain( callback, limit );
}
void TableFollower::met( Position position, const void* key ) {
   mirror_->met( position, static_cast<const std::byte*>( key ) );
}
bool TableFollower::stands( const Found& found ) const {
   return mirror_->stands( found );
}
bool TableFollower::pending() const {
   return mirror_->pending();
}
uint32_t TableFollower::size() const {
   return mirror_->size();
}

}
