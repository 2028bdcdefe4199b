#include "platform/trie/TrieGen.h"

namespace Routing {

MOX_ENTITY_TYPE( TrieGen, PIMSM_TRIE_ATTRIBUTES )

void TrieGen::routeIs( const Vantu::IpGenPrefix& prefix, bool present ) {
   if ( isIp4() ) return trie4_.routeIs( prefix, present );
   if ( isIp6() ) return trie6_.routeIs( prefix, present );
   throw Mox::RangeError( "Unsupported address family" );
}

Vantu::IpGenPrefix TrieGen::longestMatch( const Vantu::IpGenPrefix& prefix ) const {
   if ( isIp4() ) return trie4_.longestMatch( prefix );
   if ( isIp6() ) return trie6_.longestMatch( prefix );
   return {};
}

uint64_t TrieGen::size() const {
   if ( isIp4() ) return trie4_.size();
   if ( isIp6() ) return trie6_.size();
   return 0;
}

}
