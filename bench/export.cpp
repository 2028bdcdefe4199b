// What publishing a full router's state costs, and rebuilding it elsewhere:
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
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <vector>

#include "export/Conversion.h"
#include "export/RouteBraneReaderSm.h"
#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"
#include "platform/loop/TestClock.h"

namespace Routing::Pim::SparseMode {
namespace {

// The wall clock's time, passes run by hand.
class BenchClock : public Mox::TestClock {
 public:
   BenchClock() : TestClock( wall() ) {}
   double now() const override { return wall(); }
   // Waits for the next wake-up, runs a pass and returns its length in seconds.
   double pass() {
      double due = nextWakeup();
      while ( wall() < due ) {
      }
      nowIs( std::max( TestClock::now(), wall() ) );
      double began = wall();
      runPass();
      return wall() - began;
   }

   static double wall() {
      timespec t;
      clock_gettime( CLOCK_MONOTONIC, &t );
      return static_cast<double>( t.tv_sec ) +
             1e-9 * static_cast<double>( t.tv_nsec );
   }
};

struct Size {
   unsigned routes = 10000;
   unsigned intfs = 60;  // a route
   unsigned rounds = 5;
   unsigned records() const { return routes * ( 1 + intfs ); }
};

RouteKey keyOf( unsigned i ) {
   return {
      Vantu::IpGenAddr( fmt::format( "198.18.{}.{}", i / 250, i % 250 + 1 ) ),
      Vantu::IpGenAddr( fmt::format( "239.1.{}.{}", i / 250, i % 250 + 1 ) ) };
}

struct Values {
   explicit Values( const Size& size ) {
      for ( unsigned i = 0; i < size.routes; ++i ) {
         Brane::Route route( keyOf( i ) );
         route.rpf = { Vantu::IntfId( "eth0" ),
                       Vantu::IpGenAddr( "192.0.2.254" ),
                       110,
                       { 20 } };
         route.creationTime = i;
         routes.push_back( route );
         for ( unsigned j = 0; j < size.intfs; ++j ) {
            Brane::Intf intf(
               { route.key, Vantu::IntfId( "eth" + std::to_string( j ) ) } );
            intf.joinState = Intf::joined;
            intf.lastJoinReceived = j + 1;
            intf.forward = true;
            intfs.push_back( intf );
         }
      }
   }
   std::vector<Brane::Route> routes;
   std::vector<Brane::Intf> intfs;
};

// The peer of both ways to rebuild: the same setters, fed from memory, and the same
// counts and sources. Interfaces come in the order of `values`.
double buildDirectly( const Values& values ) {
   Mox::Ptr<Status> model = statusFactory( L3::VrfName( "default" ) );
   double began = BenchClock::wall();
   for ( const Brane::Route& record : values.routes ) {
      Mox::Ptr<Route> route = model->routeIs( record.key );
      Brane::doUpdateRoute( *route, record );
      model->sgRoutesInc( 1 );
      model->sourceIs( record.key.source )->sourceGroupIs( record.key.group, true );
   }
   for ( const Brane::Intf& record : values.intfs ) {
      Route* route = model->route( record.key.routeKey );
      Brane::doUpdateIntf( *route->routeIntfIs( record.key.intfId ), record );
   }
   for ( const Brane::Route& record : values.routes ) {
      model->route( record.key )->initializedIs( true );
   }
   return BenchClock::wall() - began;
}

// Runs `measure` in a process of its own, as a reader starts, its heap not yet touched.
double inChild( const std::function<double()>& measure ) {
   int result[2];
   double seconds = 0;
   if ( pipe( result ) != 0 ) std::exit( 1 );
   if ( fork() == 0 ) {
      seconds = measure();
      _exit( write( result[1], &seconds, sizeof seconds ) == sizeof seconds ? 0
                                                                            : 1 );
   }
   close( result[1] );
   if ( read( result[0], &seconds, sizeof seconds ) != sizeof seconds )
      std::exit( 1 );
   close( result[0] );
   wait( nullptr );
   return seconds;
}

double median( std::vector<double> times ) {
   std::sort( times.begin(), times.end() );
   return times[times.size() / 2];
}

struct Side {
   Side( const std::string& root, ::Brane::TableRole role, const Size& size )
      : manager( clock, nullptr, root ),
        model( statusFactory( L3::VrfName( "default" ) ) ) {
      model->maxRoutesIs( size.routes );
      model->maxRouteIntfsIs( size.routes * size.intfs );
      tables = Brane::Status::mountInDependencyOrder(
         manager,
         Brane::Status::mountPath( Vantu::AddressFamily::ipv4, model->vrfName() ),
         role, model.get() );
   }
   size_t records() const {
      size_t count = 0;
      for ( const Route& route : model->route() )
         count += 1 + route.routeIntf().size();
      return count;
   }
   double reload( ::Brane::TableRole role ) {
      double began = BenchClock::wall();
      auto restart =
         Brane::routeBraneRestartSmFactory( model, tables, role, &clock );
      while ( !model->initialized() )
         longestSlice = std::max( longestSlice, clock.pass() );
      return BenchClock::wall() - began;
   }

   BenchClock clock;
   Corvex::EntityManager manager;
   Mox::Ptr<Status> model;
   Mox::Ptr<Brane::Status> tables;
   double longestSlice = 0;  // s; of a reload
};

void check( size_t records, const Size& size ) {
   if ( records == size.records() ) return;
   fmt::print( stderr, "rebuilt {} of {} records\n", records, size.records() );
   std::exit( 1 );
}

// The reading process. `go` gives it a byte when the tables are there and another when
// all is published; `ready` gets one once it follows.
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
   while ( seen() < size.records() && BenchClock::wall() < began + 60 ) {
      follower.manager.dispatch();
   }
   // What was seen last may wait for its notification.
   follower.manager.dispatch();
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

// Publishes what is marked; prints the rate and the longest slice.
void publish( const char* what, Side& agent, Brane::RouteBraneWriterSm& writer,
              const Size& size ) {
   double began = BenchClock::wall();
   double worked = 0;
   std::vector<double> slices;
   while ( !writer.changeSet().empty() || !writer.reviewChangeSet().empty() ) {
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
   const Brane::Intf* intf = values.intfs.data();
   double began = BenchClock::wall();
   for ( const Brane::Route& record : values.routes ) {
      Mox::Ptr<Route> route = agent.model->routeIs( record.key );
      Brane::doUpdateRoute( *route, record );
      for ( unsigned j = 0; j < size.intfs; ++j, ++intf ) {
         Brane::doUpdateIntf( *route->routeIntfIs( intf->key.intfId ), *intf );
      }
   }
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

// After the writer has gone, as the next agent starts.
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
   Size size;
   if ( argc > 1 ) size.routes = static_cast<unsigned>( std::atoi( argv[1] ) );
   if ( argc > 2 ) size.intfs = static_cast<unsigned>( std::atoi( argv[2] ) );
   if ( argc > 3 ) size.rounds = static_cast<unsigned>( std::atoi( argv[3] ) );
   if ( size.routes == 0 || size.routes > 60000 || size.intfs == 0 ||
        size.rounds == 0 ) {
      fmt::print( stderr, "usage: bench_export [routes [interfaces [rounds]]]\n" );
      return 2;
   }
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
