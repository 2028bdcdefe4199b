// pimsm-record: keeps a router's state and history in a store.

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "apps/program/CommandLine.h"
#include "apps/program/Ending.h"
#include "apps/program/Output.h"
#include "apps/program/Readiness.h"
#include "apps/record/Recorder.h"
#include "apps/store/Names.h"
#include "apps/store/StoreOptions.h"
#include "platform/loop/Service.h"
#include "platform/loop/SignalWatcher.h"

namespace {

using namespace Programs;

constexpr const char* kProgram = "pimsm-record";

struct Arguments {
   Fleet::RecorderOptions options;
   Fleet::StoreAddress store;
   Fleet::Keeping keeping;
   std::string metrics;
};

void declare( CLI::App& app, Arguments& arguments ) {
   const std::map<std::string, double> kTimes = {
      { "s", 1.0 }, { "m", 60.0 }, { "h", 3600.0 }, { "d", 86400.0 } };
   Fleet::RecorderOptions& options = arguments.options;
   Fleet::declareStore( app, arguments.store,
                        "Where to keep the state and history" )
      ->required();
   app.add_option( "--replicas", arguments.keeping.replicas,
                   "On how many servers to keep each copy" )
      ->type_name( "N" )
      ->check( CLI::IsMember( { 1, 3, 5 } ) )
      ->envname( "PIMSM_REPLICAS" )
      ->capture_default_str();
   app.add_option( "--state-bytes", arguments.keeping.stateBytes,
                   "How much room the servers reserve for the router's state" )
      ->type_name( "SIZE" )
      ->transform( CLI::AsSizeValue( false ) )
      ->default_str( "64M" );
   app.add_option( "--root", options.selection.root, "Directory of the tables" )
      ->type_name( "DIR" )
      ->check( filled )
      ->capture_default_str();
   app.add_option( "--vrf", options.selection.vrf, "The VRF to record, or all" )
      ->type_name( "NAME" )
      ->check( filled )
      ->capture_default_str();
   app.add_option( "--router", options.router, "The router's name in the store" )
      ->type_name( "NAME" )
      ->check( Fleet::nameValidator() )
      ->default_val( Fleet::hostRouter() );
   app.add_option( "--keep", arguments.keeping.age,
                   "How long to keep history: 90, 30m, 12h, 7d" )
      ->type_name( "TIME" )
      ->transform( CLI::AsNumberWithUnit(
         kTimes, CLI::AsNumberWithUnit::UNIT_OPTIONAL, "TIME" ) )
      ->check( CLI::PositiveNumber )
      ->default_str( "7d" );
   app.add_option( "--keep-bytes", arguments.keeping.bytes,
                   "About how much of it, with the state" )
      ->type_name( "SIZE" )
      ->transform( CLI::AsSizeValue( false ) )
      ->default_str( "1G" );
   app.add_option( "--sample", options.sample, "How often to take the counters" )
      ->type_name( "TIME" )
      ->transform( CLI::AsNumberWithUnit(
         kTimes, CLI::AsNumberWithUnit::UNIT_OPTIONAL, "TIME" ) )
      ->check( CLI::Range( 1.0, 3600.0 ) )
      ->capture_default_str();
   app.add_option( "--top", options.top, "How many of the fastest streams to list" )
      ->type_name( "N" )
      ->check( CLI::Range( 1, 4000 ) )  // more do not fit into a value
      ->capture_default_str();
   app.add_option( "--metrics", arguments.metrics,
                   "A file to replace with metrics at each sample" )
      ->type_name( "FILE" )
      ->check( filled );
   app.add_flag( "--once", options.once,
                 "End when the store has what the tables have" );
}

void say( const std::string& text ) {
   complain( kProgram, done, text );
}

// Writes the metrics now and then. A file that cannot be written is told once.
class MetricsFile : public Mox::Clock::Notifiee {
 public:
   MetricsFile( Mox::Clock& clock, const Arguments& arguments,
                Fleet::Recorder& recorder )
      : Notifiee( &clock ), arguments_( arguments ), recorder_( recorder ) {
      if ( !arguments.metrics.empty() ) onTime();
   }

 private:
   void onTime() override {
      wakeupTimeIs( clock()->now() + arguments_.options.sample );
      try {
         replaceFile( arguments_.metrics, recorder_.metrics() );
         told_ = false;
      } catch ( const std::exception& e ) {
         if ( !std::exchange( told_, true ) ) say( e.what() );
      }
   }

   const Arguments& arguments_;
   Fleet::Recorder& recorder_;
   bool told_ = false;
};

ExitStatus noTablesThere( const Arguments& arguments ) {
   const Show::Selection& selection = arguments.options.selection;
   const std::string of = selection.vrf == "all" ? "" : " of vrf " + selection.vrf;
   return complain( kProgram, noTables,
                    "no tables" + of + " under " + selection.root +
                       ": start pimsm-agent, or name its --root" );
}

ExitStatus record( const Arguments& arguments ) {
   Show::Mirrors mirrors( arguments.options.selection,
                          Show::Mirror::watchedTables );
   Mox::SignalWatcher ends( mirrors.loop(), { SIGTERM, SIGINT },
                            [&]( int ) { mirrors.loop().stop(); } );
   bool partly = false;
   if ( arguments.options.once ) {
      const auto unread = mirrors.load();
      if ( mirrors.all().empty() && unread.empty() )
         return noTablesThere( arguments );
      if ( mirrors.all().empty() )
         return complain( kProgram, noTables, unread.front().problem.text );
      partly = !unread.empty();
   }
   const auto open = [&]( const std::string& instance ) {
      return Fleet::openWriter( arguments.store, arguments.options.router, instance,
                                arguments.keeping );
   };
   Fleet::Recorder recorder( mirrors, arguments.options, open, say );
   const MetricsFile metrics( mirrors.clock(), arguments, recorder );
   tellParentReady();
   mirrors.loop().run();
   recorder.rethrow();
   return partly ? unverified : done;
}

ExitStatus runCommand( int argc, char** argv ) {
   CLI::App app(
      "Keeps a router's state and history in a store, for pimsm-fleet." );
   Arguments arguments;
   declare( app, arguments );
   if ( !parsed( app, argc, argv ) ) return done;
   try {
      return record( arguments );
   } catch ( const Mox::ParseError& e ) {
      throw WrongUsage( e.what() );
   } catch ( const Fleet::StoreFormat& e ) {
      return complain( kProgram, layoutNotSupported, e.what() );
   } catch ( const Fleet::StoreHeld& e ) {
      return complain( kProgram, heldByAnother, e.what() );
   } catch ( const Fleet::StoreRefuses& e ) {
      return complain( kProgram, storeRefused, e.what() );
   }
}

}

int main( int argc, char** argv ) {
   Mox::startService( { SIGTERM, SIGINT } );
   return ending( kProgram, [&] { return runCommand( argc, argv ); } );
}
