#include <array>
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#include <boost/unordered_map.hpp>

#include "Peers.h"
#include "platform/shm/detail/Hash.h"

namespace Brane::Bench {

namespace {

namespace ip = boost::interprocess;

template <size_t KeySize, size_t RecordSize>
class Boost : public Peer {
   using Key = std::array<std::byte, KeySize>;
   using Record = std::array<std::byte, RecordSize>;
   // The tables' own hash: the comparison is of the map and its lock.
   struct Hash {
      size_t operator()( const Key& key ) const {
         constexpr uint64_t seed[2] = { 11, 22 };
         return Detail::keyHash( key.data(), KeySize, seed );
      }
   };
   using Allocator = ip::allocator<std::pair<const Key, Record>,
                                   ip::managed_mapped_file::segment_manager>;
   using Map =
      boost::unordered_map<Key, Record, Hash, std::equal_to<Key>, Allocator>;
   using Mutex = ip::interprocess_sharable_mutex;

 public:
   Boost( const std::string& path, const Size& size )
      : file_(
           ip::create_only, path.c_str(),
           size_t( size.records ) * ( KeySize + RecordSize + 96 ) + ( 1 << 20 ) ) {
      mutex_ = file_.construct<Mutex>( "mutex" )();
      map_ = file_.construct<Map>( "map" )(
         size.records, Hash(), std::equal_to<Key>(), file_.get_segment_manager() );
   }

   double insert( const Keys& keys, std::byte* record ) override {
      return writeSingle( keys, record, keys.count() );
   }
   double writeSingle( const Keys& keys, std::byte* record,
                       size_t count ) override {
      return write( keys, record, count, 1 );
   }
   double writeBatch( const Keys& keys, std::byte* record ) override {
      return write( keys, record, keys.count(), batchSize );
   }
   double readSingle( const Keys& keys, std::byte* record ) override {
      return read( keys, record, 1 );
   }
   double readBatch( const Keys& keys, std::byte* record ) override {
      return read( keys, record, batchSize );
   }

 private:
   static const Key& keyAt( const Keys& keys, size_t i ) {
      return *reinterpret_cast<const Key*>( keys.at( i ) );
   }
   double write( const Keys& keys, std::byte* record, size_t count, size_t step ) {
      return timed( count, [&] {
         for ( size_t at = 0; at < count; at += step ) {
            ip::scoped_lock<Mutex> lock( *mutex_ );
            for ( size_t i = at; i < std::min( at + step, count ); ++i ) {
               std::memcpy( record, keys.at( i ), KeySize );
               std::memcpy( ( *map_ )[keyAt( keys, i )].data(), record,
                            RecordSize );
            }
         }
      } );
   }
   double read( const Keys& keys, std::byte* record, size_t step ) {
      return timed( keys.count(), [&] {
         for ( size_t at = 0; at < keys.count(); at += step ) {
            ip::sharable_lock<Mutex> lock( *mutex_ );
            size_t end = std::min( at + step, keys.count() );
            for ( size_t i = at; i < end; ++i ) {
               auto found = map_->find( keyAt( keys, i ) );
               if ( found == map_->end() ) abort();
               std::memcpy( record, found->second.data(), RecordSize );
               used( record );
            }
         }
      } );
   }

   ip::managed_mapped_file file_;
   Mutex* mutex_;
   Map* map_;
};

}

std::unique_ptr<Peer> boostPeer( const std::string& path, const Size& size ) {
   if ( size.keySize == 40 && size.recordSize == 320 )
      return std::make_unique<Boost<40, 320>>( path, size );
   if ( size.keySize == 72 && size.recordSize == 200 )
      return std::make_unique<Boost<72, 200>>( path, size );
   return nullptr;
}

}
