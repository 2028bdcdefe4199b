// The kernel's messages to the forwarding process. The first byte chooses: an
// upcall, or an entry of a dump; IPv4 or IPv6. The rest is the message.

#include <vector>

#include "apps/mfib/KernelMessages.h"
#include "fuzz/Check.h"

namespace {

using Vantu::AddressFamily;

void checkEntry( const std::vector<uint64_t>& words, size_t size,
                 AddressFamily family ) {
   if ( size < NLMSG_HDRLEN ) return;
   auto header = reinterpret_cast<const nlmsghdr*>( words.data() );
   // The seeds' table.
   uint32_t table =
      family == AddressFamily::ipv4 ? RT_TABLE_DEFAULT : RT_TABLE_MAIN;
   auto entry = Forwarding::readEntry( Netlink::Message( *header ), family, table );
   if ( !entry ) return;
   FUZZ_CHECK( entry->key.group.isMulticast() );
   FUZZ_CHECK( entry->key.group.family() == family );
   FUZZ_CHECK( entry->key.source.family() == family );
   FUZZ_CHECK( entry->outgoingIndexes.size() * sizeof( rtnexthop ) <= size );
}

}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   if ( size == 0 ) return 0;
   AddressFamily family =
      ( data[0] & 1 ) == 0 ? AddressFamily::ipv4 : AddressFamily::ipv6;
   Netlink::Bytes message( data + 1, size - 1 );
   if ( ( data[0] & 2 ) == 0 ) {
      auto upcall = Forwarding::readUpcall( family, message );
      if ( !upcall ) return 0;
      FUZZ_CHECK( upcall->vif < Forwarding::kMaxVifs );
      FUZZ_CHECK( upcall->key.group.isMulticast() );
      FUZZ_CHECK( upcall->key.source.family() == family );
      return 0;
   }
   // Aligned as netlink messages are, and of the length that their reader has
   // checked.
   std::vector<uint64_t> words( message.size() / sizeof( uint64_t ) + 1 );
   std::copy( message.begin(), message.end(),
              reinterpret_cast<uint8_t*>( words.data() ) );
   reinterpret_cast<nlmsghdr*>( words.data() )->nlmsg_len =
      static_cast<uint32_t>( message.size() );
   checkEntry( words, message.size(), family );
   return 0;
}
