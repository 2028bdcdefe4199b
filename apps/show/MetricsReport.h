// What the tables and the agent's counters come to, as Prometheus reads it.
#pragma once

#include <string>

#include "apps/show/Mirrors.h"

namespace Show {

// Never a group or source as a label. What is not known is left out.
std::string metricsText( const Mirrors& mirrors, const char* version );

// The output cannot be written.
class OutputError : public Mox::Error {
 public:
   using Error::Error;
};

// Replaces the file as a whole: who reads it finds the old text or the new one. It keeps
// its mode and, where we may, its owner; of a link its target is replaced. Throws
// OutputError, and WrongUsage for what is no regular file; all is as it was then.
void replaceFile( const std::string& path, const std::string& text );

}
