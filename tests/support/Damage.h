// Damages a table's file as a stray pointer would.
#pragma once

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "platform/mount/Flat.h"

namespace Mox::Test {

constexpr size_t kBeforeRecord = 16;  // stamp and checksum

// Flips a bit of the byte at that place of the key's slot. In place, so that
// processes that have mapped the file see it.
template <class Key>
void breakSlot( const std::string& file, const Key& key, size_t at ) {
   std::fstream stream( file, std::ios::in | std::ios::out | std::ios::binary );
   std::string bytes{ std::istreambuf_iterator<char>( stream ), {} };
   typename ::Brane::FlatForm<Key>::Bytes flat{};
   ::Brane::FlatForm<Key>::write( key, flat );
   std::string wanted( reinterpret_cast<const char*>( &flat ), sizeof flat );
   // The start of a slot's record; a short key's bytes may also occur elsewhere.
   constexpr size_t kSlot = 64;
   // The newest slot that held the key: the stamp begins with the sequence.
   size_t found = std::string::npos;
   uint64_t newest = 0;
   for ( size_t place = bytes.find( wanted ); place != std::string::npos;
         place = bytes.find( wanted, place + 1 ) ) {
      if ( place % kSlot != kBeforeRecord ) continue;
      uint64_t stamp;
      std::memcpy( &stamp, bytes.data() + place - kBeforeRecord, sizeof stamp );
      if ( stamp > newest ) newest = stamp, found = place;
   }
   if ( found == std::string::npos ) throw std::runtime_error( "no such key" );
   stream.clear();
   const size_t place = found + at - kBeforeRecord;
   stream.seekp( static_cast<std::streamoff>( place ) );
   stream.put( static_cast<char>( bytes[place] ^ 0x40 ) );
}

// Makes the stamp disagree with the index.
template <class Key>
void breakStamp( const std::string& file, const Key& key ) {
   breakSlot( file, key, 0 );
}
// Makes the checksum disagree with the record, whose last bytes change.
template <class Key>
void breakRecord( const std::string& file, const Key& key, size_t recordSize ) {
   breakSlot( file, key, kBeforeRecord + recordSize - 1 );
}

}
