// What reactors share that keep a trie as an access list says: it is cleared, then
// loaded whole with the groups that the list permits.
//
// Both trace as parts of the reactor's handleAllRules, by its facility. Event-loop
// thread only.
#pragma once

#include "platform/acl/AclConfig.h"
#include "platform/trace/Trace.h"
#include "platform/trie/TrieGen.h"

namespace Routing::Pim {

PIMSM_API void clearTrie( TrieGen& trie, Mox::TraceFacility& facility );

// The multicast groups that the list permits to every source, as the fewest
// prefixes; none, traced, for any family but the two.
PIMSM_API Vantu::IpGenPrefixSet permittedGroups( const Acl::AclConfig& list,
                                                 Vantu::AddressFamily family,
                                                 Mox::TraceFacility& facility );

}
