// Values by prefix, of both families, found by longest match: routes, group ranges.
//
// Made for being loaded whole and then asked often, as PrefixTable.h says.
// References and matches are invalid after the next change. One thread.
#pragma once

#include <optional>
#include <unordered_map>
#include <utility>

#include "platform/trie/TrieGen.h"

namespace Routing {

template <class Value>
class PrefixMap {
 public:
   // Inserts the value and returns it with true. An existing value stays and is
   // returned with false. Throws RangeError for the default prefix.
   std::pair<Value&, bool> insert( const Vantu::IpGenPrefix& prefix, Value value );

   struct Match {
      unsigned length;  // of the prefix
      const Value& value;
   };
   // Empty when no prefix holds the address.
   std::optional<Match> find( const Vantu::IpGenAddr& address ) const;

   size_t size() const { return values_.size(); }
   void clear() { *this = {}; }

   bool operator==( const PrefixMap& other ) const {
      return values_ == other.values_;
   }

 private:
   std::unordered_map<Vantu::IpGenPrefix, Value> values_;
   Trie trie4_;
   PatriciaTrie trie6_;
};

template <class Value>
std::pair<Value&, bool> PrefixMap<Value>::insert( const Vantu::IpGenPrefix& prefix,
                                                  Value value ) {
   if ( prefix.family() == Vantu::AddressFamily::ipv4 ) {
      trie4_.routeIs( prefix, true );
   } else {
      trie6_.routeIs( prefix, true );
   }
   auto [entry, isNew] = values_.try_emplace( prefix, std::move( value ) );
   return { entry->second, isNew };
}

template <class Value>
std::optional<typename PrefixMap<Value>::Match> PrefixMap<Value>::find(
   const Vantu::IpGenAddr& address ) const {
   const bool isIp4 = address.family() == Vantu::AddressFamily::ipv4;
   const Vantu::IpGenPrefix prefix =
      isIp4 ? trie4_.longestMatch( address ) : trie6_.longestMatch( address );
   if ( prefix.isNone() ) return std::nullopt;
   return Match{ prefix.length(), values_.at( prefix ) };
}

}
