#include "platform/shm/TableWalk.h"

#include <algorithm>

#include "platform/shm/detail/Mirror.h"
#include "platform/shm/detail/SlotOrder.h"

namespace Brane {

namespace {

// Memory is fetched in batches of so many records, keys are told in such.
constexpr size_t batch = 16;

}

TableWalk::TableWalk( const TableReader& reader )
   : TableWalk( *reader.table_, nullptr ) {}

TableWalk::TableWalk( TableFollower& follower )
   : TableWalk( follower.mirror_->table(), follower.mirror_.get() ) {}

TableWalk::TableWalk( Detail::ReaderTable& table, Detail::Mirror* mirror )
   : table_( table ), mirror_( mirror ), instance_( table.followed() ) {
   if ( !instance_ ) return;
   order_ = Detail::standingBySlot( instance_->view() );
   record_.resize( table_.layout().recordSize );
}

TableWalk::~TableWalk() = default;
TableWalk::TableWalk( TableWalk&& other ) noexcept = default;

// The table may have grown into another instance, and who follows it been told so: from
// then on each key's present record counts. While the table cannot be read, its last
// records stand.
bool TableWalk::isHere() const {
   const auto& now = table_.followed();
   return now == instance_ || ( !now && table_.state() != readerAbsent );
}

bool TableWalk::visit( const TableReader::Visitor& visitor, Position position ) {
   if ( mirror_ ) mirror_->met( position, record_.data() );
   return visitor( position, record_.data() );
}

// The words of three batches, and what they lead to of two.
void TableWalk::fetch( size_t& words, size_t& slots ) const {
   for ( ; words < until( 4 ); ++words ) {
      instance_->fetchWord( order_[words] );
      if ( mirror_ ) mirror_->fetch( order_[words] );
   }
   for ( ; slots < until( 3 ); ++slots ) {
      instance_->fetchSlot( instance_->wordAt( order_[slots] ) );
      if ( mirror_ ) mirror_->fetchKey( order_[slots] );
   }
}

// The end of so many batches from the next record on.
size_t TableWalk::until( size_t batches ) const {
   return std::min( next_ + batches * batch, order_.size() );
}

// A position cleared meanwhile is skipped in its turn.
bool TableWalk::advance( const TableReader::Visitor& visitor, const Ahead& ahead ) {
   size_t words = next_, slots = next_, told = next_;
   for ( ; next_ < order_.size(); ++next_ ) {
      if ( told < until( 1 ) ) {
         fetch( words, slots );
         for ( ; told < until( 2 ); ++told ) {
            const uint64_t word = instance_->wordAt( order_[told] );
            if ( ahead && instance_->copyKey( word, record_.data() ) )
               ahead( record_.data() );
         }
      }
      if ( !isHere() ) return advanceElsewhere( visitor );
      const Position p = order_[next_];
      if ( !instance_->wordAt( p ) ) continue;
      const auto copy = instance_->copy( p, record_.data() );
      const Lookup result = table_.count( *instance_, copy, p, record_.data() );
      if ( result == lookupFound && !visit( visitor, p ) ) return false;
   }
   return true;
}

bool TableWalk::advanceElsewhere( const TableReader::Visitor& visitor ) {
   std::vector<std::byte> key( table_.layout().keySize );
   for ( ; next_ < order_.size(); ++next_ ) {
      const uint64_t word = instance_->wordAt( order_[next_] );
      Position at = noPosition;
      const bool found =
         word && instance_->copyKey( word, key.data() ) &&
         table_.lookup( key.data(), record_.data(), &at ) == lookupFound;
      if ( found && !visit( visitor, at ) ) return false;
   }
   return true;
}

}
