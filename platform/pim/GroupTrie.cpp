#include "platform/pim/GroupTrie.h"

#include "platform/acl/AclToPrefix.h"

namespace Routing::Pim {

void clearTrie( TrieGen& trie, Mox::TraceFacility& facility ) {
   if ( Trie* trie4 = trie.trie4() ) {
      MOX_TRACE( facility, 8, "handleAllRules cleanup trie4 first " );
      trie4->handleDeletion();
      trie4->handleInitialized();
   }
   if ( PatriciaTrie* trie6 = trie.trie6() ) {
      MOX_TRACE( facility, 8, "handleAllRules cleanup trie6 first " );
      trie6->handleDeletion();
      trie6->handleInitialized();
   }
}

Vantu::IpGenPrefixSet permittedGroups( const Acl::AclConfig& list,
                                       Vantu::AddressFamily family,
                                       Mox::TraceFacility& facility ) {
   Vantu::IpGenPrefixSet permitted;
   switch ( family ) {
      case Vantu::AddressFamily::ipv4:
         AclPrefix::AclToPrefix::multicast().handleAcl( &list, permitted, false );
         break;
      case Vantu::AddressFamily::ipv6:
         AclIp6Prefix::AclToIp6Prefix::multicast().handleAcl( &list, permitted,
                                                              false );
         break;
      default:
         MOX_TRACE( facility, 7, "Unsupported address family " << family );
   }
   return permitted;
}

}
