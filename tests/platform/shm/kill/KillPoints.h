// Takes the bytes of a table after each store to it, as a kill would leave them.
#pragma once

#include <functional>

#include "../Support.h"
#include "platform/shm/detail/Store.h"

namespace Brane::Test {

// Bytes of one file at each kill point; where it does not exist, "".
class KillPoints {
 public:
   // Runs `act` and copies `file` after each store in it. What `act` throws is
   // passed on.
   static std::vector<std::string> of( const std::string& file,
                                       const std::function<void()>& act ) {
      KillPoints points( file );
      act();
      return std::move( points.images_ );
   }

 private:
   explicit KillPoints( const std::string& file ) : file_( file ) {
      current_ = this;
      Detail::storeHook = [] { current_->take(); };
   }
   ~KillPoints() { Detail::storeHook = nullptr; }

   void take() {
      std::string bytes = bytesOf( file_ );
      if ( images_.empty() || images_.back() != bytes ) images_.push_back( bytes );
   }

   static inline KillPoints* current_ = nullptr;
   std::string file_;
   std::vector<std::string> images_;
};

}
