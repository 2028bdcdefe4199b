// The tool's command line.
#pragma once

#include <string>

#include "apps/mirror/Events.h"
#include "apps/mirror/RouteFilter.h"
#include "apps/program/Ending.h"
#include "apps/show/reports/Explain.h"
#include "apps/show/reports/Why.h"

namespace Show {

using namespace Programs;

enum Command {
   routesCommand,
   statusCommand,
   explainCommand,
   checkCommand,
   interfacesCommand,
   neighborsCommand,
   rpsCommand,
   membersCommand,
   topCommand,
   registersCommand,
   advertisedCommand,
   histogramCommand,
   metricsCommand,
   watchCommand,
   logCommand
};

struct Arguments {
   Command command = routesCommand;
   Selection selection;
   RouteFilter filter;
   bool json = false;
   bool jsonLines = false;
   bool count = false;
   bool detail = false;
   // For explainCommand: what a receiver gets, or the terms of a route's macros.
   Receiver receiver;
   bool terms = false;
   Question question;
   EventFilter
      events;  // for logCommand; its since: how long ago, s, infinity: ever
   bool follow = false;
   bool oneline = false;
   std::string sort = "group";      // or "packets", "rate"
   std::optional<double> interval;  // s between two readings; nothing: not given
   std::string by = "packets";      // or "bits": for topCommand
   std::optional<size_t> first;     // rows
   std::string output;              // for metricsCommand; empty: standard output
   std::string listen;  // for metricsCommand: "[ADDRESS:]PORT"; empty: prints once
};

// Throws WrongUsage with a line about the error. Returns nothing when help or the
// version was asked for and is printed.
std::optional<Arguments> parseArguments( int argc, char** argv );

}
