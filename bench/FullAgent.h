// A full router's agent, and programs that run beside it, for benchmarks.
#pragma once

#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <fstream>
#include <memory>
#include <thread>

#include "bench/FullModel.h"

namespace Routing::Pim::SparseMode {

using Words = std::vector<std::string>;

[[noreturn]] inline void exec( const char* program, Words words ) {
   std::vector<char*> arguments;
   for ( std::string& word : words ) arguments.push_back( word.data() );
   arguments.push_back( nullptr );
   execv( program, arguments.data() );
   _exit( 127 );
}

// The times of `work`, which waits for its child.
inline Times timesOf( const std::function<void()>& work ) {
   const Times began = Times::now( RUSAGE_CHILDREN );
   work();
   return Times::now( RUSAGE_CHILDREN ) - began;
}

// A process beside the agent, while the object lives.
class Beside {
 public:
   explicit Beside( pid_t pid ) : pid_( pid ) {}
   ~Beside() {
      kill( pid_, SIGTERM );
      waitpid( pid_, nullptr, 0 );
      if ( drain_.joinable() ) drain_.join();
   }
   Beside( const Beside& ) = delete;
   Beside& operator=( const Beside& ) = delete;

   // Discards the output to the process's terminal.
   void drain( int terminal ) {
      drain_ = std::thread( [terminal] {
         char buffer[65536];
         while ( read( terminal, buffer, sizeof buffer ) > 0 ) continue;
         close( terminal );
      } );
   }
   // Processor time so far, s.
   double cpu() const {
      clockid_t clock;
      clock_getcpuclockid( pid_, &clock );
      return BenchClock::seconds( clock );
   }
   // Most memory so far, MB.
   double memory() const {
      std::ifstream status( fmt::format( "/proc/{}/status", pid_ ) );
      for ( std::string word; status >> word; ) {
         double kB = 0;
         if ( word == "VmHWM:" && status >> kB ) return kB / 1000;
      }
      return 0;
   }

 private:
   pid_t pid_;
   std::thread drain_;
};

class Agent {
 public:
   Agent( const std::string& root, const Size& size )
      : size_( size ), side_( root, ::Brane::tableWriter, size ) {
      side_.model->initializedIs( true );
      writer_ = Brane::routeBraneWriterSmFactory( side_.model, side_.tables,
                                                  &side_.clock );
      fill( *side_.model, Values( size ) );
      publish();
   }

   // The writer's processor time for a record, in nanoseconds.
   double rewrite() {
      for ( const Route& route : side_.model->route() ) {
         for ( const Intf& each : route.routeIntf() )
            const_cast<Intf&>( each ).forwardIs( !each.forward() );
         const_cast<Route&>( route ).spTreeIs( !route.spTree() );
      }
      return 1e9 * publish() / size_.records();
   }

   // Changes single interfaces at that rate, in turn over all routes. Returns the
   // writer's processor time for a change, in nanoseconds.
   double churn( double rate, double seconds ) {
      constexpr double kSlice = 0.02;  // s
      const double end = BenchClock::wall() + seconds;
      double worked = 0, changes = 0;
      while ( BenchClock::wall() < end ) {
         const double began = BenchClock::wall();
         for ( double i = 0; i < rate * kSlice; ++i ) touch();
         changes += rate * kSlice;
         worked += publish();
         const double left = began + kSlice - BenchClock::wall();
         if ( left > 0 ) usleep( static_cast<useconds_t>( 1e6 * left ) );
      }
      return 1e9 * worked / changes;
   }
   // Changes one more, and returns its key.
   RouteKey touchLast() {
      const RouteKey key = touch();
      publish();
      return key;
   }

 private:
   RouteKey touch() {
      // Neighbouring changes are of different routes, as they are in a network.
      constexpr unsigned kStep = 7919;
      next_ = ( next_ + kStep ) % size_.routes;
      Route* route = side_.model->route( keyOf( next_ ) );
      for ( const Intf& each : route->routeIntf() ) {
         const_cast<Intf&>( each ).forwardIs( !each.forward() );
         break;
      }
      return route->key();
   }
   double publish() {
      double worked = 0;
      writer_->doMaybeUpdateReviewTimer();  // for changes of interfaces alone
      while ( !writer_->changeSet()->empty() ||
              !writer_->reviewChangeSet()->empty() ) {
         const double left = side_.clock.nextWakeup() - BenchClock::wall();
         if ( left > 0 )
            usleep( static_cast<useconds_t>( std::ceil( 1e6 * left ) ) );
         const double began = BenchClock::cpu();
         side_.clock.pass();
         worked += BenchClock::cpu() - began;
         side_.manager.dispatch();
      }
      return worked;
   }

   Size size_;
   unsigned next_ = 0;
   Side side_;
   Mox::Ptr<Brane::RouteBraneWriterSm> writer_;
};

}
