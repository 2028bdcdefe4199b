// A small table of self-verifying records in a directory of its own, and child
// processes that use it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/shm/TableFiles.h"
#include "platform/shm/TableFollower.h"
#include "platform/shm/TableReader.h"
#include "platform/shm/TableWriter.h"
#include "platform/shm/detail/Format.h"
#include "platform/shm/detail/Geometry.h"
#include "platform/shm/detail/Hash.h"
#include "tests/support/TempRoot.h"

namespace Brane::Test {

struct Key {
   uint64_t id = 0;
   uint64_t more = 0;
   auto operator<=>( const Key& ) const = default;
};

// Key, generation and a value over both: half a record never verifies.
struct Record {
   Key key;
   uint64_t generation = 0;
   uint64_t filler[2] = {};
   uint64_t check = 0;

   static Record of( uint64_t id, uint64_t generation ) {
      Record r;
      r.key.id = id;
      r.generation = generation;
      r.filler[0] = id * 3 + generation;
      r.filler[1] = id ^ generation << 20;
      r.check = r.sum();
      return r;
   }
   uint64_t sum() const {
      return ( key.id * 0x9e3779b97f4a7c15 ) ^ ( generation * 0xc2b2ae3d27d4eb4f ) ^
             ( filler[0] << 1 ) ^ ( filler[1] << 2 );
   }
   bool whole() const { return check == sum(); }
   bool operator==( const Record& ) const = default;
};

inline Layout layoutOfRecord() {
   return { sizeof( Key ),
            sizeof( Record ),
            { { "id", "u64", 0, 8 },
              { "more", "u64", 8, 8 },
              { "generation", "u64", 16, 8 },
              { "filler", "u64[2]", 24, 16 },
              { "check", "u64", 40, 8 } } };
}

// By key id.
using Content = std::map<uint64_t, Record>;

inline void enter( Content& content, const void* bytes ) {
   Record r;
   std::memcpy( &r, bytes, sizeof( r ) );
   EXPECT_TRUE( r.whole() ) << "torn record of key " << r.key.id;
   EXPECT_TRUE( content.emplace( r.key.id, r ).second ) << "met twice";
}
inline Content contentOf( const TableReader& reader ) {
   Content content;
   reader.visit( [&]( Position, const void* bytes ) {
      enter( content, bytes );
      return true;
   } );
   return content;
}
inline Content contentOf( const TableWriter& writer ) {
   Content content;
   for ( Position p = writer.next(); p != noPosition; p = writer.next( p ) )
      enter( content, writer.at( p ) );
   EXPECT_EQ( content.size(), writer.size() );
   return content;
}

inline std::optional<Record> found( const TableReader& reader, uint64_t id ) {
   Record r;
   Key key{ id, 0 };
   Lookup result = reader.lookup( &key, &r );
   EXPECT_TRUE( result == lookupFound || result == lookupAbsent )
      << "key " << id << ": " << result << ' ' << reader.problem();
   return result == lookupFound ? std::optional( r ) : std::nullopt;
}

inline std::optional<Record> found( const Content& content, uint64_t id ) {
   auto at = content.find( id );
   return at == content.end() ? std::nullopt : std::optional( at->second );
}

inline void put( TableWriter& writer, uint64_t id, uint64_t generation ) {
   Record r = Record::of( id, generation );
   writer.put( &r );
}
inline bool remove( TableWriter& writer, uint64_t id ) {
   Key key{ id, 0 };
   return writer.remove( &key );
}

// A reader's follower, and its owner's knowledge.
struct Followed {
   Followed( const std::string& path, const Layout& layout )
      : reader( path, layout ),
        follower( reader ),
        content( contentOf( reader ) ) {}

   TableFollower::Drained drain( uint32_t limit = UINT32_MAX ) {
      auto tell = [this]( const Change& change ) {
         ++changes;
         Key key;
         std::memcpy( &key, change.key, sizeof( key ) );
         content.erase( key.id );
         if ( change.kind == Change::written ) enter( content, change.record );
      };
      return follower.drain( tell, limit );
   }

   TableReader reader;
   TableFollower follower;
   Content content;
   uint32_t changes = 0;
};

// 0 chooses the journal's length by the capacity.
inline Detail::Geometry geometryOf( uint32_t capacity, uint32_t journal = 0 ) {
   using Detail::Geometry;
   return Geometry::of(
      sizeof( Key ), sizeof( Record ), uint32_t( layoutOfRecord().fields.size() ),
      capacity, journal ? journal : Geometry::defaultJournalEntries( capacity ) );
}

// The words of a table, to damage as a stray pointer would.
inline uint64_t* indexIn( std::string& bytes, const Detail::Geometry& geometry ) {
   return reinterpret_cast<uint64_t*>( bytes.data() + geometry.indexOffset );
}
inline void breakRecordAt( std::string& bytes, const Detail::Geometry& geometry,
                           Position position ) {
   uint32_t slot = Detail::slotOf( indexIn( bytes, geometry )[position] );
   bytes[geometry.slotsOffset + slot * geometry.slotStride + 40] ^= 4;
}
inline void headIs( std::string& bytes, int byte ) {
   std::memset( bytes.data() + geometryOf( 1 ).controlOffset, byte, 8 );
}

constexpr std::array<uint64_t, 2> testSeed = { 11, 22 };

// Keys of one home line in a table of that capacity and testSeed.
inline std::vector<uint64_t> neighbours( uint32_t capacity, size_t count,
                                         uint32_t home = 0 ) {
   auto geometry = geometryOf( capacity, 4 );
   uint64_t seed[2] = { testSeed[0], testSeed[1] };
   std::vector<uint64_t> ids;
   for ( uint64_t id = 1; ids.size() < count; ++id ) {
      Key key{ id, 0 };
      if ( geometry.homeOf( Detail::keyHash( &key, sizeof( key ), seed ) ) ==
           home ) {
         ids.push_back( id );
      }
   }
   return ids;
}

// Passes numbers to another process; a read without a number fails at the deadline.
struct Pipe {
   Pipe() { EXPECT_EQ( pipe( ends ), 0 ); }
   ~Pipe() {
      for ( int end : ends ) close( end );
   }
   void send( uint64_t number ) const {
      EXPECT_EQ( write( ends[1], &number, sizeof number ),
                 ssize_t( sizeof number ) );
   }
   uint64_t receive() const {
      constexpr int deadline = 60000;  // ms
      uint64_t number = 0;
      pollfd item{ ends[0], POLLIN, 0 };
      bool sent = ::poll( &item, 1, deadline ) == 1;
      EXPECT_TRUE( sent && read( ends[0], &number, sizeof number ) > 0 );
      return number;
   }
   int ends[2];
};

class TableTest : public testing::Test {
 public:
   TableTest() {
      options.seed = testSeed;
      options.bootId = "boot";
      umask( 077 );  // what the group may read is the files' own
   }

   // Runs `body` in a child that exits here, with 0, or with 1 when it throws.
   template <class Body>
   static pid_t start( Body body ) {
      pid_t pid = fork();
      if ( pid ) return pid;
      try {
         body();
      } catch ( const std::exception& e ) {
         fprintf( stderr, "child: %s\n", e.what() );
         _exit( 1 );
      }
      _exit( 0 );
   }
   static int ended( pid_t pid ) {
      int status = 0;
      waitpid( pid, &status, 0 );
      return status;
   }

   Mox::Test::TempRoot root;
   std::string directory = root.path();
   std::string path = directory + "/t";
   Layout layout = layoutOfRecord();
   WriterOptions options;
};

inline std::string bytesOf( const std::string& file ) {
   std::ifstream in( file, std::ios::binary );
   return { std::istreambuf_iterator<char>( in ), {} };
}
// Written in place, so that processes that have mapped the file see it.
inline void bytesAre( const std::string& file, const std::string& bytes ) {
   std::ofstream out( file, std::ios::binary | std::ios::in | std::ios::out );
   if ( !out ) out.open( file, std::ios::binary );
   out.write( bytes.data(), static_cast<std::streamsize>( bytes.size() ) );
}

}
