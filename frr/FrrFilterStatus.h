// The groups of one address family with multicast fast reroute enabled.
//
// FrrFilterSm fills the trie. A change of changeCount means that answers may have
// changed; its amount means nothing. Event-loop thread only.
#pragma once

#include "platform/trie/TrieGen.h"

namespace Routing::Pim::SparseMode {

// clang-format off
#define PIMSM_FRR_FILTER_STATUS_ATTRIBUTES( A ) \
   A( Fixed,   addressFamily, AddressFamily, Vantu::AddressFamily, , "of the groups" ) \
   A( Child,   trie,          Trie,          TrieGen,  ,      "the permitted prefixes" ) \
   A( Counter, changeCount,   ChangeCount,   uint32_t, 0,     "the filter may be another; wraps" ) \
   A( Value,   initialized,   Initialized,   bool,     false, "the trie exists" )
// clang-format on

class PIMSM_API FrrFilterStatus : public Mox::Entity {
 public:
   MOX_ENTITY( FrrFilterStatus, PIMSM_FRR_FILTER_STATUS_ATTRIBUTES )

   // Ends with handleInitialized().
   explicit FrrFilterStatus( Vantu::AddressFamily af );

   // A new, empty trie takes the place of the present one, if any.
   Mox::Ptr<TrieGen> trieIs( Mox::StringView name, Vantu::AddressFamily family );

   void handleInitialized();

   // Does a loaded prefix cover the group's? Deliberately regardless of the source,
   // which is only traced. False for the default prefix and one of the other
   // family.
   bool frrEnabled( const Vantu::IpGenPrefix& srcPrefix,
                    const Vantu::IpGenPrefix& grpPrefix ) const;

 protected:
   ~FrrFilterStatus() override = default;

 private:
   TrieGen* newTrie() const;
};

PIMSM_API Mox::Ptr<FrrFilterStatus> frrFilterStatusFactory(
   Vantu::AddressFamily af );

}
