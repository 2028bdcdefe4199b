// A named trie of prefixes of one family, with a trie for either family inside.
//
// Routing::Trie serves IPv4, Routing::PatriciaTrie IPv6; both are the sorted table of
// PrefixTable.h, where the costs stand. Event-loop thread only.
#pragma once

#include "platform/entity/Attribute.h"
#include "platform/trie/PrefixTable.h"

namespace Routing {

class PIMSM_API Trie : public PrefixTable<Vantu::Ip4Number> {};
class PIMSM_API PatriciaTrie : public PrefixTable<Vantu::Ip6Number> {};

// clang-format off
#define PIMSM_TRIE_ATTRIBUTES( A ) \
   A( Fixed,    name,          Name,          Mox::String,          , "for people" ) \
   A( Fixed,    addressFamily, AddressFamily, Vantu::AddressFamily, , "of the prefixes" ) \
   A( Computed, size,          Size,          uint64_t,             , "prefixes stored" )
// clang-format on

class PIMSM_API TrieGen : public Mox::Entity {
 public:
   MOX_ENTITY( TrieGen, PIMSM_TRIE_ATTRIBUTES )

   // A family other than the two gives a trie without parts: nothing can be added,
   // and nothing matches.
   TrieGen( Mox::StringView name, Vantu::AddressFamily family )
      : name_( name ), addressFamily_( family ) {}

   // The family's part; null for the other.
   Trie* trie4() { return isIp4() ? &trie4_ : nullptr; }
   const Trie* trie4() const { return isIp4() ? &trie4_ : nullptr; }
   PatriciaTrie* trie6() { return isIp6() ? &trie6_ : nullptr; }
   const PatriciaTrie* trie6() const { return isIp6() ? &trie6_ : nullptr; }

   // Adds the prefix, or removes it; no effect when it is so already. Throws
   // RangeError for the default prefix and one of another family.
   void routeIs( const Vantu::IpGenPrefix& prefix, bool present );

   // The longest stored prefix that covers the argument. Returns the default
   // prefix, which is not 0.0.0.0/0, without a match and for the other family.
   Vantu::IpGenPrefix longestMatch( const Vantu::IpGenPrefix& prefix ) const;

   uint64_t size() const;

 protected:
   ~TrieGen() override = default;

 private:
   bool isIp4() const { return addressFamily_ == Vantu::AddressFamily::ipv4; }
   bool isIp6() const { return addressFamily_ == Vantu::AddressFamily::ipv6; }

   Trie trie4_;
   PatriciaTrie trie6_;
};

}
