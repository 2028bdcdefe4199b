// A set of prefixes of one family with a longest match: made for being loaded whole
// and then asked often.
//
// The prefixes cut the addresses into ranges. `bounds_` holds the first address of
// each in order, `lengths_` the length of the longest prefix that holds the range:
// it is the answer for every address of it. A prefix opens a range, and its end one,
// in which those around it count again. Of bounds at one address that of an end comes
// first, then those of the prefixes that begin there, the longest last. So ahead of
// any bound stands what counted without it, which is what a shorter argument asks.
//
// The range is found through an index by the leading bits in which the bounds vary,
// with 256 places or once to twice as many as bounds: from the range at the place's
// beginning on, the next bounds are looked at one by one. Where a place has more than
// a few, and outside the index, a binary search among all takes its turn.
//
// Changes are only noted; the next reading sorts and rebuilds, in O(n log n), O(n)
// when they came in order. Alternating single changes and look-ups therefore costs
// O(n) each. References and iterators end with the next change. One thread.
#pragma once

#include <iterator>
#include <vector>

#include "platform/net/AddressNumber.h"
#include "platform/net/IpGenPrefix.h"

namespace Routing {

// Family is Vantu::Ip4Number or Vantu::Ip6Number.
template <class Family>
class PrefixTable {
 public:
   using Number = typename Family::Number;
   class Iterator;

   static constexpr int noMatch = -1;

   // Adds the prefix, or removes it; either may be so already.
   // Throws RangeError for the default prefix and one of another family.
   void routeIs( const Vantu::IpGenPrefix& prefix, bool present );

   // The longest stored prefix that covers the argument; the default prefix when
   // there is none, or the argument is none or of another family.
   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenPrefix& prefix ) const {
      if ( prefix.isNone() ) return {};
      return longestMatch( prefix.address(), prefix.length() );
   }
   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenAddr& address ) const {
      return longestMatch( address, Family::bits );
   }

   // The same on bare numbers: the length of the longest stored prefix, of at most
   // `limit` bits, that holds the address; or noMatch.
   int matchedLength( Number address, unsigned limit = Family::bits ) const;

   // Distinct prefixes. The memory is what the table has allocated, in bytes.
   size_t size() const {
      settle();
      return size_;
   }
   size_t memory() const;

   // In order of address, then length.
   Iterator begin() const;
   std::default_sentinel_t end() const { return {}; }

   // Forgets all prefixes and gives the memory back; reads find nothing. A change
   // REQUIRES that handleInitialized() has run since.
   void handleDeletion();
   // Ready for prefixes; has run after construction.
   void handleInitialized() { initialized_ = true; }

 private:
   struct Change {
      Number start;
      uint8_t length;
      bool present;
   };
   // Which ranges may hold an address.
   struct Index {
      Number base = 0;  // its first address
      Number span = 0;  // how many it covers; 0 sends each look-up to the search
      unsigned shift = 0;
      // The range at each place's beginning; `crowded` where there are many.
      std::vector<uint32_t> first;
   };
   static constexpr uint32_t crowded = uint32_t( 1 ) << 31;

   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenAddr& address,
                                    unsigned limit ) const;
   void settle() const {
      if ( !changes_.empty() ) rebuild();
   }
   void rebuild() const;
   void buildRanges( const std::vector<Change>& members ) const;
   void buildIndex() const;
   int searchedLength( Number address, unsigned limit ) const;
   int lengthAt( size_t range, unsigned limit ) const;

   bool initialized_ = true;
   mutable std::vector<Change> changes_;  // in order of arrival
   mutable size_t size_ = 0;
   // The first range begins at 0, the one bound more is the last address. A length
   // stands one greater, 0 for no match.
   mutable std::vector<Number> bounds_;
   mutable std::vector<uint8_t> lengths_;
   mutable Index index_;
};

template <class Family>
class PrefixTable<Family>::Iterator {
 public:
   using value_type = Vantu::IpGenPrefix;
   using difference_type = std::ptrdiff_t;

   Iterator() = default;
   explicit Iterator( const PrefixTable& table );

   Vantu::IpGenPrefix operator*() const {
      return { Family::address( table_->bounds_[at_] ),
               table_->lengths_[at_] - 1U };
   }
   Iterator& operator++() {
      ++at_;
      skipEnds();
      return *this;
   }
   void operator++( int ) { ++*this; }
   bool operator==( std::default_sentinel_t ) const {
      return at_ == table_->lengths_.size();
   }

 private:
   void skipEnds();

   const PrefixTable* table_ = nullptr;
   size_t at_ = 0;
};

// Inline down to here: the one operation that is hot.
template <class Family>
inline int PrefixTable<Family>::lengthAt( size_t range, unsigned limit ) const {
   if ( limit < Family::bits ) {
      while ( lengths_[range] > limit + 1 ) --range;
   }
   return lengths_[range] - 1;
}

// A prefix of at most `limit` bits holds the address and its leading bits alike.
template <class Family>
inline int PrefixTable<Family>::matchedLength( Number address,
                                               unsigned limit ) const {
   if ( limit < Family::bits ) address &= ~Family::ones( Family::bits - limit );
   const Number offset = address - index_.base;
   if ( offset >= index_.span ) return searchedLength( address, limit );
   uint32_t range = index_.first[static_cast<uint32_t>( offset >> index_.shift )];
   if ( ( range & crowded ) != 0 ) return searchedLength( address, limit );
   while ( bounds_[range + 1] <= address ) ++range;
   return lengthAt( range, limit );
}

template <class Family>
inline Vantu::IpGenPrefix PrefixTable<Family>::longestMatch(
   const Vantu::IpGenAddr& address, unsigned limit ) const {
   if ( address.family() != Family::family ) return {};
   int length = matchedLength( Family::of( address ), limit );
   if ( length == noMatch ) return {};
   return { address, static_cast<unsigned>( length ) };
}

extern template class PIMSM_API PrefixTable<Vantu::Ip4Number>;
extern template class PIMSM_API PrefixTable<Vantu::Ip6Number>;

}
