// What programs write: standard output, and files that others read.
#pragma once

#include <cerrno>
#include <string>

#include "platform/base/Error.h"

namespace Programs {

// Output that cannot be written; the text says which, and why where that is known.
class OutputError : public Mox::Error {
 public:
   using Error::Error;
};

// Throws OutputError. `what`: "the output", or a file's path. `error` is of errno;
// 0: the reason is not known.
[[noreturn]] void cannotWrite( const std::string& what, int error = errno );

// Throws OutputError where standard output did not take all that was printed.
void flushOutput();

// Replaces the file as a whole: who reads it finds the old text or the new one. It keeps
// its mode and, where we may, its owner; of a link its target is replaced. Throws
// OutputError, and WrongUsage for what is no regular file; all is as it was then. Its text
// calls the option `--output`, as every program does.
void replaceFile( const std::string& path, const std::string& text );

}
