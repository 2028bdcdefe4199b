// Runs a fuzz target without libFuzzer: on all seeds, then on mutations of them.
//
// usage: fuzz_<name> [-runs=N] [-seed=S] [-only=R [-print=1]] FILE|DIRECTORY...
//
// The mutations depend on the seed alone; -only repeats run R, -print writes its
// input to standard output instead. A run that fails, or takes longer than 30 s, is
// named.

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size );

namespace {

using Bytes = std::vector<uint8_t>;

unsigned long seed = 1;
unsigned long runs = 1000;
unsigned long only = 0;  // 0: all
unsigned long print = 0;
volatile unsigned long run = 0;

void handleSignal( int number ) {
   std::fprintf( stderr, "%s in run %lu of seed %lu\n",
                 number == SIGALRM ? "still busy after 30 s" : "broke", run, seed );
   signal( number, SIG_DFL );
   raise( number == SIGALRM ? SIGABRT : number );
}

Bytes contentsOf( const std::filesystem::path& path ) {
   std::ifstream file( path, std::ios::binary );
   return { std::istreambuf_iterator<char>( file ), {} };
}

std::vector<Bytes> seedsFrom( const std::vector<std::string>& paths ) {
   std::vector<std::filesystem::path> files;
   for ( const std::string& path : paths ) {
      if ( !std::filesystem::is_directory( path ) ) {
         files.emplace_back( path );
         continue;
      }
      for ( const auto& entry : std::filesystem::directory_iterator( path ) )
         files.push_back( entry.path() );
   }
   std::sort( files.begin(), files.end() );
   std::vector<Bytes> seeds;
   for ( const auto& file : files ) seeds.push_back( contentsOf( file ) );
   if ( seeds.empty() ) seeds.emplace_back();
   return seeds;
}

class Mutator {
 public:
   explicit Mutator( const std::vector<Bytes>& seeds ) : seeds_( seeds ) {}

   Bytes make( unsigned long number ) {
      random_.seed( seed * 1000003 + number );
      Bytes bytes = anySeed();
      for ( size_t steps = 1 + below( 8 ); steps > 0; --steps ) mutate( bytes );
      return bytes;
   }

 private:
   size_t below( size_t n ) { return random_() % std::max<size_t>( n, 1 ); }
   const Bytes& anySeed() { return seeds_[below( seeds_.size() )]; }

   void mutate( Bytes& bytes ) {
      size_t at = below( bytes.size() + 1 );
      auto place = bytes.begin() + static_cast<std::ptrdiff_t>( at );
      switch ( below( 7 ) ) {
         case 0:  // truncated
            return bytes.resize( at );
         case 1:
            bytes.insert( place, static_cast<uint8_t>( random_() ) );
            return;
         case 2: {  // the rest from another seed
            const Bytes& other = anySeed();
            auto from = static_cast<std::ptrdiff_t>( below( other.size() ) );
            bytes.resize( at );
            bytes.insert( bytes.end(), other.begin() + from, other.end() );
            return;
         }
         case 3:  // doubled
            bytes.insert( bytes.end(), bytes.begin(), place );
            return;
         default:
            break;
      }
      if ( at >= bytes.size() ) return;
      switch ( below( 4 ) ) {
         case 0:
            bytes[at] = static_cast<uint8_t>( random_() );
            return;
         case 1:
            bytes[at] ^= static_cast<uint8_t>( 1u << below( 8 ) );
            return;
         case 2:
            bytes[at] = below( 2 ) != 0 ? 0xff : 0;
            return;
         default:
            bytes.erase( bytes.begin() + static_cast<std::ptrdiff_t>( at ) );
      }
   }

   const std::vector<Bytes>& seeds_;
   std::mt19937_64 random_;
};

void runOne( unsigned long number, const Bytes& bytes ) {
   run = number;
   alarm( 30 );
   // A copy of the exact size, so that reading one byte too far is noticed.
   Bytes exact( bytes );
   exact.shrink_to_fit();
   LLVMFuzzerTestOneInput( exact.data(), exact.size() );
}

bool option( const std::string& word, const char* name, unsigned long& value ) {
   std::string start = std::string( "-" ) + name + "=";
   if ( word.compare( 0, start.size(), start ) != 0 ) return false;
   value = std::strtoul( word.c_str() + start.size(), nullptr, 10 );
   return true;
}

}

int main( int argc, char** argv ) {
   std::vector<std::string> paths;
   for ( int i = 1; i < argc; ++i ) {
      std::string word = argv[i];
      if ( option( word, "runs", runs ) || option( word, "seed", seed ) ||
           option( word, "only", only ) || option( word, "print", print ) )
         continue;
      paths.push_back( word );
   }
   for ( int number : { SIGABRT, SIGALRM } ) signal( number, handleSignal );
   std::vector<Bytes> seeds = seedsFrom( paths );
   Mutator mutator( seeds );
   if ( only != 0 ) {
      Bytes bytes = mutator.make( only );
      if ( print == 0 ) runOne( only, bytes );
      size_t wanted = print == 0 ? 0 : bytes.size();
      return std::fwrite( bytes.data(), 1, wanted, stdout ) == wanted ? 0 : 1;
   }
   for ( const Bytes& bytes : seeds ) runOne( 0, bytes );
   for ( unsigned long number = 1; number <= runs; ++number )
      runOne( number, mutator.make( number ) );
   std::printf( "%zu seeds and %lu mutations of them, seed %lu\n", seeds.size(),
                runs, seed );
   return 0;
}
