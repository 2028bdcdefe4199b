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
   index_.span = 0;
}

template <class Family>
size_t PrefixTable<Family>::memory() const {
   return changes_.capacity() * sizeof( Change ) +
          bounds_.capacity() * sizeof( Number ) + lengths_.capacity() +
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

// Puts the members before the changes: of equal prefixes the last decides.
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
   buildRanges( all );
   buildIndex();
}

// The stack holds the members around the present one, the innermost on top.
template <class Family>
void PrefixTable<Family>::buildRanges( const std::vector<Change>& members ) const {
   constexpr Number kLast = ~Number( 0 );
   struct Open {
      Number last;
      uint8_t length;  // one greater, as in lengths_
   };
   std::vector<Number> bounds = { 0 };
   std::vector<uint8_t> lengths = { 0 };
   bounds.reserve( 2 * members.size() + 2 );
   lengths.reserve( 2 * members.size() + 1 );
   std::vector<Open> open = { { kLast, 0 } };
   // When several prefixes end at one address, the outermost leaves its bound.
   auto endBefore = [&]( Number start ) {
      while ( open.back().last < start ) {
         const Number next = open.back().last + 1;
         open.pop_back();
         if ( bounds.back() != next ) {
            bounds.push_back( next );
            lengths.push_back( 0 );
         }
         lengths.back() = open.back().length;
      }
   };
   for ( const Change& member : members ) {
      endBefore( member.start );
      const auto length = static_cast<uint8_t>( member.length + 1 );
      bounds.push_back( member.start );
      lengths.push_back( length );
      open.push_back(
         { member.start | Family::ones( Family::bits - member.length ), length } );
   }
   endBefore( kLast );
   bounds.push_back( kLast );
   bounds.shrink_to_fit();
   lengths.shrink_to_fit();
   bounds_ = std::move( bounds );
   lengths_ = std::move( lengths );
}

// Covers the aligned block of addresses in which all bounds lie, and the last
// address where a prefix reaches it. Never covers the family's last address, where
// bounds_ ends.
template <class Family>
void PrefixTable<Family>::buildIndex() const {
   constexpr unsigned kFewestPlaces = 8, kMostPlaces = 24;  // bits
   constexpr uint32_t kFew = 8;                             // bounds in a place
   constexpr Number kLast = ~Number( 0 );
   index_ = {};
   const size_t count = lengths_.size();
   if ( count == 1 ) return;
   const Number end = lengths_.back() == 0 ? bounds_[count - 1] : kLast;
   const unsigned varying = Family::bits - Family::leadingZeros( bounds_[1] ^ end );
   index_.base = bounds_[1] & ~Family::ones( varying );
   index_.span = Family::ones( varying );
   if ( ( index_.base | index_.span ) != kLast ) ++index_.span;

   auto width = static_cast<unsigned>( std::bit_width( count ) );
   width = std::min( std::clamp( width, kFewestPlaces, kMostPlaces ), varying );
   index_.shift = varying - width;
   index_.first.resize( size_t( 1 ) << width );
   auto placeOf = [&]( size_t range ) {
      return static_cast<size_t>( ( bounds_[range] - index_.base ) >>
                                  index_.shift );
   };
   // A bound belongs to the first place that does not begin before it.
   auto place = index_.first.begin();
   for ( size_t range = 1; range < count; ++range ) {
      const bool within = ( bounds_[range] & Family::ones( index_.shift ) ) != 0;
      auto from = index_.first.begin() +
                  static_cast<std::ptrdiff_t>( placeOf( range ) + within );
      if ( place < from )
         place =
            std::fill_n( place, from - place, static_cast<uint32_t>( range - 1 ) );
   }
   std::fill( place, index_.first.end(), static_cast<uint32_t>( count - 1 ) );
   for ( size_t range = 1; range + kFew < count; ++range ) {
      if ( placeOf( range ) == placeOf( range + kFew ) )
         index_.first[placeOf( range )] |= crowded;
   }
}

template <class Family>
int PrefixTable<Family>::searchedLength( Number address, unsigned limit ) const {
   settle();
   if ( lengths_.empty() ) return noMatch;
   const Number* base = bounds_.data();
   size_t count = lengths_.size();
   while ( count > 1 ) {
      size_t half = count / 2;
      base += base[half] <= address ? half : 0;
      count -= half;
   }
   return lengthAt( static_cast<size_t>( base - bounds_.data() ), limit );
}

template <class Family>
PrefixTable<Family>::Iterator::Iterator( const PrefixTable& table )
   : table_( &table ) {
   skipEnds();
}

// Only a range opened by a prefix begins with that prefix's first address.
template <class Family>
void PrefixTable<Family>::Iterator::skipEnds() {
   for ( ; at_ < table_->lengths_.size(); ++at_ ) {
      const unsigned length = table_->lengths_[at_];
      if ( length == 0 ) continue;
      const Number host = Family::ones( Family::bits + 1 - length );
      if ( ( table_->bounds_[at_] & host ) == 0 ) return;
   }
}

template class PrefixTable<Vantu::Ip4Number>;
template class PrefixTable<Vantu::Ip6Number>;

}
