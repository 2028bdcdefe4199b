// A set of prefixes of one family with a longest match: made for being loaded whole
// and then asked often.
//
// The prefixes cut the addresses into ranges. `bounds_` holds the first address of
// each range in order. `lengths_` holds the length of the longest prefix around the
// range, which answers for each of its addresses. A prefix opens a range where it
// begins, and another where it ends and the prefixes around it count again. Of
// bounds at one address an end's comes first, then those of the prefixes that begin
// there, the longest last. So the range ahead of a bound is the one that counted
// without it; look-ups of shorter arguments use that.
//
// The range is found through an index by the leading bits in which the bounds vary,
// with 256 places or once to twice as many as bounds: a look-up starts at the range
// of the place's beginning and tries the next bounds one by one. A crowded place,
// or an address outside the index, takes a binary search among all bounds.
//
// Changes are only noted; the next reading sorts and rebuilds, in O(n log n), O(n)
// when they came in order. Alternating single changes and look-ups therefore costs
// O(n) each. References and iterators are invalid after the next change. One
// thread.
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

   // Adds the prefix, or removes it; no effect when it is so already. Throws
   // RangeError for the default prefix and one of another family.
   void routeIs( const Vantu::IpGenPrefix& prefix, bool present );

   // The longest stored prefix that covers the argument. The default prefix when
   // there is none, or when the argument is none or of another family.
   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenPrefix& prefix ) const {
      if ( prefix.isNone() ) return {};
      return longestMatch( prefix.address(), prefix.length() );
   }
   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenAddr& address ) const {
      return longestMatch( address, Family::bits );
   }

   // The same on bare numbers: the length of the longest stored prefix, of at most
   // `limit` bits, that holds the address. noMatch without one.
   int matchedLength( Number address, unsigned limit = Family::bits ) const;

   // Counts distinct prefixes.
   size_t size() const {
      settle();
      return size_;
   }
   size_t memory() const;

   // In order of address, then length.
   Iterator begin() const;
   std::default_sentinel_t end() const { return {}; }

   // Forgets all prefixes and frees the memory; look-ups find nothing. REQUIRES:
   // handleInitialized() is called before the next change.
   void handleDeletion();
   // Allows changes; a new table allows them already.
   void handleInitialized() { initialized_ = true; }

 private:
   struct Change {
      Number start;
      uint8_t length;
      bool present;
   };
   // Maps an address's leading bits to the ranges that may hold it.
   struct Index {
      Number base = 0;  // its first address
      Number span = 0;  // addresses covered; 0: each look-up searches
      unsigned shift = 0;
      // The range at each place's beginning; `crowded` where a place has many
      // bounds.
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
   // The first range begins at 0; the extra last bound is the last address. Each
   // length is stored plus one, 0 for no match.
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

// Inline from here on: matchedLength() is the one hot operation.
template <class Family>
inline int PrefixTable<Family>::lengthAt( size_t range, unsigned limit ) const {
   if ( limit < Family::bits ) {
      while ( lengths_[range] > limit + 1 ) --range;
   }
   return lengths_[range] - 1;
}

// The address is cut to `limit` bits: a prefix no longer than that holds both or
// neither.
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
