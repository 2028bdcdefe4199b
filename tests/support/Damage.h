// What a stray pointer may do to a table's file.
#pragma once

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "platform/mount/Flat.h"

namespace Mox::Test {

// The stamp of the key's slot no longer fits the index. In place: who has mapped the
// file sees it.
template <class Key>
void breakStamp( const std::string& file, const Key& key ) {
   constexpr size_t kBeforeRecord = 16;  // stamp and checksum
   std::fstream stream( file, std::ios::in | std::ios::out | std::ios::binary );
   std::string bytes{ std::istreambuf_iterator<char>( stream ), {} };
   typename ::Brane::FlatForm<Key>::Bytes flat{};
   ::Brane::FlatForm<Key>::write( key, flat );
   std::string wanted( reinterpret_cast<const char*>( &flat ), sizeof flat );
   // Where a slot's record begins; a short key's bytes may stand elsewhere, too.
   constexpr size_t kSlot = 64;
   size_t place = bytes.find( wanted );
   while ( place != std::string::npos && place % kSlot != kBeforeRecord )
      place = bytes.find( wanted, place + 1 );
   if ( place == std::string::npos ) throw std::runtime_error( "no such key" );
   stream.clear();
   stream.seekp( static_cast<std::streamoff>( place - kBeforeRecord ) );
   stream.put( static_cast<char>( bytes[place - kBeforeRecord] ^ 0x40 ) );
}

}
