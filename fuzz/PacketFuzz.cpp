// The packet decoders. The first byte chooses the link header, the rest is a frame.
// An accepted message must keep the decoders' promises.

#include "apps/config/RouterNames.h"
#include "fuzz/Check.h"
#include "packet/Message.h"

namespace {

void checkPim( const Agent::IpPacket& packet, const Agent::PimMessage& message ) {
   const auto* joinPrune = std::get_if<Agent::PimJoinPrune>( &message.body );
   if ( joinPrune == nullptr ) return;
   FUZZ_CHECK( joinPrune->upstreamNeighbor.family() == packet.family() );
   for ( const Agent::JoinPruneGroup& group : joinPrune->groups ) {
      FUZZ_CHECK( group.address.family() == packet.family() );
      for ( const auto* sources : { &group.joins, &group.prunes } ) {
         for ( const Agent::EncodedSource& source : *sources )
            FUZZ_CHECK( source.address.family() == packet.family() );
      }
   }
}

// No list has more members than the packet has room for.
void checkMembership( const Agent::IpPacket& packet,
                      const Agent::MembershipMessage& message ) {
   const size_t size = Vantu::addressBits( packet.family() ) / 8;
   size_t addresses = 0;
   if ( const auto* query = std::get_if<Agent::MembershipQuery>( &message ) )
      addresses = query->sources.size();
   if ( const auto* report = std::get_if<Agent::MembershipReport>( &message ) ) {
      for ( const auto& record : report->records )
         addresses += 1 + record.sources.size();
   }
   FUZZ_CHECK( addresses * size <= packet.payload.size() );
}

}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   if ( size == 0 ) return 0;
   auto link = static_cast<Agent::LinkType>( data[0] % 5 );
   Agent::Bytes frame( data + 1, size - 1 );
   Agent::IpPacket packet;
   if ( Agent::decodeFrame( link, frame, packet ) != Agent::notDropped ) return 0;
   FUZZ_CHECK( packet.payload.size() <= frame.size() );
   FUZZ_CHECK( packet.payload.empty() ||
               ( packet.payload.data() >= frame.data() &&
                 packet.payload.data() + packet.payload.size() <=
                    frame.data() + frame.size() ) );
   FUZZ_CHECK( packet.source.family() == packet.destination.family() );
   Agent::Message message;
   if ( Agent::decodeMessage( packet, message ) != Agent::notDropped ) return 0;
   if ( const auto* pim = std::get_if<Agent::PimMessage>( &message ) )
      checkPim( packet, *pim );
   else
      checkMembership( packet, std::get<Agent::MembershipMessage>( message ) );
   return 0;
}
