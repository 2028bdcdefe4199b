// The ends of programs: one table of exit statuses for all of them.
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
   storeRefused = 7,   // for programs that send to a store
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

// Prints the error as a line under the program's name. Returns the status.
ExitStatus complain( const char* program, ExitStatus status,
                     const std::string& text );

// Does the work and returns its status. Prints an exception and returns its status;
// does the same when standard output cannot be written. From here on a file beyond
// its size limit is an ordinary error, not a signal, and as many files may be open as the hard
// limit allows.
ExitStatus ending( const char* program, const std::function<ExitStatus()>& work );

// Checks an option's value for CLI11, to which an empty text means valid. Refuses
// an empty value: a script's variable may be unset.
std::string filled( const std::string& text );

}
