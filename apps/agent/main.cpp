// pimsm-agent: the reference agent as a program.

#include <linux/capability.h>
#include <CLI/CLI.hpp>

#include <csignal>
#include <iostream>

#include "apps/agent/Agent.h"
#include "apps/agent/wire/Present.h"
#include "apps/config/ConfigFile.h"
#include "apps/program/Capabilities.h"
#include "apps/program/CommandLine.h"
#include "apps/program/Ending.h"
#include "apps/program/Readiness.h"
#include "platform/loop/Service.h"
#include "platform/loop/SignalWatcher.h"
#include "platform/trace/Sinks.h"

namespace {

using namespace Programs;

constexpr const char* kProgram = "pimsm-agent";

struct Arguments {
   std::vector<std::string> read;
   std::vector<std::string> interfaces;
   bool listen = false;
   bool speak = false;
   bool goodbye = false;
   std::string router;
   std::string config;
   std::string check;  // a configuration file
   std::string root = Corvex::EntityManager::defaultRoot;
   bool exitAtEnd = false;
   uint32_t logSize = Published::EventLog::defaultEntries;
};

// CLI11 takes an empty text for a valid value.
std::string notARouter( const std::string& text ) {
   try {
      Vantu::IpGenAddr address( text );
      if ( !address.isUnspecified() && !address.isMulticast() ) return "";
   } catch ( const Mox::Error& e ) {
      return e.what();
   }
   return text + " is no unicast address";
}

void declare( CLI::App& app, Arguments& arguments ) {
   auto* read =
      app.add_option(
            "--read", arguments.read,
            "Replay a capture (pcap, pcapng); NAME=FILE for the interface "
            "whose capture is NAME. Repeatable" )
         ->type_name( "[NAME=]FILE" );
   auto* interface =
      app.add_option( "--interface", arguments.interfaces,
                      "Listen on an interface of this host. Repeatable" )
         ->type_name( "NAME" )
         ->excludes( read );
   auto* router =
      app.add_option( "--router", arguments.router,
                      "Without a configuration: the address of the router to play" )
         ->type_name( "ADDRESS" )
         ->check( notARouter );
   auto* config =
      app.add_option( "--config", arguments.config, "Configuration file (YAML)" )
         ->type_name( "FILE" )
         ->excludes( router );
   auto* listen =
      app.add_flag(
            "--listen", arguments.listen,
            "Listen on the interfaces of the configuration, also as it changes" )
         ->needs( config )
         ->excludes( read )
         ->excludes( interface );
   auto* speak =
      app.add_flag( "--speak", arguments.speak,
                    "Be a router: as --listen, and send PIM messages there" )
         ->needs( config )
         ->excludes( read )
         ->excludes( interface )
         ->excludes( listen );
   app.add_flag( "--goodbye", arguments.goodbye,
                 "At the end take leave of the neighbours, who forget this router, "
                 "and remove its tables" )
      ->needs( speak );
   app.add_option(
         "--check-config", arguments.check,
         "Read this configuration file, say what is wrong in it, and end" )
      ->type_name( "FILE" )
      ->check( filled )
      ->excludes( config )
      ->excludes( router )
      ->excludes( read )
      ->excludes( interface );
   app.add_option( "--root", arguments.root, "Directory of the tables" )
      ->type_name( "DIR" )
      ->check( filled )
      ->capture_default_str();
   app.add_option( "--log-size", arguments.logSize,
                   "The number of events that the event log keeps; 0: no log" )
      ->check( CLI::Range( 0u, Brane::RingWriter::maxEntries ) )
      ->capture_default_str();
   app.add_flag( "--exit-at-end", arguments.exitAtEnd,
                 "Stop when the captures are replayed and published" );
}

// A file's name may hold '=': only a NAME without a slash before it counts.
Agent::Replay::Input inputOf( const std::string& text ) {
   size_t equals = text.find( '=' );
   if ( equals == std::string::npos || text.find( '/' ) < equals )
      return { text, "" };
   return { text.substr( equals + 1 ), text.substr( 0, equals ) };
}

Agent::AgentConfig configOf( const Arguments& arguments, Agent::ConfigFile& file ) {
   if ( !arguments.config.empty() ) return file.read();
   Vantu::IpGenAddr router( arguments.router );
   std::cerr << Agent::assumedConfigText( router ) << '\n';
   return Agent::assumedConfig( router );
}

std::string firstLine( const std::string& text ) {
   return text.substr( 0, text.find( '\n' ) );
}

void say( const std::string& text ) {
   complain( kProgram, done, text );
}

// Says every fault of the file, or that it has none.
ExitStatus check( const std::string& path ) {
   const std::string text = Agent::configText( path );
   std::vector<std::string> faults = Agent::configFaults( text, path );
   if ( faults.empty() &&
        !Agent::namesAnAddress( Agent::parseConfig( text, path ) ) )
      faults.push_back( path + ": " + Agent::noAddressText );
   for ( const std::string& fault : faults )
      complain( kProgram, wrongUsage, fault );
   if ( !faults.empty() ) return wrongUsage;
   std::cout << path << ": configuration is valid\n";
   return done;
}

// A bad file changes nothing.
void reload( Agent::Agent& agent, Agent::ConfigFile& file ) {
   const std::string& path = file.path();
   if ( path.empty() ) {
      say( "there is no configuration file to read again" );
      return;
   }
   try {
      for ( const std::string& note : agent.configIs( file.read() ) ) say( note );
      say( "took up " + path );
      tellParentState( firstLine( agent.summary() ) );
   } catch ( const std::exception& e ) {
      say( std::string( e.what() ) + "; the configuration stays as it was" );
      tellParentState( "the configuration has a fault: it stays as it was" );
   }
}

bool listens( const Arguments& arguments ) {
   return arguments.listen || arguments.speak;
}

ExitStatus run( const Arguments& arguments ) {
   Agent::AgentOptions options;
   Agent::ConfigFile file( arguments.config );
   options.config = configOf( arguments, file );
   options.assumed = arguments.config.empty();
   options.root = arguments.root;
   for ( const std::string& text : arguments.read ) {
      options.captures.push_back( inputOf( text ) );
   }
   options.interfaces = arguments.interfaces;
   options.listen = listens( arguments );
   options.speak = arguments.speak;
   options.logEntries = arguments.logSize;
   options.note = say;
   Mox::Loop loop;
   Mox::SignalWatcher ends( loop, { SIGTERM, SIGINT },
                            [&]( int ) { loop.stop(); } );
   Agent::Agent agent( loop, std::move( options ) );
   // All files are open; only interfaces that come later are still to be opened.
   if ( listens( arguments ) || !arguments.interfaces.empty() ) {
      dropCapabilities( { CAP_NET_RAW } );
   } else {
      dropCapabilities();
   }
   for ( const std::string& note : agent.mountNotes() ) say( note );
   if ( !listens( arguments ) && arguments.interfaces.empty() &&
        arguments.read.empty() )
      say(
         "has no input: give --listen, --speak, --interface NAME or --read FILE" );
   if ( arguments.speak ) {
      const std::string problem = Agent::reversePathProblem();
      if ( !problem.empty() ) say( problem );
   }
   Mox::SignalWatcher reloads( loop, { SIGHUP },
                               [&]( int ) { reload( agent, file ); } );
   agent.readyIs( [&] {
      std::cerr << agent.summary();
      tellParentState( firstLine( agent.summary() ) );
      tellParentReady();
      if ( arguments.exitAtEnd ) loop.stop();
   } );
   loop.run();
   if ( arguments.goodbye ) agent.leave();
   agent.tellEnd();
   // The packets before a capture's break are published.
   return agent.captureProblem().empty() ? done : unverified;
}

ExitStatus runCommand( int argc, char** argv ) {
   CLI::App app(
      "The Pimsm reference agent: keeps PIM sparse-mode state from packets "
      "and publishes it in shared-memory tables." );
   Arguments arguments;
   declare( app, arguments );
   if ( !parsed( app, argc, argv ) ) return done;
   if ( !arguments.check.empty() ) return check( arguments.check );
   if ( arguments.config.empty() && arguments.router.empty() )
      throw WrongUsage( "give --config FILE, or --router ADDRESS" );
   try {
      return run( arguments );
   } catch ( const Agent::CaptureError& e ) {
      // An interface may be refused to this process; a capture file is the user's
      // choice.
      if ( arguments.read.empty() ) throw;
      throw WrongUsage( e.what() );
   }
}

}

int main( int argc, char** argv ) {
   Mox::startService( { SIGHUP, SIGTERM, SIGINT } );
   if ( Mox::journalHasStandardError() ) Mox::traceSinkIs( Mox::journalSink() );
   return ending( kProgram, [&] { return runCommand( argc, argv ); } );
}
