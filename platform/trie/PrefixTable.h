// A set of prefixes of one family with a longest match: made for being loaded whole
// and then asked often.
//
// The distinct first addresses of the prefixes stand sorted in `starts_`. Beside each
// stands the set of the lengths, one bit a length, of all stored prefixes that hold
// it: itself, those that begin at the same address, and those around it. Whatever
// prefix holds an address holds also the greatest start that is not above it. So a
// look-up finds that start, counts the leading bits that both share, and takes the
// highest length among the start's that is not above that count: no walk to the
// enclosing prefixes, no branch on the data.
//
// The start is found through an index by the leading bits in which the starts vary,
// twice as many places as prefixes at most, and a binary search among those of one
// place. The worst case, all in one place, is a search among all.
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
   // Which of the sorted starts may precede an address.
   struct Index {
      Number common = 0;      // what all starts share
      Number commonMask = 0;  // the bits of it
      unsigned shift = 0;     // of the bits behind those
      uint32_t mask = 0;
      std::vector<uint32_t> first;  // a place: its first start; one more at the end
   };

   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenAddr& address,
                                    unsigned limit ) const;
   void settle() const {
      if ( !changes_.empty() ) rebuild();
   }
   void rebuild() const;
   void buildStarts( const std::vector<Change>& members ) const;
   void buildIndex() const;
   size_t precedingStart( Number address ) const;

   bool initialized_ = true;
   mutable std::vector<Change> changes_;  // in order of arrival
   mutable size_t size_ = 0;
   // The bit of weight 2^(n-1) stands for length n; length 0 stands in whole_.
   mutable std::vector<Number> starts_;  // the first is 0, a prefix's or not
   mutable std::vector<Number> lengths_;
   mutable bool whole_ = false;
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
      return { Family::address( whole_ ? 0 : table_->starts_[at_] ), length() };
   }
   Iterator& operator++();
   void operator++( int ) { ++*this; }
   bool operator==( std::default_sentinel_t ) const {
      return !whole_ && at_ == table_->starts_.size();
   }

 private:
   unsigned length() const {
      return whole_ ? 0 : Family::trailingZeros( own_ ) + 1;
   }
   void skipEmpty();

   const PrefixTable* table_ = nullptr;
   bool whole_ = false;  // at the prefix of length 0
   size_t at_ = 0;
   Number own_ = 0;  // the lengths, from this one on, that begin at this start
};

// Inline down to here: the one operation that is hot.
template <class Family>
inline size_t PrefixTable<Family>::precedingStart( Number address ) const {
   auto place = static_cast<uint32_t>( address >> index_.shift ) & index_.mask;
   // From the last start before the place, since one always precedes.
   size_t low = index_.first[place] - 1;
   size_t count = index_.first[place + 1] - low;
   const Number* base = starts_.data() + low;
   while ( count > 1 ) {
      size_t half = count / 2;
      base += base[half] <= address ? half : 0;
      count -= half;
   }
   return static_cast<size_t>( base - starts_.data() );
}

template <class Family>
inline int PrefixTable<Family>::matchedLength( Number address,
                                               unsigned limit ) const {
   settle();
   int otherwise = whole_ ? 0 : noMatch;
   if ( index_.first.empty() ) return otherwise;
   if ( ( ( address ^ index_.common ) & index_.commonMask ) != 0 ) return otherwise;
   size_t at = precedingStart( address );
   unsigned shared = Family::leadingZeros( address ^ starts_[at] );
   Number fitting = lengths_[at] & Family::ones( shared < limit ? shared : limit );
   if ( fitting == 0 ) return otherwise;
   return static_cast<int>( Family::bits - Family::leadingZeros( fitting ) );
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
