#include "engine/JoinPruneQueue.h"

#include <algorithm>
#include <utility>

namespace Router {

using Routing::Pim::RouteKey;
using Vantu::IpGenAddr;

namespace {

// The lengths of the encoded forms (RFC 7761, 4.9.1 and 4.9.5).
struct Sizes {
   explicit Sizes( Vantu::AddressFamily family )
      : address( Vantu::addressBits( family ) / 8 ) {}
   size_t message() const { return 4 + 2 + address + 4; }
   size_t group() const { return 4 + address + 4; }
   size_t source() const { return 4 + address; }

   size_t address;
};

uint8_t whole( const IpGenAddr& address ) {
   return static_cast<uint8_t>( Vantu::addressBits( address.family() ) );
}

// Builds messages one after the other.
class Packer {
 public:
   Packer( const PimJoinPrune& empty, size_t room,
           const std::function<void( PimJoinPrune )>& send )
      : sizes_( empty.upstreamNeighbor.family() ),
        empty_( empty ),
        room_( room ),
        send_( send ),
        message_( empty ),
        left_( room - sizes_.message() ) {}

   // How many entries of one group have room in one message.
   size_t most() const {
      return ( room_ - sizes_.message() - sizes_.group() ) / sizes_.source();
   }

   // Entries of one message, as far as they fit into one. Returns how many prunes had
   // no room.
   size_t together( JoinPruneGroup group ) {
      const size_t entries = group.joins.size() + group.prunes.size();
      const size_t over = entries - std::min( entries, most() );
      group.prunes.resize( group.prunes.size() -
                           std::min( over, group.prunes.size() ) );
      append( std::move( group ) );
      return over;
   }

   // Entries that may go in several messages.
   void apart( const JoinPruneGroup& group ) {
      if ( group.joins.size() + group.prunes.size() <= most() )
         return append( group );
      JoinPruneGroup part = bare( group );
      auto add = [&]( std::vector<EncodedSource> JoinPruneGroup::*list,
                      const EncodedSource& source ) {
         const size_t entries = part.joins.size() + part.prunes.size() + 1;
         if ( !fits( entries ) ) {
            if ( entries > 1 ) append( std::exchange( part, bare( group ) ) );
            if ( !fits( 1 ) ) finish();
         }
         ( part.*list ).push_back( source );
      };
      for ( const EncodedSource& each : group.joins )
         add( &JoinPruneGroup::joins, each );
      for ( const EncodedSource& each : group.prunes )
         add( &JoinPruneGroup::prunes, each );
      append( std::move( part ) );
   }

   void finish() {
      if ( message_.groups.empty() ) return;
      send_( std::exchange( message_, empty_ ) );
      left_ = room_ - sizes_.message();
   }

 private:
   static JoinPruneGroup bare( const JoinPruneGroup& group ) {
      return { group.address, group.maskLength, {}, {} };
   }
   size_t size( size_t entries ) const {
      return sizes_.group() + entries * sizes_.source();
   }
   bool fits( size_t entries ) const {
      return size( entries ) <= left_ &&
             message_.groups.size() < PimJoinPrune::maxGroups;
   }
   void append( JoinPruneGroup group ) {
      const size_t entries = group.joins.size() + group.prunes.size();
      if ( entries == 0 ) return;
      if ( !fits( entries ) ) finish();
      left_ -= size( entries );
      message_.groups.push_back( std::move( group ) );
   }

   const Sizes sizes_;
   const PimJoinPrune& empty_;
   const size_t room_;
   const std::function<void( PimJoinPrune )>& send_;
   PimJoinPrune message_;
   size_t left_;
};

}

void JoinPruneQueue::add( Tree tree, const RouteKey& key, bool join,
                          const IpGenAddr& rp ) {
   Group& group = groups_[key.group];
   if ( tree == Tree::shared ) {
      group.shared = join;
      group.rp = rp;
   } else {
      ( tree == Tree::source ? group.source : group.lessSource )[key.source] = join;
   }
}

std::vector<IpGenAddr> JoinPruneQueue::joinedGroups() const {
   std::vector<IpGenAddr> out;
   for ( const auto& [address, group] : groups_ ) {
      if ( group.shared == true ) out.push_back( address );
   }
   return out;
}

// Joins before prunes, in each (*,G), (S,G), (S,G,rpt).
JoinPruneGroup JoinPruneQueue::encoded( const IpGenAddr& address,
                                        const Group& group ) {
   const uint8_t mask = whole( address );
   JoinPruneGroup out{ address, mask, {}, {} };
   auto add = [&]( bool join, const IpGenAddr& of, bool wildcard, bool rpt ) {
      ( join ? out.joins : out.prunes )
         .push_back( { of, mask, true, wildcard, rpt } );
   };
   if ( group.shared ) add( *group.shared, group.rp, true, true );
   for ( const auto& [source, join] : group.source )
      add( join, source, false, false );
   for ( const auto& [source, join] : group.lessSource )
      add( join, source, false, true );
   return out;
}

size_t JoinPruneQueue::encode(
   const IpGenAddr& neighbor, uint16_t holdtime, size_t room,
   const std::function<void( PimJoinPrune )>& send ) const {
   const PimJoinPrune empty{ neighbor, holdtime, {} };
   Packer packer( empty, room, send );
   size_t leftOut = 0;
   for ( const auto& [address, group] : groups_ ) {
      const size_t entries = 1 + group.source.size() + group.lessSource.size();
      if ( group.shared != true || entries <= packer.most() ) {
         packer.apart( encoded( address, group ) );
         continue;
      }
      // The group's join undoes prunes by itself, and the (S,G) entries do not depend on
      // the others.
      Group rest = group;
      std::erase_if( rest.lessSource,
                     []( const auto& each ) { return each.second; } );
      Group sources;
      sources.source = std::exchange( rest.source, {} );
      leftOut += packer.together( encoded( address, rest ) );
      packer.apart( encoded( address, sources ) );
   }
   packer.finish();
   return leftOut;
}

}
