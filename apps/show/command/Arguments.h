// The tool's command line.
#pragma once

#include <string>

#include "apps/mirror/RouteFilter.h"
#include "apps/program/Ending.h"
#include "apps/show/reports/Explain.h"

namespace Show {

using namespace Programs;

enum Command {
   routesCommand,
   statusCommand,
   explainCommand,
   checkCommand,
   interfacesCommand,
   registersCommand,
   advertisedCommand,
   histogramCommand,
   metricsCommand,
   watchCommand
};

struct Arguments {
   Command command = routesCommand;
   Selection selection;
   RouteFilter filter;
   bool json = false;
   bool jsonLines = false;
   bool count = false;
   bool detail = false;
   Question question;   // for explainCommand
   std::string output;  // for metricsCommand; empty: standard output
};

// Throws WrongUsage with a line about the error. Returns nothing when help or the
// version was asked for and is printed.
std::optional<Arguments> parseArguments( int argc, char** argv );

}
