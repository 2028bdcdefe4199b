// How programs end: one table of exit statuses for all of them.
#pragma once

#include <functional>
#include <string>

#include "platform/base/Error.h"

namespace Programs {

enum ExitStatus {
   done = 0,
   nothingFound = 1,  // or a check found something
   wrongUsage = 2,    // of options, or in a file that is named there
   noTables = 3,
   layoutNotSupported = 4,
   writerGone = 5,     // printed all the same
   heldByAnother = 6,  // another process holds what this one needs
   storeRefused = 7,   // kept for what sends to a store
   unverified = 8,     // printed all the same
   systemRefused = 9,  // the output cannot be written, memory ran out, and the like
};

class WrongUsage : public Mox::Error {
 public:
   using Error::Error;
};

class HeldByAnother : public Mox::Error {
 public:
   using Error::Error;
};

// Says so in a line on standard error, under the program's name. Returns the status.
ExitStatus complain( const char* program, ExitStatus status,
                     const std::string& text );

// Does the work and returns its status, or that of what it throws after saying so; that
// of standard output where this cannot be written. A file beyond its limit is an error
// like any other from here on, and no signal.
ExitStatus ending( const char* program, const std::function<ExitStatus()>& work );

// Of an option's value, as CLI11 asks: an empty text is no objection. A script's unset
// variable is no value.
std::string filled( const std::string& text );

}
