// The cost of publishing a full router's state, and of rebuilding it elsewhere:
// 10,000 routes with 600,000 interfaces.
//
//    writer      marks everything and publishes it from scratch; rewrites all of it;
//                its peer is none: records a second, and the longest slice against
//                the quantum
//    reader      in another process, rebuilds the model from notifications; its peer
//                builds the same model there directly, from the same values
//    reconciler  in another process, loads the tables into a fresh model; same peer
//    restart     a new writer takes the tables over and loads them; the longest slice
//                against the quantum of 100 ms and one entry
//
// Prints one line a figure. `bench_export <routes> <interfaces a route> <rounds>`.

#include <fmt/format.h>

#include <filesystem>
#include <random>

#include "bench/FullModel.h"

namespace Routing::Pim::SparseMode {
namespace {

void check( size_t records, const Size& size ) {
   if ( records == size.records() ) return;
   fmt::print( stderr, "rebuilt {} of {} records\n", records, size.records() );
   std::exit( 1 );
}

// The reading process. `go` sends it a byte when the tables are there and another
// when all is published; it sends a byte by `ready` once it follows.
void readInChild( const std::string& root, const Size& size, int ready, int go ) {
   Values values( size );
   char byte = 0;
   Values shuffled = values;
   std::shuffle( shuffled.intfs.begin(), shuffled.intfs.end(), std::mt19937( 1 ) );
   std::vector<double> direct, anyOrder, loaded;
   if ( read( go, &byte, 1 ) != 1 ) std::exit( 1 );
   Side follower( root, ::Brane::tableReader, size );
   auto reader =
      Brane::routeBraneReaderSmFactory( follower.model, follower.tables );
   follower.reload( ::Brane::tableReader );
   if ( write( ready, &byte, 1 ) != 1 || read( go, &byte, 1 ) != 1 ) std::exit( 1 );
   double began = BenchClock::wall();
   auto seen = [&] {
      return follower.tables->route().size() + follower.tables->routeIntf().size();
   };
   // The last changes may still wait for their notification.
   auto done = [&] {
      return seen() == size.records() && follower.tables->route().quiesced() &&
             follower.tables->routeIntf().quiesced();
   };
   while ( !done() && BenchClock::wall() < began + 60 ) follower.manager.dispatch();
   double followed = BenchClock::wall() - began;
   check( follower.records(), size );
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      direct.push_back( inChild( [&] { return buildDirectly( values ); } ) );
      anyOrder.push_back( inChild( [&] { return buildDirectly( shuffled ); } ) );
      loaded.push_back( inChild( [&] {
         Side fresh( root, ::Brane::tableReader, size );
         double seconds = fresh.reload( ::Brane::tableReader );
         check( fresh.records(), size );
         return seconds;
      } ) );
   }
   double peer = median( direct );
   fmt::print( "direct:     {:.0f} ms route by route, {:.0f} ms in random order\n",
               1e3 * peer, 1e3 * median( anyOrder ) );
   fmt::print( "reader:     {:.0f} ms, {:.2f} of direct\n", 1e3 * followed,
               followed / peer );
   fmt::print( "reconciler: {:.0f} ms, {:.2f} of direct\n", 1e3 * median( loaded ),
               median( loaded ) / peer );
   std::fflush( stdout );
}

// Publishes all marked changes; prints the rate and the longest slice.
void publish( const char* what, Side& agent, Brane::RouteBraneWriterSm& writer,
              const Size& size ) {
   double began = BenchClock::wall();
   double worked = 0;
   std::vector<double> slices;
   while ( !writer.changeSet()->empty() || !writer.reviewChangeSet()->empty() ) {
      slices.push_back( agent.clock.pass() );
      agent.manager.dispatch();
      worked += slices.back();
   }
   fmt::print(
      "{}: {} records in {:.0f} ms of slices ({:.0f} ms in all), {:.2f} "
      "million a second; longest slice {:.2f} ms, median {:.2f} ms\n",
      what, size.records(), 1e3 * worked, 1e3 * ( BenchClock::wall() - began ),
      1e-6 * size.records() / worked,
      1e3 * *std::max_element( slices.begin(), slices.end() ),
      1e3 * median( slices ) );
   std::fflush( stdout );
}

void writeHere( const std::string& root, const Size& size, int ready, int go ) {
   Values values( size );
   Side agent( root, ::Brane::tableWriter, size );
   char byte = 0;
   if ( write( go, &byte, 1 ) != 1 || read( ready, &byte, 1 ) != 1 ) std::exit( 1 );
   agent.model->initializedIs( true );
   auto writer =
      Brane::routeBraneWriterSmFactory( agent.model, agent.tables, &agent.clock );
   double began = BenchClock::wall();
   fill( *agent.model, values );
   fmt::print( "observed build: {:.0f} ms\n",
               1e3 * ( BenchClock::wall() - began ) );
   publish( "publish", agent, *writer, size );
   for ( const Route& route : agent.model->route() ) {
      for ( const Intf& each : route.routeIntf() ) {
         const_cast<Intf&>( each ).forwardIs( !each.forward() );
      }
      const_cast<Route&>( route ).spTreeIs( true );
   }
   publish( "rewrite", agent, *writer, size );
   if ( write( go, &byte, 1 ) != 1 ) std::exit( 1 );
   wait( nullptr );
}

// Runs after the writer has gone, as the next agent's start.
void restart( const std::string& root, const Size& size ) {
   std::vector<double> loaded;
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      loaded.push_back( inChild( [&] {
         double began = BenchClock::wall();
         Side agent( root, ::Brane::tableWriter, size );
         double mount = BenchClock::wall() - began;
         double seconds = agent.reload( ::Brane::tableWriter );
         check( agent.records(), size );
         fmt::print(
            "restart:    mount {:.0f} ms, reload {:.0f} ms, longest slice "
            "{:.2f} ms\n",
            1e3 * mount, 1e3 * seconds, 1e3 * agent.longestSlice );
         std::fflush( stdout );
         return seconds;
      } ) );
   }
   fmt::print( "restart:    reload {:.0f} ms, median\n", 1e3 * median( loaded ) );
}

}
}

int main( int argc, char** argv ) {
   using namespace Routing::Pim::SparseMode;
   const Size size = sizeOf( argc, argv );
   char name[] = "/dev/shm/pimsm-bench-XXXXXX";
   int ready[2], go[2];
   if ( mkdtemp( name ) == nullptr || pipe( ready ) != 0 || pipe( go ) != 0 )
      return 1;
   pid_t child = fork();
   if ( child == 0 ) {
      readInChild( name, size, ready[1], go[0] );
      return 0;
   }
   writeHere( name, size, ready[0], go[1] );
   restart( name, size );
   std::filesystem::remove_all( name );
   return 0;
}
