// The programs' output: standard output, and files that others read.
#pragma once

#include <cerrno>
#include <string>

#include "platform/base/Error.h"

namespace Programs {

// Output that cannot be written; the text names it, and the reason if known.
class OutputError : public Mox::Error {
 public:
   using Error::Error;
};

// Throws OutputError. `what`: "the output", or a file's path. `error`: an errno; 0:
// the reason is unknown.
[[noreturn]] void cannotWrite( const std::string& what, int error = errno );

// Throws OutputError if standard output did not take all the text.
void flushOutput();

// Replaces the file as a whole: a reader finds the old text or the new one. The
// file keeps its mode and, where permitted, its owner; a link's target is replaced.
// Throws OutputError, and WrongUsage for anything but a regular file; nothing has
// changed then. The error text calls the option `--output`, as every program does.
void replaceFile( const std::string& path, const std::string& text );

}
