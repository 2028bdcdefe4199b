// Metrics in the text format of Prometheus (version 0.0.4).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Show {

class Exposition {
 public:
   // In the order given; values are escaped as the format wants it.
   using Labels = std::vector<std::pair<const char*, std::string>>;
   // How many things have a count, by the count.
   using Counts = std::map<uint64_t, uint64_t>;

   // REQUIRES: one `type` and `help` a name. A name's samples stand together, wherever
   // others came between.
   void gauge( const char* name, const char* help, const Labels& labels,
               double value );
   void counter( const char* name, const char* help, const Labels& labels,
                 uint64_t value );
   // Buckets by powers of two, from 1 to the first that holds all.
   void histogram( const char* name, const char* help, const Labels& labels,
                   const Counts& counts );

   std::string text() const;

 private:
   struct Family {
      std::string name;
      std::string head;
      std::string samples;
   };

   Family& family( const char* name, const char* type, const char* help );

   std::vector<Family> families_;
};

}
