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

#include <csignal>
#include <filesystem>

#include "bench/FullAgent.h"
#include "platform/loop/RealClock.h"

namespace Routing::Pim::SparseMode {
namespace {

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

void count( const std::string& root, const Size& size ) {
   const Values values( size );
   std::vector<Times> builds, shows;
   for ( unsigned i = 0; i < size.rounds; ++i ) {
      builds.push_back( inChild( [&] { return buildDirectly( values ); } ) );
      shows.push_back( timesOf( [&] {
         show( { "pimsm-show", "routes", "--count", "--root", root } );
      } ) );
   }
   const Times shown = median( shows ), direct = median( builds );
   fmt::print(
      "routes --count: {:.0f} ms, {:.2f} of the direct build's {:.0f} ms; "
      "processor time {:.0f} ms, {:.2f} of {:.0f}\n",
      1e3 * shown.wall, shown.wall / direct.wall, 1e3 * direct.wall,
      1e3 * shown.cpu, shown.cpu / direct.cpu, 1e3 * direct.cpu );
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
