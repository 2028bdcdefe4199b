// pimsm-mfib: the kernel's multicast forwarding by the agent's tables.

#include <CLI/CLI.hpp>
#include <csignal>
#include <filesystem>
#include <iostream>

#include "apps/config/ConfigFile.h"
#include "apps/mfib/Daemon.h"
#include "apps/mfib/Keeper.h"
#include "apps/program/CommandLine.h"
#include "apps/program/Ending.h"
#include "platform/loop/Service.h"
#include "platform/loop/SignalWatcher.h"
#include "platform/trace/Sinks.h"

namespace {

using namespace Programs;

constexpr const char* kProgram = "pimsm-mfib";
constexpr double kMaxInterval = 3600.0;  // s

struct Arguments {
   std::string config;
   Forwarding::DaemonOptions options;
   bool keep = false;
};

void declare( CLI::App& app, Arguments& arguments ) {
   app.add_option( "--config", arguments.config,
                   "The agent's configuration file (YAML)" )
      ->type_name( "FILE" )
      ->required();
   app.add_option( "--root", arguments.options.root, "Directory of the tables" )
      ->type_name( "DIR" )
      ->check( filled )
      ->capture_default_str();
   app.add_option( "--counters", arguments.options.counterInterval,
                   "How often to publish the kernel's counters; 0: never" )
      ->type_name( "SECONDS" )
      ->check( CLI::Range( 0.0, kMaxInterval ) )
      ->capture_default_str();
   app.add_flag( "--keep", arguments.keep,
                 "Run under a parent that keeps the kernel's tables and starts the "
                 "process again when it dies" );
}

void say( const std::string& text ) {
   complain( kProgram, done, text );
}

// A bad file changes nothing.
void reload( Forwarding::Daemon& daemon, Agent::ConfigFile& file ) {
   try {
      daemon.configIs( Forwarding::familiesOf( file.read() ) );
      say( "took up " + file.path() );
   } catch ( const std::exception& e ) {
      say( std::string( e.what() ) + "; the configuration stays as it was" );
   }
}

ExitStatus forward( const Arguments& arguments ) {
   Agent::ConfigFile file( arguments.config );
   auto families = Forwarding::familiesOf( file.read() );
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Mox::SignalWatcher ends( loop, { SIGTERM, SIGINT },
                            [&]( int ) { loop.stop(); } );
   Forwarding::Daemon daemon( loop, clock, std::move( families ), arguments.options,
                              say );
   Mox::SignalWatcher reloads( loop, { SIGHUP },
                               [&]( int ) { reload( daemon, file ); } );
   loop.run();
   return done;
}

// Starts the program by its path, so that a replaced program is used at the next
// start.
ExitStatus keep( int argc, char** argv ) {
   std::vector<std::string> program = {
      std::filesystem::read_symlink( "/proc/self/exe" ) };
   for ( int i = 1; i < argc; ++i ) {
      if ( std::string( argv[i] ) != "--keep" ) program.emplace_back( argv[i] );
   }
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Forwarding::Keeper keeper( loop, clock, std::move( program ), say );
   // The program's own status, of the shared table, or 128 plus the number of the
   // signal that ended it.
   return static_cast<ExitStatus>( keeper.run() );
}

ExitStatus runCommand( int argc, char** argv ) {
   CLI::App app(
      "Forwards multicast: programs the kernel's multicast routing tables from the "
      "agent's tables, and goes on while the agent is away." );
   Arguments arguments;
   declare( app, arguments );
   if ( !parsed( app, argc, argv ) ) return done;
   return arguments.keep ? keep( argc, argv ) : forward( arguments );
}

}

int main( int argc, char** argv ) {
   Mox::startService( { SIGHUP, SIGTERM, SIGINT } );
   if ( Mox::journalHasStandardError() ) Mox::traceSinkIs( Mox::journalSink() );
   return ending( kProgram, [&] { return runCommand( argc, argv ); } );
}
