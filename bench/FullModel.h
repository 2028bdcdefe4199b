// A full router's state, and its publishing and rebuilding, for benchmarks.
#pragma once

#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "export/Conversion.h"
#include "export/RouteBraneReaderSm.h"
#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"
#include "platform/loop/TestClock.h"

namespace Routing::Pim::SparseMode {

// The wall clock's time, passes run by hand.
class BenchClock : public Mox::TestClock {
 public:
   BenchClock() : TestClock( wall() ) {}
   double now() const override { return wall(); }
   // Waits for the next wake-up.
   void untilDue() {
      const double due = nextWakeup();
      while ( wall() < due ) {
      }
      nowIs( std::max( TestClock::now(), wall() ) );
   }
   void runDue() { runPass(); }
   // Both; the length of the second in seconds.
   double pass() {
      untilDue();
      const double began = wall();
      runPass();
      return wall() - began;
   }

   static double wall() { return seconds( CLOCK_MONOTONIC ); }
   // Processor time of this thread.
   static double cpu() { return seconds( CLOCK_THREAD_CPUTIME_ID ); }
   static double seconds( clockid_t clock ) {
      timespec t;
      clock_gettime( clock, &t );
      return static_cast<double>( t.tv_sec ) +
             1e-9 * static_cast<double>( t.tv_nsec );
   }
};

// Seconds by the wall clock, of processor time, and of its part outside the kernel,
// which leaves out the pages that a machine has to find. A moment or a difference.
struct Times {
   double wall = 0, cpu = 0, user = 0;

   // `who` as of getrusage().
   static Times now( int who = RUSAGE_THREAD ) {
      rusage usage = {};
      getrusage( who, &usage );
      auto seconds = []( const timeval& t ) {
         return static_cast<double>( t.tv_sec ) +
                1e-6 * static_cast<double>( t.tv_usec );
      };
      const double user = seconds( usage.ru_utime );
      return { BenchClock::wall(), user + seconds( usage.ru_stime ), user };
   }
   Times operator-( const Times& other ) const {
      return { wall - other.wall, cpu - other.cpu, user - other.user };
   }
   Times& operator+=( const Times& other ) {
      wall += other.wall;
      cpu += other.cpu;
      user += other.user;
      return *this;
   }
};

struct Size {
   unsigned routes = 10000;
   unsigned intfs = 60;  // per route
   unsigned rounds = 5;
   unsigned records() const { return routes * ( 1 + intfs ); }
};

// The limit of distinct addresses, more than a table takes records.
constexpr unsigned kMaxRoutes = 10'000'000;

// Parses the command line; ends the program on an error.
inline Size sizeOf( int argc, char** argv ) {
   Size size;
   if ( argc > 1 ) size.routes = static_cast<unsigned>( std::atoi( argv[1] ) );
   if ( argc > 2 ) size.intfs = static_cast<unsigned>( std::atoi( argv[2] ) );
   if ( argc > 3 ) size.rounds = static_cast<unsigned>( std::atoi( argv[3] ) );
   if ( size.routes != 0 && size.routes <= kMaxRoutes && size.intfs != 0 &&
        size.rounds != 0 )
      return size;
   fmt::print( stderr, "usage: {} [routes [interfaces [rounds]]]\n", argv[0] );
   std::exit( 2 );
}

inline RouteKey keyOf( unsigned i ) {
   const unsigned low = i % 250 + 1, middle = i / 250 % 250, high = i / 62500;
   return {
      Vantu::IpGenAddr( fmt::format( "10.{}.{}.{}", high, middle, low ) ),
      Vantu::IpGenAddr( fmt::format( "239.{}.{}.{}", 1 + high, middle, low ) ) };
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

// The peer of both ways to rebuild: the same setters, counts and sources, fed from
// memory. Interfaces come in the order of `values`.
inline Times buildDirectly( const Values& values ) {
   Mox::Ptr<Status> model = statusFactory( L3::VrfName( "default" ) );
   const Times began = Times::now();
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
   return Times::now() - began;
}

// Runs `measure` in a child process, which starts like a reader with an untouched
// heap.
inline Times inChild( const std::function<Times()>& measure ) {
   int result[2];
   Times took;
   if ( pipe( result ) != 0 ) std::exit( 1 );
   if ( fork() == 0 ) {
      took = measure();
      _exit( write( result[1], &took, sizeof took ) == sizeof took ? 0 : 1 );
   }
   close( result[1] );
   if ( read( result[0], &took, sizeof took ) != sizeof took ) std::exit( 1 );
   close( result[0] );
   wait( nullptr );
   return took;
}

inline double median( std::vector<double> times ) {
   std::sort( times.begin(), times.end() );
   return times[times.size() / 2];
}

inline Times median( const std::vector<Times>& all ) {
   auto of = [&]( double Times::*member ) {
      std::vector<double> values;
      for ( const Times& each : all ) values.push_back( each.*member );
      return median( std::move( values ) );
   };
   return { of( &Times::wall ), of( &Times::cpu ), of( &Times::user ) };
}

// Fills the model as an agent's engines would.
inline void fill( Status& model, const Values& values ) {
   for ( const Brane::Route& record : values.routes )
      Brane::doUpdateRoute( *model.routeIs( record.key ), record );
   for ( const Brane::Intf& record : values.intfs ) {
      Route* route = model.route( record.key.routeKey );
      Brane::doUpdateIntf( *route->routeIntfIs( record.key.intfId ), record );
   }
}

// One process's side of the tables.
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
   Times reload( ::Brane::TableRole role ) {
      const Times began = Times::now();
      auto restart =
         Brane::routeBraneRestartSmFactory( model, tables, role, &clock );
      while ( !model->initialized() )
         longestSlice = std::max( longestSlice, clock.pass() );
      return Times::now() - began;
   }

   BenchClock clock;
   Corvex::EntityManager manager;
   Mox::Ptr<Status> model;
   Mox::Ptr<Brane::Status> tables;
   double longestSlice = 0;  // s; of a reload
};

}
