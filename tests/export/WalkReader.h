// A reading process for the random walk: forked before anything else exists, it
// mirrors the tables and answers at sync points what they and its model hold.
#pragma once

#include <string>

#include "platform/net/AddressFamily.h"

namespace Routing::Pim::SparseMode::Test {

class WalkReader {
 public:
   // Forks. REQUIRES: no tables are open in this process.
   WalkReader( const std::string& root, Vantu::AddressFamily family );
   ~WalkReader();
   WalkReader( const WalkReader& ) = delete;
   WalkReader& operator=( const WalkReader& ) = delete;

   // Lets the process take up all changes; returns every record that it reads, one
   // line each in order of their text, or "mirror differs: ..." when its model does
   // not say the same as the tables.
   std::string sync();

 private:
   std::string root_;
   int child_ = -1;
   int pid_ = -1;
};

// The lines of tables that hold these records.
template <class Routes, class Intfs>
std::string recordLines( const Routes& routes, const Intfs& intfs ) {
   std::string lines;
   for ( const auto& [key, record] : routes )
      lines += valueToStrep( record ) + '\n';
   for ( const auto& [key, record] : intfs ) lines += valueToStrep( record ) + '\n';
   return lines;
}

}
