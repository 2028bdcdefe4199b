// Shared by the reactors that keep a trie in step with an access list: the trie is
// cleared, then loaded with the groups that the list permits.
//
// Both functions trace as parts of the reactor's handleAllRules, by its facility.
// Event-loop thread only.
#pragma once

#include "platform/acl/AclConfig.h"
#include "platform/trace/Trace.h"
#include "platform/trie/TrieGen.h"

namespace Routing::Pim {

PIMSM_API void clearTrie( TrieGen& trie, Mox::TraceFacility& facility );

// The multicast groups that the list permits to every source, as the fewest
// prefixes. A family other than the two gives none, and a trace.
PIMSM_API Vantu::IpGenPrefixSet permittedGroups( const Acl::AclConfig& list,
                                                 Vantu::AddressFamily family,
                                                 Mox::TraceFacility& facility );

}
