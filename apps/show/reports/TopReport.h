// The streams by their rates, of all mirrors together.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/mirror/Rates.h"
#include "apps/mirror/RouteFilter.h"

namespace Show {

class Top {
 public:
   struct Stream {
      const Mirror* mirror;
      Published::MfibCache counters;
      std::optional<Rate> rate;
   };

   // Takes the first reading. `byBits`: else packets make a stream come first.
   Top( Mirrors& mirrors, const RouteFilter& filter, bool byBits );

   // Takes the next reading; follows VRFs as they come and go, which drops mirrors.
   void read();

   // Does any forwarding process publish counters?
   bool known() const;
   // The matching ones, highest rate first, those without a known rate last.
   std::vector<Stream> streams() const;

 private:
   Mirrors& mirrors_;
   RouteFilter filter_;
   bool byBits_;
   std::map<const Mirror*, Rates> rates_;
};

// The number and total of all, and a table of the first ones.
std::string topText( const std::vector<Top::Stream>& streams, size_t first );
// The streams of one mirror among the first ones.
nlohmann::ordered_json topJson( const std::vector<Top::Stream>& streams,
                                size_t first, const Mirror& mirror );

}
