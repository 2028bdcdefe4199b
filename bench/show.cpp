// The cost of the show tool on a full router's tables: 10,000 routes with 600,000
// interfaces.
//
//    count       `routes --count` from its start to its end, against building the
//                same model directly in a process of its own
//    watch       at a terminal, and as lines, while the agent rewrites everything over
//                and over: processor time a second, memory; and what the agent's writer
//                takes for a record meanwhile, against one plain mirror beside it
//
// Prints one line a figure. `bench_show <routes> <interfaces a route> <rounds>`.

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <pty.h>
#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include "bench/FullModel.h"
#include "platform/loop/RealClock.h"

namespace Routing::Pim::SparseMode {
namespace {

using Words = std::vector<std::string>;

[[noreturn]] void exec( const char* program, Words words ) {
   std::vector<char*> arguments;
   for ( std::string& word : words ) arguments.push_back( word.data() );
   arguments.push_back( nullptr );
   execv( program, arguments.data() );
   _exit( 127 );
}

// Seconds by the wall clock and of processor time.
struct Times {
   double wall = 0, cpu = 0;
};

double cpuOfChildren() {
   rusage usage{};
   getrusage( RUSAGE_CHILDREN, &usage );
   auto seconds = []( const timeval& t ) {
      return static_cast<double>( t.tv_sec ) +
             1e-6 * static_cast<double>( t.tv_usec );
   };
   return seconds( usage.ru_utime ) + seconds( usage.ru_stime );
}

// The times of `work`, which waits for its child.
Times timesOf( const std::function<void()>& work ) {
   const double wall = BenchClock::wall(), cpu = cpuOfChildren();
   work();
   return { BenchClock::wall() - wall, cpuOfChildren() - cpu };
}

// Runs the tool to its end and discards its output.
void show( const Words& words ) {
   const pid_t pid = fork();
   if ( pid == 0 ) {
      dup2( open( "/dev/null", O_WRONLY ), STDOUT_FILENO );
      exec( PIMSM_SHOW, words );
   }
   int status = 0;
   waitpid( pid, &status, 0 );
   if ( status != 0 ) {
      fmt::print( stderr, "{} ended with {}\n", words[1], status );
      std::exit( 1 );
   }
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

std::unique_ptr<Beside> watchOnScreen( const std::string& root ) {
   int terminal = -1;
   winsize size{ 50, 200, 0, 0 };
   const pid_t pid = forkpty( &terminal, nullptr, nullptr, &size );
   if ( pid == 0 ) {
      setenv( "TERM", "xterm", 1 );
      exec( PIMSM_SHOW, { "pimsm-show", "watch", "--root", root } );
   }
   auto beside = std::make_unique<Beside>( pid );
   beside->drain( terminal );
   return beside;
}

std::unique_ptr<Beside> watchAsLines( const std::string& root ) {
   const pid_t pid = fork();
   if ( pid == 0 ) {
      dup2( open( "/dev/null", O_WRONLY ), STDOUT_FILENO );
      exec( PIMSM_SHOW, { "pimsm-show", "watch", "--json-lines", "--root", root } );
   }
   return std::make_unique<Beside>( pid );
}

// The common work of every reader, and no more.
[[noreturn]] void mirrorHere( const std::string& root ) {
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager( clock, &loop, root );
   Mox::Ptr<Status> model = statusFactory( L3::VrfName( "default" ) );
   auto tables = Brane::Status::mountInDependencyOrder(
      manager,
      Brane::Status::mountPath( Vantu::AddressFamily::ipv4, model->vrfName() ),
      ::Brane::tableReader, nullptr );
   auto reader = Brane::routeBraneReaderSmFactory( model, tables );
   auto restart = Brane::routeBraneRestartSmFactory( model, tables,
                                                     ::Brane::tableReader, &clock );
   loop.run();
   std::exit( 0 );
}

// A new process of this program, without the agent's memory.
std::unique_ptr<Beside> mirror( const std::string& root ) {
   const pid_t pid = fork();
   if ( pid == 0 ) exec( "/proc/self/exe", { "bench_show", "--mirror", root } );
   return std::make_unique<Beside>( pid );
}

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

 private:
   double publish() {
      double worked = 0;
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
   Side side_;
   Mox::Ptr<Brane::RouteBraneWriterSm> writer_;
};

void count( const std::string& root, const Size& size ) {
   const Values values( size );
   std::vector<double> direct, wall, cpu, directCpu;
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      direct.push_back( inChild( [&] { return buildDirectly( values ); } ) );
      directCpu.push_back(
         inChild( [&] { return buildDirectly( values, BenchClock::cpu ); } ) );
      const Times times = timesOf( [&] {
         show( { "pimsm-show", "routes", "--count", "--root", root } );
      } );
      wall.push_back( times.wall );
      cpu.push_back( times.cpu );
   }
   fmt::print(
      "routes --count: {:.0f} ms, {:.2f} of the direct build's {:.0f} ms; "
      "processor time {:.0f} ms, {:.2f} of {:.0f}\n",
      1e3 * median( wall ), median( wall ) / median( direct ),
      1e3 * median( direct ), 1e3 * median( cpu ),
      median( cpu ) / median( directCpu ), 1e3 * median( directCpu ) );
   std::fflush( stdout );
}

struct Company {
   const char* name;
   std::function<std::unique_ptr<Beside>()> start;
   std::vector<double> writer, rate, cores;
   double memory = 0;
};

// Rewrites everything `kRewrites` times beside each process, in turns.
void watch( Agent& agent, const std::string& root, const Size& size ) {
   constexpr int kRewrites = 5;
   Company companies[] = {
      { "nobody", [] { return nullptr; }, {}, {}, {} },
      { "a mirror", [&] { return mirror( root ); }, {}, {}, {} },
      { "watch, screen", [&] { return watchOnScreen( root ); }, {}, {}, {} },
      { "watch, lines", [&] { return watchAsLines( root ); }, {}, {}, {} } };
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      for ( Company& company : companies ) {
         const std::unique_ptr<Beside> beside = company.start();
         agent.rewrite();  // until it has reloaded the tables
         const double began = BenchClock::wall(), cpu = beside ? beside->cpu() : 0;
         std::vector<double> times;
         for ( int k = 0; k < kRewrites; ++k ) times.push_back( agent.rewrite() );
         const double span = BenchClock::wall() - began;
         company.writer.push_back( median( times ) );
         company.rate.push_back( kRewrites * size.records() / span );
         if ( !beside ) continue;
         company.cores.push_back( ( beside->cpu() - cpu ) / span );
         company.memory = std::max( company.memory, beside->memory() );
      }
   }
   for ( const Company& company : companies ) {
      fmt::print( "writer beside {}: {:.0f} ns a record, {:.0f} records a second",
                  company.name, median( company.writer ), median( company.rate ) );
      if ( !company.cores.empty() )
         fmt::print( ", {:.2f} of one mirror; {:.2f} cores, {:.0f} MB",
                     median( company.writer ) / median( companies[1].writer ),
                     median( company.cores ), company.memory );
      fmt::print( "\n" );
      std::fflush( stdout );
   }
}

}
}

int main( int argc, char** argv ) {
   using namespace Routing::Pim::SparseMode;
   if ( argc == 3 && argv[1] == std::string( "--mirror" ) ) mirrorHere( argv[2] );
   const Size size = sizeOf( argc, argv );
   char root[] = "/dev/shm/pimsm-bench-XXXXXX";
   if ( mkdtemp( root ) == nullptr ) return 1;
   {
      Agent agent( root, size );
      count( root, size );
      watch( agent, root, size );
   }
   std::filesystem::remove_all( root );
   return 0;
}
