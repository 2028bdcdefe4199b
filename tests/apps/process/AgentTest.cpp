// The agent as a program, over tables that are damaged.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>

#include "tests/apps/process/Site.h"

namespace Agent {
namespace {

using Mox::Test::runToEnd;

class AgentProgram : public testing::Test {
 protected:
   Site site;
};

// Some words of each table that hold anything, the headers' too in the last rounds.
void damageTables( const std::string& root, std::mt19937_64& random,
                   bool headers ) {
   for ( const auto& entry :
         std::filesystem::recursive_directory_iterator( root ) ) {
      if ( !entry.is_regular_file() || entry.path().has_extension() ) continue;
      std::string bytes = bytesOf( entry.path() );
      std::vector<size_t> taken;
      uint32_t fields = 0;
      std::memcpy( &fields, bytes.data() + 84, sizeof fields );
      const size_t header = 144 + 72 * fields;  // doc/tables.md
      for ( size_t at = headers ? 0 : header; at + 8 <= bytes.size(); at += 8 ) {
         if ( bytes.compare( at, 8, std::string( 8, '\0' ) ) != 0 )
            taken.push_back( at );
      }
      std::fstream file( entry.path(),
                         std::ios::in | std::ios::out | std::ios::binary );
      for ( int i = 0; i < 6 && !taken.empty(); ++i ) {
         size_t at = taken[random() % taken.size()] + random() % 8;
         file.seekp( static_cast<std::streamoff>( at ) );
         file.put( static_cast<char>( bytes[at] ^ static_cast<char>( random() ) ) );
      }
   }
}

// Repairable tables are repaired, the others start empty; the next agent has
// nothing to report.
TEST_F( AgentProgram, StartsOverWhateverDamageAndEndsIt ) {
   const uint64_t seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   for ( int round = 0; round < 6 && !HasFailure(); ++round ) {
      ASSERT_EQ( runToEnd( site.fedAgent( { "--exit-at-end" } ) ).status, 0 );
      damageTables( site.root(), random, round >= 4 );
      Ended repairing = runToEnd( site.agent( { "--exit-at-end" } ) );
      EXPECT_EQ( repairing.status, 0 ) << repairing.err;
      EXPECT_NE( repairing.err.find( site.root() ), std::string::npos )
         << "no table is named: " << repairing.err;
      Ended next = runToEnd( site.agent( { "--exit-at-end" } ) );
      EXPECT_EQ( next.status, 0 ) << next.err;
      EXPECT_EQ( next.err.find( site.root() ), std::string::npos ) << next.err;
   }
}

}
}
