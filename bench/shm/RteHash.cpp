#include <fcntl.h>

#include <utility>

#include "Peers.h"

#ifdef PIMSM_HAVE_DPDK
#include <rte_eal.h>
#include <rte_errno.h>
#include <rte_hash.h>
#include <rte_hash_crc.h>
#endif

namespace Brane::Bench {

#ifdef PIMSM_HAVE_DPDK

namespace {

[[noreturn]] void failed( const char* what ) {
   fprintf( stderr, "%s: %s\n", what, rte_strerror( rte_errno ) );
   _exit( 1 );
}

bool started = false;

// Called once a process.
void startEnvironment() {
   if ( std::exchange( started, true ) ) return;
   std::vector<std::string> words = { "bench", "--no-huge", "-m", "1024",
                                      "--no-shconf", "--no-pci", "--no-telemetry",
                                      // Keeps the process unbound to a core.
                                      "--lcores=0@(0-1)", "--log-level=error" };
   std::vector<char*> arguments;
   for ( std::string& word : words ) arguments.push_back( word.data() );
   if ( rte_eal_init( int( arguments.size() ), arguments.data() ) < 0 )
      failed( "rte_eal_init" );
}

class RteHash : public Peer {
 public:
   RteHash( const std::string& path, const Size& size )
      : size_( size ), stride_( ( size.recordSize + 16 + 63 ) / 64 * 64 ) {
      startEnvironment();
      rte_hash_parameters parameters{};
      parameters.name = "bench";
      parameters.entries = size.records;
      parameters.key_len = size.keySize;
      parameters.hash_func = rte_hash_crc;
      parameters.socket_id = SOCKET_ID_ANY;
      parameters.extra_flag =
         RTE_HASH_EXTRA_FLAGS_RW_CONCURRENCY_LF | RTE_HASH_EXTRA_FLAGS_EXT_TABLE;
      hash_ = rte_hash_create( &parameters );
      if ( !hash_ ) failed( "rte_hash_create" );
      // As many spare slots as a table has.
      slots_ = size.records + 64;
      int fd = open( path.c_str(), O_RDWR | O_CREAT, 0640 );
      size_t bytes = stride_ * slots_;
      if ( posix_fallocate( fd, 0, off_t( bytes ) ) != 0 ) abort();
      void* memory = mmap( nullptr, bytes, PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_POPULATE, fd, 0 );
      if ( memory == MAP_FAILED ) abort();
      close( fd );
      memory_ = static_cast<std::byte*>( memory );
      for ( uint32_t slot = 0; slot < slots_; ++slot ) free_.push_back( slot );
   }
   ~RteHash() override {
      rte_hash_free( hash_ );
      munmap( memory_, stride_ * slots_ );
   }

   double insert( const Keys& keys, std::byte* record ) override {
      slotOf_.resize( keys.count() );
      return timed( keys.count(), [&] {
         for ( size_t i = 0; i < keys.count(); ++i ) {
            std::memcpy( record, keys.at( i ), size_.keySize );
            slotOf_[keys.number( i )] = add( keys.at( i ), record );
         }
      } );
   }
   double writeSingle( const Keys& keys, std::byte* record,
                       size_t count ) override {
      return timed( count, [&] {
         for ( size_t i = 0; i < count; ++i ) {
            // The addition does not return the slot that becomes free.
            void* former = nullptr;
            if ( rte_hash_lookup_data( hash_, keys.at( i ), &former ) < 0 ) abort();
            auto at = size_t( static_cast<std::byte*>( former ) - memory_ );
            rewrite( keys, i, record, uint32_t( at / stride_ ) );
         }
      } );
   }
   double writeHandle( const Keys& keys, std::byte* record ) override {
      return timed( keys.count(), [&] {
         for ( size_t i = 0; i < keys.count(); ++i ) {
            rewrite( keys, i, record, slotOf_[keys.number( i )] );
         }
      } );
   }
   double writeBatch( const Keys&, std::byte* ) override { return 0; }
   double readSingle( const Keys& keys, std::byte* record ) override {
      return timed( keys.count(), [&] {
         for ( size_t i = 0; i < keys.count(); ++i ) {
            void* found = nullptr;
            if ( rte_hash_lookup_data( hash_, keys.at( i ), &found ) < 0 ) abort();
            std::memcpy( record, found, size_.recordSize );
            used( record );
         }
      } );
   }
   double readBatch( const Keys& keys, std::byte* record ) override {
      constexpr size_t bulk = RTE_HASH_LOOKUP_BULK_MAX;
      const void* wanted[bulk];
      void* found[bulk];
      return timed( keys.count(), [&] {
         for ( size_t at = 0; at < keys.count(); at += bulk ) {
            size_t count = std::min( bulk, keys.count() - at );
            for ( size_t i = 0; i < count; ++i ) wanted[i] = keys.at( at + i );
            uint64_t hits = 0;
            if ( rte_hash_lookup_bulk_data( hash_, wanted, uint32_t( count ), &hits,
                                            found ) != int( count ) ) {
               abort();
            }
            for ( size_t i = 0; i < count; ++i ) {
               std::memcpy( record, found[i], size_.recordSize );
               used( record );
            }
         }
      } );
   }

 private:
   void rewrite( const Keys& keys, size_t i, std::byte* record, uint32_t former ) {
      std::memcpy( record, keys.at( i ), size_.keySize );
      slotOf_[keys.number( i )] = add( keys.at( i ), record );
      // To the end of a ring of all slots: first in, first out.
      free_[( next_ + slots_ - size_.records - 1 ) % slots_] = former;
   }
   uint32_t add( const std::byte* key, const std::byte* record ) {
      uint32_t slot = free_[next_++ % slots_];
      std::byte* place = memory_ + slot * stride_;
      std::memcpy( place, record, size_.recordSize );
      if ( rte_hash_add_key_data( hash_, key, place ) < 0 ) failed( "add" );
      return slot;
   }

   Size size_;
   size_t stride_;
   rte_hash* hash_ = nullptr;
   uint32_t slots_ = 0;
   std::byte* memory_ = nullptr;
   std::vector<uint32_t> free_;
   // By key number: a user may keep the slot to avoid the look-up.
   std::vector<uint32_t> slotOf_;
   size_t next_ = 0;
};

}

std::unique_ptr<Peer> rteHashPeer( const std::string& path, const Size& size ) {
   return std::make_unique<RteHash>( path, size );
}

#else

std::unique_ptr<Peer> rteHashPeer( const std::string&, const Size& ) {
   return nullptr;
}

#endif

}
