// The command line of pimsm-fleet.
#pragma once

#include <optional>
#include <string>

#include "apps/fleet/answers/History.h"
#include "apps/fleet/answers/Top.h"
#include "apps/fleet/path/Path.h"
#include "apps/mirror/RouteFilter.h"

namespace Fleet {

enum Command {
   pathCommand,
   checkCommand,
   routesCommand,
   historyCommand,
   topCommand,
   routersCommand,
   serveCommand,
   forgetCommand
};

struct Arguments {
   Command command = routesCommand;
   StoreAddress store;
   std::string router = "all";
   Wanted wanted;
   bool json = false;
   bool jsonLines = false;
   Show::RouteFilter filter;  // of routes
   bool oneline = false;
   bool count = false;
   HistoryQuestion question;
   bool follow = false;
   TopBy by = TopBy::rate;
   size_t first = 10;
   PathQuestion path;  // without a time
   std::string forgotten;
   std::string listen = "127.0.0.1:8080";  // of serve
};

// Throws Programs::WrongUsage with a line about the error. Returns nothing when help or
// the version was asked for and is printed.
std::optional<Arguments> parseArguments( int argc, char** argv );

}
