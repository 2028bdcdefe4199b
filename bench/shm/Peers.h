// The peers that the tables are compared with.
#pragma once

#include <memory>
#include <string>

#include "Bench.h"

namespace Brane::Bench {

// Slots of the table's stride in a shared-memory file of their own, copied to and
// from in random order.
class CopyPeer {
 public:
   CopyPeer( const std::string& path, const Size& size );
   ~CopyPeer();
   double write( const Keys& keys, std::byte* record ) const;
   double read( const Keys& keys, std::byte* record ) const;

 private:
   Size size_;
   size_t stride_;
   std::byte* memory_;
};

// A keyed store by other authors. Each process has an environment of its own;
// figures are ns per record.
class Peer {
 public:
   virtual ~Peer() = default;
   virtual double insert( const Keys& keys, std::byte* record ) = 0;
   // Writes the first `count` keys, which exist already.
   virtual double writeSingle( const Keys& keys, std::byte* record,
                               size_t count ) = 0;
   // Writes by a handle that the user has kept for each key. 0 here and below: no
   // such operation.
   virtual double writeHandle( const Keys&, std::byte* ) { return 0; }
   virtual double writeBatch( const Keys& keys, std::byte* record ) = 0;
   virtual double readSingle( const Keys& keys, std::byte* record ) = 0;
   virtual double readBatch( const Keys& keys, std::byte* record ) = 0;
};

// All peers are on the tables' file system. Null when the library was missing at
// configuration.
using PeerFactory = std::unique_ptr<Peer> ( * )( const std::string& path,
                                                 const Size& size );

// LMDB without sync, a transaction for each record or batch.
std::unique_ptr<Peer> lmdbPeer( const std::string& path, const Size& size );

// DPDK's rte_hash, lock-free for readers, from key to a slot of a shared-memory
// file. A record goes to a free slot, as in the tables. Nothing prevents that a
// reader still copies from that slot; users would need a quiescent-state scheme for
// that. One process only: without huge pages there is no second one.
std::unique_ptr<Peer> rteHashPeer( const std::string& path, const Size& size );

// Boost's unordered map in a managed mapped file, with a sharable mutex locked for
// each record or batch.
std::unique_ptr<Peer> boostPeer( const std::string& path, const Size& size );

}
