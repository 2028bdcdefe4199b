// A full router's state, and its publishing and rebuilding, for benchmarks.
#pragma once

#include <fmt/format.h>
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
inline double buildDirectly( const Values& values,
                             double ( *clock )() = BenchClock::wall ) {
   Mox::Ptr<Status> model = statusFactory( L3::VrfName( "default" ) );
   double began = clock();
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
   return clock() - began;
}

// Runs `measure` in a child process, which starts like a reader with an untouched
// heap.
inline double inChild( const std::function<double()>& measure ) {
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

inline double median( std::vector<double> times ) {
   std::sort( times.begin(), times.end() );
   return times[times.size() / 2];
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

}
