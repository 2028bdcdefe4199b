// Attaching to damaged tables. The input is a list of edits of a sound table's bytes,
// each an offset (3 bytes), a length (1) and that many bytes; the offset ffffff cuts the
// file off instead, at the length's multiple of 64.
//
// A reader must survive and either report damage or find records; a verified record
// must be one that was written. A writer that takes the damaged table over keeps
// only such records, each under its key, and works on; then the reader finds all
// that it wrote.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "fuzz/Check.h"
#include "platform/shm/TableFollower.h"
#include "platform/shm/TableReader.h"
#include "platform/shm/TableWriter.h"

namespace {

struct Record {
   uint64_t key[2] = {};
   uint64_t value[4] = {};
   auto operator<=>( const Record& ) const = default;

   static Record of( uint64_t id, uint64_t generation ) {
      return { { id, 0 }, { generation, id * 3, id ^ generation, ~id } };
   }
};

constexpr uint32_t kCapacity = 24;

Brane::Layout layout() {
   Brane::Layout layout;
   layout.keySize = 16;
   layout.recordSize = sizeof( Record );
   layout.fields = { { "key", "u64[2]", 0, 16 }, { "value", "u64[4]", 16, 32 } };
   return layout;
}

// A sound table, every record ever written to it, and a place for damaged copies.
class Site {
 public:
   Site() {
      char name[] = "/dev/shm/pimsm-fuzz-XXXXXX";
      FUZZ_CHECK( mkdtemp( name ) != nullptr );
      directory_ = name;
      options_.seed = { { 1, 2 } };
      options_.journalEntries = 16;
      {
         Brane::TableWriter writer( path(), layout(), kCapacity, options_ );
         for ( uint64_t generation = 1; generation <= 3; ++generation ) {
            for ( uint64_t id = 1; id <= kCapacity - 4; ++id ) {
               if ( ( id + generation ) % 3 == 0 ) continue;
               put( writer, Record::of( id, generation ) );
            }
         }
         for ( uint64_t id : { 2, 5, 7 } ) writer.remove( Record::of( id, 0 ).key );
      }
      std::ifstream file( path(), std::ios::binary );
      image_.assign( std::istreambuf_iterator<char>( file ), {} );
      FUZZ_CHECK( image_.size() == std::filesystem::file_size( path() ) );
   }
   ~Site() { std::filesystem::remove_all( directory_ ); }

   std::string path() const { return directory_ + "/table"; }
   const Brane::WriterOptions& options() const { return options_; }
   bool written( const Record& record ) const {
      return written_.contains( record );
   }
   void put( Brane::TableWriter& writer, const Record& record ) {
      writer.put( &record );
      written_.insert( record );
   }

   void damage( const uint8_t* data, size_t size ) const {
      std::string bytes = image_;
      for ( size_t at = 0; at + 4 <= size; ) {
         size_t offset = data[at] | data[at + 1] << 8 | data[at + 2] << 16;
         size_t length = data[at + 3];
         at += 4;
         if ( offset == 0xffffff ) {
            bytes.resize( std::min( bytes.size(), length * 64 ) );
            continue;
         }
         length = std::min( length, size - at );
         for ( size_t i = 0; i < length && !bytes.empty(); ++i )
            bytes[( offset + i ) % bytes.size()] =
               static_cast<char>( data[at + i] );
         at += length;
      }
      std::ofstream file( path(), std::ios::binary );
      file.write( bytes.data(), static_cast<std::streamsize>( bytes.size() ) );
      FUZZ_CHECK( file.flush() );
   }

 private:
   std::string directory_;
   Brane::WriterOptions options_;
   std::string image_;
   std::set<Record> written_;
};

void readDamaged( const Site& site ) {
   Brane::TableReader reader( site.path(), layout() );
   if ( reader.state() != Brane::readerAttached ) {
      FUZZ_CHECK( !reader.problem().empty() );
   }
   for ( uint64_t id = 0; id <= kCapacity; ++id ) {
      Record found, key = Record::of( id, 0 );
      reader.lookup( key.key, &found );
      if ( reader.verify( key.key ) != Brane::lookupFound ) continue;
      FUZZ_CHECK( reader.lookup( key.key, &found ) == Brane::lookupFound );
      FUZZ_CHECK( site.written( found ) );
   }
   size_t visited = 0;
   reader.visit( [&]( Brane::Position, const void* ) {
      ++visited;
      return true;
   } );
   FUZZ_CHECK( visited < 10000 );
   Brane::TableFollower follower( reader );
   for ( int i = 0; i < 3; ++i ) follower.drain( []( const Brane::Change& ) {} );
}

void takeOver( Site& site ) {
   Brane::TableWriter writer( site.path(), layout(), kCapacity, site.options() );
   std::set<uint64_t> keys;
   for ( Brane::Position at = writer.next(); at != Brane::noPosition;
         at = writer.next( at ) ) {
      Record record;
      std::memcpy( &record, writer.at( at ), sizeof record );
      FUZZ_CHECK( site.written( record ) );
      FUZZ_CHECK( keys.insert( record.key[0] ).second );
   }
   FUZZ_CHECK( writer.size() == keys.size() );
   FUZZ_CHECK( writer.verify().damaged == 0 );
   Brane::TableReader reader( site.path(), layout() );
   FUZZ_CHECK( reader.state() == Brane::readerAttached );
   for ( uint64_t id = 1; id <= kCapacity; ++id ) {
      Record record = Record::of( id, 4 );
      site.put( writer, record );
      Record found;
      FUZZ_CHECK( reader.lookup( record.key, &found ) == Brane::lookupFound );
      FUZZ_CHECK( found == record );
   }
}

}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   static Site site;
   site.damage( data, size );
   readDamaged( site );
   takeOver( site );
   return 0;
}
