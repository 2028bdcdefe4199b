// An IPv4 or IPv6 prefix, and sets of them.
//
// Canonical: the bits beyond the length are zero, so 10.0.0.1/8 is 10.0.0.0/8. The
// default prefix is none at all: it contains nothing, differs from 0.0.0.0/0 and
// orders before every prefix. Order: address, then length. Text: "10.0.0.0/8", the
// default prefix "none".
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <set>

#include "platform/base/Export.h"
#include "platform/base/Text.h"
#include "platform/net/IpGenAddr.h"

namespace Vantu {

class PIMSM_API IpGenPrefix {
 public:
   constexpr IpGenPrefix() = default;
   // Throws RangeError when the length exceeds 32 or 128 bits, or for any other
   // family.
   IpGenPrefix( const IpGenAddr& address, unsigned length );
   // The address alone: /32 or /128.
   explicit IpGenPrefix( const IpGenAddr& address );
   // Reads the whole text. Throws ParseError and RangeError.
   explicit IpGenPrefix( Mox::StringView text );

   bool isNone() const { return !some_; }
   const IpGenAddr& address() const { return address_; }
   AddressFamily family() const { return address_.family(); }
   unsigned length() const { return length_; }

   bool contains( const IpGenAddr& address ) const;
   // True for itself and its parts; false where either prefix is none.
   bool contains( const IpGenPrefix& prefix ) const;

   size_t hash() const {
      return ( address_.hash() + length_ + some_ ) * UINT64_C( 0x9e3779b97f4a7c15 );
   }

   friend std::strong_ordering operator<=>( const IpGenPrefix&,
                                            const IpGenPrefix& ) = default;

 private:
   bool some_ = false;
   IpGenAddr address_;
   uint8_t length_ = 0;
};

PIMSM_API Mox::String valueToStrep( const IpGenPrefix& prefix );
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                IpGenPrefix& out );
PIMSM_API std::ostream& operator<<( std::ostream& stream,
                                    const IpGenPrefix& prefix );

inline size_t hash_value( const IpGenPrefix& prefix ) {
   return prefix.hash();
}

// Distinct prefixes in order; overlapping ones stay apart. Text:
// "{10.0.0.0/8, 2001:db8::/32}".
class IpGenPrefixSet {
 public:
   using Iterator = std::set<IpGenPrefix>::const_iterator;

   // Insertion returns false when the prefix was in the set, removal when it was
   // not.
   bool insert( const IpGenPrefix& prefix ) {
      return prefixes_.insert( prefix ).second;
   }
   bool erase( const IpGenPrefix& prefix ) {
      return prefixes_.erase( prefix ) != 0;
   }
   void clear() { prefixes_.clear(); }
   // Does what clear() does, under the name that collections use.
   void prefixDelAll() { clear(); }

   // Is this very prefix a member?
   bool has( const IpGenPrefix& prefix ) const {
      return prefixes_.count( prefix ) != 0;
   }
   size_t size() const { return prefixes_.size(); }
   bool empty() const { return prefixes_.empty(); }
   Iterator begin() const { return prefixes_.begin(); }
   Iterator end() const { return prefixes_.end(); }

   friend bool operator==( const IpGenPrefixSet&, const IpGenPrefixSet& ) = default;

 private:
   std::set<IpGenPrefix> prefixes_;
};

PIMSM_API Mox::String valueToStrep( const IpGenPrefixSet& prefixes );
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                IpGenPrefixSet& out );
PIMSM_API std::ostream& operator<<( std::ostream& stream,
                                    const IpGenPrefixSet& prefixes );

}

template <>
struct std::hash<Vantu::IpGenPrefix> {
   size_t operator()( const Vantu::IpGenPrefix& prefix ) const noexcept {
      return prefix.hash();
   }
};
