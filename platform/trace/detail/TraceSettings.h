// The parsed form of the trace settings; see traceSettingsIs().
#pragma once

#include <cstdint>
#include <vector>

#include "platform/base/String.h"

namespace Mox {

class TraceSettings {
 public:
   TraceSettings() = default;

   // Warns on standard error of each bad entry and skips it.
   explicit TraceSettings( StringView text );

   // The levels of the first entry that matches, one bit each; 0 without a match.
   uint32_t levels( const char* facility ) const;

 private:
   struct Entry {
      String pattern;
      uint32_t levels;
   };

   void add( StringView entry );

   std::vector<Entry> entries_;
};

}
