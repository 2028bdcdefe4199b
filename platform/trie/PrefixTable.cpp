#include "platform/trie/PrefixTable.h"

#include <algorithm>
#include <tuple>

#include "platform/base/Assert.h"

namespace Routing {

template <class Family>
void PrefixTable<Family>::routeIs( const Vantu::IpGenPrefix& prefix,
                                   bool present ) {
   if ( prefix.isNone() || prefix.family() != Family::family ) {
      throw Mox::RangeError( "a prefix of another family than the trie's, " +
                             valueToStrep( prefix ) + ", not allowed" );
   }
   MOX_ASSERT( initialized_ );
   changes_.push_back( { Family::of( prefix.address() ),
                         static_cast<uint8_t>( prefix.length() ), present } );
}

template <class Family>
size_t PrefixTable<Family>::memory() const {
   return changes_.capacity() * sizeof( Change ) +
          starts_.capacity() * sizeof( Number ) +
          lengths_.capacity() * sizeof( Number ) +
          index_.first.capacity() * sizeof( uint32_t );
}

template <class Family>
typename PrefixTable<Family>::Iterator PrefixTable<Family>::begin() const {
   settle();
   return Iterator( *this );
}

template <class Family>
void PrefixTable<Family>::handleDeletion() {
   *this = PrefixTable();
   initialized_ = false;
}

// Puts the members before the changes, so that of equal ones the last decides.
template <class Family>
void PrefixTable<Family>::rebuild() const {
   std::vector<Change> all;
   all.reserve( size_ + changes_.size() );
   for ( Iterator member( *this ); member != std::default_sentinel; ++member ) {
      const Vantu::IpGenPrefix prefix = *member;
      all.push_back( { Family::of( prefix.address() ),
                       static_cast<uint8_t>( prefix.length() ), true } );
   }
   all.insert( all.end(), changes_.begin(), changes_.end() );
   changes_ = std::vector<Change>();

   auto before = []( const Change& a, const Change& b ) {
      return std::tie( a.start, a.length ) < std::tie( b.start, b.length );
   };
   if ( !std::is_sorted( all.begin(), all.end(), before ) ) {
      std::stable_sort( all.begin(), all.end(), before );
   }
   size_t kept = 0;
   for ( size_t i = 0; i < all.size(); ++i ) {
      bool last = i + 1 == all.size() || before( all[i], all[i + 1] );
      if ( last && all[i].present ) all[kept++] = all[i];
   }
   all.resize( kept );
   size_ = kept;
   buildStarts( all );
   buildIndex();
}

template <class Family>
void PrefixTable<Family>::buildStarts( const std::vector<Change>& members ) const {
   size_t distinct = 1;
   for ( size_t i = 0; i < members.size(); ++i ) {
      distinct += members[i].start != ( i == 0 ? 0 : members[i - 1].start );
   }
   starts_ = std::vector<Number>();
   lengths_ = std::vector<Number>();
   starts_.reserve( distinct );
   lengths_.reserve( distinct );
   starts_.push_back( 0 );
   lengths_.push_back( 0 );
   whole_ = false;
   for ( const Change& member : members ) {
      if ( member.length == 0 ) {
         whole_ = true;
         continue;
      }
      if ( member.start != starts_.back() ) {
         // What holds the former start and this one holds their common bits.
         unsigned shared = Family::leadingZeros( member.start ^ starts_.back() );
         lengths_.push_back( lengths_.back() & Family::ones( shared ) );
         starts_.push_back( member.start );
      }
      lengths_.back() |= Number( 1 ) << ( member.length - 1 );
   }
}

template <class Family>
void PrefixTable<Family>::buildIndex() const {
   index_ = {};
   // The first start is a prefix's only if it has lengths.
   size_t first = lengths_[0] == 0 ? 1 : 0;
   if ( first == starts_.size() ) return;

   unsigned width = 1;
   while ( width < 24 && ( size_t( 1 ) << width ) < starts_.size() ) ++width;
   // Shared bits are told by starts alone, but the shortest prefix may hold
   // addresses that differ in them.
   unsigned common = Family::leadingZeros( starts_[first] ^ starts_.back() );
   common = std::min( common, Family::bits - width );
   for ( Number lengths : lengths_ ) {
      if ( lengths == 0 ) continue;
      common = std::min( common, Family::trailingZeros( lengths ) + 1 );
   }
   index_.commonMask = ~Family::ones( Family::bits - common );
   index_.common = starts_.back() & index_.commonMask;
   index_.shift = Family::bits - common - width;
   index_.mask = ( uint32_t( 1 ) << width ) - 1;

   // Places count from 1: start 0 precedes all of them.
   index_.first.assign( ( size_t( 1 ) << width ) + 1, 0 );
   for ( size_t i = 1; i < starts_.size(); ++i ) {
      auto place =
         static_cast<uint32_t>( starts_[i] >> index_.shift ) & index_.mask;
      ++index_.first[place + 1];
   }
   index_.first[0] = 1;
   for ( size_t place = 1; place < index_.first.size(); ++place ) {
      index_.first[place] += index_.first[place - 1];
   }
}

template <class Family>
PrefixTable<Family>::Iterator::Iterator( const PrefixTable& table )
   : table_( &table ), whole_( table.whole_ ) {
   skipEmpty();
}

template <class Family>
auto PrefixTable<Family>::Iterator::operator++() -> Iterator& {
   if ( whole_ ) {
      whole_ = false;
      return *this;
   }
   own_ &= own_ - 1;
   if ( own_ == 0 ) {
      ++at_;
      skipEmpty();
   }
   return *this;
}

// A prefix that begins at a start is no shorter than that one's significant bits.
template <class Family>
void PrefixTable<Family>::Iterator::skipEmpty() {
   for ( ; at_ < table_->starts_.size(); ++at_ ) {
      Number start = table_->starts_[at_];
      unsigned significant = Family::bits - Family::trailingZeros( start );
      Number shorter = significant == 0 ? 0 : Family::ones( significant - 1 );
      own_ = table_->lengths_[at_] & ~shorter;
      if ( own_ != 0 ) return;
   }
}

template class PrefixTable<Vantu::Ip4Number>;
template class PrefixTable<Vantu::Ip6Number>;

}
