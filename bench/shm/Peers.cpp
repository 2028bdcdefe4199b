#include "Peers.h"

#include <fcntl.h>

namespace Brane::Bench {

CopyPeer::CopyPeer( const std::string& path, const Size& size )
   : size_( size ), stride_( ( size.recordSize + 16 + 63 ) / 64 * 64 ) {
   int fd = open( path.c_str(), O_RDWR | O_CREAT, 0640 );
   size_t bytes = stride_ * size.records;
   if ( posix_fallocate( fd, 0, off_t( bytes ) ) != 0 ) abort();
   void* memory = mmap( nullptr, bytes, PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_POPULATE, fd, 0 );
   if ( memory == MAP_FAILED ) abort();
   madvise( memory, bytes, MADV_HUGEPAGE );
   memory_ = static_cast<std::byte*>( memory );
   close( fd );
}

CopyPeer::~CopyPeer() {
   munmap( memory_, stride_ * size_.records );
}

double CopyPeer::write( const Keys& keys, std::byte* record ) const {
   return timed( keys.count(), [&] {
      for ( size_t i = 0; i < keys.count(); ++i ) {
         std::memcpy( record, keys.at( i ), size_.keySize );
         std::memcpy( memory_ + keys.number( i ) * stride_ + 16, record,
                      size_.recordSize );
         used( memory_ );
      }
   } );
}

double CopyPeer::read( const Keys& keys, std::byte* record ) const {
   return timed( keys.count(), [&] {
      for ( size_t i = 0; i < keys.count(); ++i ) {
         std::memcpy( record, memory_ + keys.number( i ) * stride_ + 16,
                      size_.recordSize );
         used( record );
      }
   } );
}

}
