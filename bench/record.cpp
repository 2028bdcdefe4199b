// The cost of recording a full router: in SQLite, and beside it in a server of NATS where
// one is installed. Of each:
//
//    first       `pimsm-record --once` into an empty store
//    again       the same over what stands: nothing is written
//    bare        the peer: the same values, put by SQLite or the client's library alone
//    churn       changes of single interfaces at a rate, while the recorder runs: what
//                the agent's writer takes for a record beside it and beside nobody, the
//                recorder's processor time and memory, and how long after the last
//                change the store has everything
//    seen        single changes, each after the one before is seen: the time from the
//                change, and from its publication in the tables, until a reader of the
//                store has its line of history
//
// Prints one line a figure.
// `bench_record <routes> <interfaces a route> <changes a second> <seconds>`.

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "apps/store/Store.h"
#include "bench/BareStores.h"
#include "bench/FullAgent.h"
#include "tests/support/NatsServers.h"

namespace Routing::Pim::SparseMode {
namespace {

// A store, and where its files are.
struct Place {
   std::string store, files;
};

Words recorder( const std::string& root, const std::string& store ) {
   return { "pimsm-record", "--root", root,       "--store", store,
            "--router",     "r1",     "--sample", "3600" };
}

void once( const char* what, const std::string& root, const Place& place ) {
   Words words = recorder( root, place.store );
   words.emplace_back( "--once" );
   rusage usage{};
   const Times times = timesOf( [&] {
      const pid_t pid = fork();
      if ( pid == 0 ) exec( PIMSM_RECORD, words );
      int status = 0;
      wait4( pid, &status, 0, &usage );
      if ( status != 0 ) std::exit( 1 );
   } );
   uint64_t bytes = 0;
   for ( const auto& file :
         std::filesystem::recursive_directory_iterator( place.files ) )
      if ( file.is_regular_file() ) bytes += file.file_size();
   fmt::print(
      "{}: {:.2f} s, processor time {:.2f} s, {:.0f} MB, store {:.0f} MB\n", what,
      times.wall, times.cpu, static_cast<double>( usage.ru_maxrss ) / 1000,
      static_cast<double>( bytes ) / 1e6 );
   std::fflush( stdout );
}

void bare( const Place& place, const std::string& files ) {
   Bare::Values values;
   Fleet::openReader( { place.store } )
      ->each( "r1", "", [&]( const std::string& key, const std::string& value ) {
         values[key] = value;
      } );
   const double wall = BenchClock::wall();
   timespec began{}, ended{};
   clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &began );
   if ( place.store.starts_with( "sqlite:" ) )
      Bare::insert( files + "/bare", values );
   else
      Bare::publish( place.store, values );
   clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &ended );
   fmt::print( "bare: {} values in {:.2f} s, processor time {:.2f} s\n",
               values.size(), BenchClock::wall() - wall,
               static_cast<double>( ended.tv_sec - began.tv_sec ) +
                  1e-9 * static_cast<double>( ended.tv_nsec - began.tv_nsec ) );
}

// The value of a route in the store; empty before it stands there.
std::string stored( const std::string& store, const RouteKey& key ) {
   const std::string text = Fleet::keyText(
      { Fleet::Key::route, { "default", Vantu::AddressFamily::ipv4 }, key } );
   try {
      return Fleet::openReader( { store } )->values( "r1", { text } )[text];
   } catch ( const Mox::Error& ) {
      return "";
   }
}

void churn( Agent& agent, const std::string& root, const std::string& store,
            double rate, double seconds ) {
   const Words words = recorder( root, store );
   std::vector<double> writer;
   for ( const bool recorded : { false, true } ) {
      std::unique_ptr<Beside> beside;
      if ( recorded ) {
         const pid_t pid = fork();
         if ( pid == 0 ) exec( PIMSM_RECORD, words );
         beside = std::make_unique<Beside>( pid );
         agent.churn( rate, 2.0 );  // until it has compared
      }
      const double cpu = beside ? beside->cpu() : 0;
      writer.push_back( agent.churn( rate, seconds ) );
      if ( !beside ) continue;
      const double used = ( beside->cpu() - cpu ) / seconds;
      const RouteKey last = agent.touchLast();
      const double began = BenchClock::wall();
      const std::string before = stored( store, last );
      while ( stored( store, last ) == before && BenchClock::wall() < began + 10 )
         usleep( 1000 );
      fmt::print(
         "{:.0f} changes/s: recorder {:.2f} cores, {:.0f} MB; the last change "
         "stands after {:.0f} ms\n",
         rate, used, beside->memory(), 1e3 * ( BenchClock::wall() - began ) );
   }
   fmt::print(
      "writer beside the recorder: {:.0f} ns a record, {:.2f} of {:.0f} beside "
      "nobody\n",
      writer[1], writer[1] / writer[0], writer[0] );
}

void seen( Agent& agent, const std::string& root, const std::string& store ) {
   constexpr size_t kChanges = 300;
   const pid_t pid = fork();
   if ( pid == 0 ) exec( PIMSM_RECORD, recorder( root, store ) );
   const Beside beside( pid );
   agent.churn( 10, 3.0 );  // until it has compared
   const auto reader = Fleet::openReader( { store } );
   std::mt19937 random( 1 );
   std::vector<double> changed, published;
   while ( changed.size() < kChanges ) {
      usleep( 20'000 + random() % 50'000 );
      const int64_t last = reader->newest( "r1" );
      const double began = BenchClock::wall();
      agent.touchLast();
      const double stood = BenchClock::wall();
      while ( reader->newest( "r1" ) == last && BenchClock::wall() < stood + 10 )
         usleep( 100 );
      changed.push_back( 1e3 * ( BenchClock::wall() - began ) );
      published.push_back( 1e3 * ( BenchClock::wall() - stood ) );
   }
   for ( auto* each : { &changed, &published } )
      std::sort( each->begin(), each->end() );
   const auto at = []( const std::vector<double>& all, double share ) {
      return all[static_cast<size_t>( share *
                                      static_cast<double>( all.size() - 1 ) )];
   };
   fmt::print(
      "seen in the store after a change: median {:.1f} ms, 99 % {:.1f} ms, most "
      "{:.1f} ms; after its publication: {:.1f}, {:.1f}, {:.1f} ms\n",
      at( changed, 0.5 ), at( changed, 0.99 ), changed.back(), at( published, 0.5 ),
      at( published, 0.99 ), published.back() );
}

}
}

int main( int argc, char** argv ) {
   using namespace Routing::Pim::SparseMode;
   const Size size = sizeOf( argc, argv );
   const double rate = argc > 3 ? std::atof( argv[3] ) : 2000;
   const double seconds = argc > 4 ? std::atof( argv[4] ) : 10;
   char root[] = "/dev/shm/pimsm-bench-XXXXXX";
   if ( mkdtemp( root ) == nullptr ) return 1;
   // On a disk, as stores are.
   char files[] = "/var/tmp/pimsm-bench-XXXXXX";
   if ( mkdtemp( files ) == nullptr ) return 1;
   std::vector<Place> places{ { std::string( "sqlite:" ) + files, files } };
   std::optional<Mox::Test::NatsServers> servers;
   if ( !Mox::Test::NatsServers::program().empty() ) {
      servers.emplace( 1, "", "/var/tmp" );
      places.push_back( { servers->url(), servers->directory() } );
   }
   {
      Agent agent( root, size );
      for ( const Place& place : places ) {
         fmt::print( "{}\n", place.store );
         once( "first", root, place );
         once( "again", root, place );
         bare( place, files );
         churn( agent, root, place.store, rate, seconds );
         seen( agent, root, place.store );
      }
   }
   std::filesystem::remove_all( root );
   std::filesystem::remove_all( files );
   return 0;
}
