// The cost of publishing a full router's state, and of rebuilding it elsewhere:
// 10,000 routes with 600,000 interfaces.
//
//    direct      builds the model from values in memory; the peer of all below
//    observed    builds it before the writer's eyes
//    publish     publishes it from scratch; the longest slice against the quantum
//    rewrite     publishes a change of all of it
//    reader      in another process, rebuilds the model from notifications
//    reconciler  in another process, loads the tables into a fresh model
//    restart     a new writer takes the tables over and loads them; the longest slice
//                against the quantum of 100 ms and one entry
//
// Prints one line a figure: the clock, and the processor's time outside the kernel, each
// as a multiple of the direct build's. `bench_export <routes> <interfaces a route> <rounds>`.

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

// What the writing process tells of itself.
struct Written {
   Times observed, publish, rewrite;
};

// The reading process. `go` sends it a byte when the tables are there and what the
// writer took when all is published; it sends a byte by `ready` once it follows.
void readInChild( const std::string& root, const Size& size, int ready, int go ) {
   Values values( size );
   char byte = 0;
   Values shuffled = values;
   std::shuffle( shuffled.intfs.begin(), shuffled.intfs.end(), std::mt19937( 1 ) );
   std::vector<Times> direct, anyOrder, loaded;
   if ( read( go, &byte, 1 ) != 1 ) std::exit( 1 );
   Side follower( root, ::Brane::tableReader, size );
   auto reader =
      Brane::routeBraneReaderSmFactory( follower.model, follower.tables );
   follower.reload( ::Brane::tableReader );
   Written written;
   if ( write( ready, &byte, 1 ) != 1 ||
        read( go, &written, sizeof written ) != sizeof written )
      std::exit( 1 );
   const Times began = Times::now();
   auto seen = [&] {
      return follower.tables->route().size() + follower.tables->routeIntf().size();
   };
   // The last changes may still wait for their notification.
   auto done = [&] {
      return seen() == size.records() && follower.tables->route().quiesced() &&
             follower.tables->routeIntf().quiesced();
   };
   while ( !done() && BenchClock::wall() < began.wall + 600 )
      follower.manager.dispatch();
   const Times followed = Times::now() - began;
   check( follower.records(), size );
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      direct.push_back( inChild( [&] { return buildDirectly( values ); } ) );
      anyOrder.push_back( inChild( [&] { return buildDirectly( shuffled ); } ) );
      loaded.push_back( inChild( [&] {
         Side fresh( root, ::Brane::tableReader, size );
         const Times took = fresh.reload( ::Brane::tableReader );
         check( fresh.records(), size );
         return took;
      } ) );
   }
   const Times peer = median( direct );
   for ( const auto& [what, took] :
         { std::pair( "direct", peer ),
           std::pair( "direct, in random order", median( anyOrder ) ),
           std::pair( "observed", written.observed ),
           std::pair( "publish", written.publish ),
           std::pair( "rewrite", written.rewrite ), std::pair( "reader", followed ),
           std::pair( "reconciler", median( loaded ) ) } )
      fmt::print( "{:<24} {:6.0f} ms {:5.2f}   user {:6.0f} ms {:5.2f}\n", what,
                  1e3 * took.wall, took.wall / peer.wall, 1e3 * took.user,
                  took.user / peer.user );
   std::fflush( stdout );
}

// Publishes all marked changes; prints the rate and the longest slice.
Times publish( const char* what, Side& agent, Brane::RouteBraneWriterSm& writer,
               const Size& size ) {
   Times worked;
   std::vector<double> slices;
   while ( !writer.changeSet()->empty() || !writer.reviewChangeSet()->empty() ) {
      agent.clock.untilDue();
      const Times began = Times::now();
      agent.clock.runPass();
      const Times took = Times::now() - began;
      worked += took;
      slices.push_back( took.wall );
      agent.manager.dispatch();
   }
   fmt::print(
      "{}: {} records, {:.2f} million a second; longest slice {:.2f} ms, "
      "median {:.2f} ms\n",
      what, size.records(), 1e-6 * size.records() / worked.wall,
      1e3 * *std::max_element( slices.begin(), slices.end() ),
      1e3 * median( slices ) );
   std::fflush( stdout );
   return worked;
}

void writeHere( const std::string& root, const Size& size, int ready, int go ) {
   Values values( size );
   Side agent( root, ::Brane::tableWriter, size );
   char byte = 0;
   if ( write( go, &byte, 1 ) != 1 || read( ready, &byte, 1 ) != 1 ) std::exit( 1 );
   agent.model->initializedIs( true );
   auto writer =
      Brane::routeBraneWriterSmFactory( agent.model, agent.tables, &agent.clock );
   Written written;
   const Times began = Times::now();
   fill( *agent.model, values );
   written.observed = Times::now() - began;
   written.publish = publish( "publish", agent, *writer, size );
   for ( const Route& route : agent.model->route() ) {
      for ( const Intf& each : route.routeIntf() ) {
         const_cast<Intf&>( each ).forwardIs( !each.forward() );
      }
      const_cast<Route&>( route ).spTreeIs( true );
   }
   written.rewrite = publish( "rewrite", agent, *writer, size );
   if ( write( go, &written, sizeof written ) != sizeof written ) std::exit( 1 );
   wait( nullptr );
}

// Runs after the writer has gone, as the next agent's start.
void restart( const std::string& root, const Size& size ) {
   std::vector<Times> loaded;
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      loaded.push_back( inChild( [&] {
         double began = BenchClock::wall();
         Side agent( root, ::Brane::tableWriter, size );
         double mount = BenchClock::wall() - began;
         const Times took = agent.reload( ::Brane::tableWriter );
         check( agent.records(), size );
         fmt::print(
            "restart:    mount {:.0f} ms, reload {:.0f} ms, longest slice "
            "{:.2f} ms\n",
            1e3 * mount, 1e3 * took.wall, 1e3 * agent.longestSlice );
         std::fflush( stdout );
         return took;
      } ) );
   }
   fmt::print( "restart:    reload {:.0f} ms, median\n",
               1e3 * median( loaded ).wall );
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
