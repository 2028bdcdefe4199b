#include <sys/stat.h>

#include "Peers.h"

#ifdef PIMSM_HAVE_LMDB
#include <lmdb.h>
#endif

namespace Brane::Bench {

#ifdef PIMSM_HAVE_LMDB

namespace {

void check( int result ) {
   if ( result == 0 ) return;
   fprintf( stderr, "lmdb: %s\n", mdb_strerror( result ) );
   _exit( 1 );
}

class Lmdb : public Peer {
 public:
   Lmdb( const std::string& path, const Size& size ) : size_( size ) {
      mkdir( path.c_str(), 0750 );
      check( mdb_env_create( &env_ ) );
      check( mdb_env_set_mapsize( env_, size_t( 4 ) << 30 ) );
      check( mdb_env_open( env_, path.c_str(), MDB_NOSYNC | MDB_WRITEMAP, 0640 ) );
      MDB_txn* txn;
      check( mdb_txn_begin( env_, nullptr, 0, &txn ) );
      check( mdb_dbi_open( txn, nullptr, 0, &dbi_ ) );
      check( mdb_txn_commit( txn ) );
   }
   ~Lmdb() override { mdb_env_close( env_ ); }

   double insert( const Keys& keys, std::byte* record ) override {
      return writeBatch( keys, record );
   }
   double writeSingle( const Keys& keys, std::byte* record,
                       size_t count ) override {
      return timed( count, [&] {
         for ( size_t i = 0; i < count; ++i ) write( keys, record, i, i + 1 );
      } );
   }
   double writeBatch( const Keys& keys, std::byte* record ) override {
      return timed( keys.count(), [&] {
         for ( size_t i = 0; i < keys.count(); i += batchSize ) {
            write( keys, record, i, std::min( i + batchSize, keys.count() ) );
         }
      } );
   }
   double readSingle( const Keys& keys, std::byte* record ) override {
      return timed( keys.count(), [&] {
         for ( size_t i = 0; i < keys.count(); ++i ) read( keys, record, i, i + 1 );
      } );
   }
   double readBatch( const Keys& keys, std::byte* record ) override {
      return timed( keys.count(), [&] {
         for ( size_t i = 0; i < keys.count(); i += batchSize ) {
            read( keys, record, i, std::min( i + batchSize, keys.count() ) );
         }
      } );
   }

 private:
   MDB_val keyOf( const Keys& keys, size_t i ) const {
      return { size_.keySize, const_cast<std::byte*>( keys.at( i ) ) };
   }
   // The value is the whole record with its key, as in the table.
   void write( const Keys& keys, std::byte* record, size_t begin, size_t end ) {
      MDB_txn* txn;
      check( mdb_txn_begin( env_, nullptr, 0, &txn ) );
      for ( size_t i = begin; i < end; ++i ) {
         std::memcpy( record, keys.at( i ), size_.keySize );
         MDB_val key = keyOf( keys, i ), value{ size_.recordSize, record };
         check( mdb_put( txn, dbi_, &key, &value, 0 ) );
      }
      check( mdb_txn_commit( txn ) );
   }
   void read( const Keys& keys, std::byte* record, size_t begin, size_t end ) {
      if ( reader_ ) {
         check( mdb_txn_renew( reader_ ) );
      } else {
         check( mdb_txn_begin( env_, nullptr, MDB_RDONLY, &reader_ ) );
      }
      for ( size_t i = begin; i < end; ++i ) {
         MDB_val key = keyOf( keys, i ), value;
         check( mdb_get( reader_, dbi_, &key, &value ) );
         std::memcpy( record, value.mv_data, size_.recordSize );
         used( record );
      }
      mdb_txn_reset( reader_ );
   }

   Size size_;
   MDB_env* env_ = nullptr;
   MDB_dbi dbi_ = 0;
   MDB_txn* reader_ = nullptr;
};

}

std::unique_ptr<Peer> lmdbPeer( const std::string& path, const Size& size ) {
   return std::make_unique<Lmdb>( path, size );
}

#else

std::unique_ptr<Peer> lmdbPeer( const std::string&, const Size& ) {
   return nullptr;
}

#endif

}
