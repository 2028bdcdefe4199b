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
   // In the order given; values are escaped by the format's rule.
   using Labels = std::vector<std::pair<const char*, std::string>>;
   // The number of things with a count, by the count.
   using Counts = std::map<uint64_t, uint64_t>;

   // REQUIRES: one `type` and `help` a name. A name's samples are printed together,
   // whatever comes between the calls.
   void gauge( const char* name, const char* help, const Labels& labels,
               double value );
   void counter( const char* name, const char* help, const Labels& labels,
                 uint64_t value );
   // Buckets by powers of two; always the same ones, since a query over several routers
   // or days adds them up.
   static constexpr uint64_t lastBucket = 1024;
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
