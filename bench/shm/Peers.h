// What the tables are compared with.
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

// An LMDB environment without sync on the same file system. Null where the library
// is missing.
class LmdbPeer {
 public:
   static std::unique_ptr<LmdbPeer> make( const std::string& path,
                                          const Size& size );
   virtual ~LmdbPeer() = default;
   // In an environment of its own per process: figures are ns per record.
   virtual double writeSingle( const Keys& keys, std::byte* record,
                               size_t count ) = 0;
   virtual double writeBatch( const Keys& keys, std::byte* record ) = 0;
   virtual double readSingle( const Keys& keys, std::byte* record ) = 0;
   virtual double readBatch( const Keys& keys, std::byte* record ) = 0;
};

}
