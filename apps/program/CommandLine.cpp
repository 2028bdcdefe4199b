#include "apps/program/CommandLine.h"

#include <CLI/CLI.hpp>

#include "apps/program/Ending.h"

namespace Programs {

bool parsed( CLI::App& app, int argc, char** argv ) {
   app.set_version_flag( "--version", PIMSM_VERSION );
   try {
      app.parse( argc, argv );
      return true;
   } catch ( const CLI::Success& e ) {
      app.exit( e );
      return false;
   } catch ( const CLI::ParseError& e ) {
      throw WrongUsage( std::string( e.what() ) + "; see --help" );
   }
}

}
