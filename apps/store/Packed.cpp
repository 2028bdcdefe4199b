#include "apps/store/Packed.h"

#include <lz4.h>

#include <algorithm>

namespace Fleet {

namespace {

std::unique_ptr<char[]> copyOf( const char* bytes, uint32_t size ) {
   auto copy = std::make_unique_for_overwrite<char[]>( size );
   std::copy_n( bytes, size, copy.get() );
   return copy;
}

}

Packed::Packed( std::string_view text )
   : size_( static_cast<uint32_t>( text.size() ) ), packed_( size_ ) {
   if ( text.empty() ) return;
   const auto room = std::make_unique_for_overwrite<char[]>( size_ );
   // Less than the text has, or it says nothing.
   const int packed =
      LZ4_compress_default( text.data(), room.get(), static_cast<int>( size_ ),
                            static_cast<int>( size_ - 1 ) );
   if ( packed > 0 ) packed_ = static_cast<uint32_t>( packed );
   bytes_ = copyOf( packed > 0 ? room.get() : text.data(), packed_ );
}

std::string Packed::text() const {
   if ( packed_ == size_ ) return { bytes_.get(), size_ };
   std::string text( size_, '\0' );
   LZ4_decompress_safe( bytes_.get(), text.data(), static_cast<int>( packed_ ),
                        static_cast<int>( size_ ) );
   return text;
}

}
