// Copies the bytes of a table after each store to it, as a kill would leave them.
#pragma once

#include <functional>

#include "../Support.h"
#include "platform/shm/detail/Store.h"

namespace Brane::Test {

// The bytes of some files at each kill point; "" for a missing file.
class KillPoints {
 public:
   using Image = std::vector<std::string>;  // in the order of the files

   // Runs `act` and copies the files after each store in it. Exceptions of `act`
   // pass through.
   static std::vector<Image> of( const std::vector<std::string>& files,
                                 const std::function<void()>& act ) {
      KillPoints points( files );
      act();
      return std::move( points.images_ );
   }
   static std::vector<std::string> of( const std::string& file,
                                       const std::function<void()>& act ) {
      std::vector<std::string> bytes;
      for ( Image& image : of( std::vector{ file }, act ) ) {
         bytes.push_back( std::move( image[0] ) );
      }
      return bytes;
   }

 private:
   explicit KillPoints( const std::vector<std::string>& files ) : files_( files ) {
      current_ = this;
      Detail::storeHook = [] { current_->take(); };
   }
   ~KillPoints() { Detail::storeHook = nullptr; }

   void take() {
      Image image;
      for ( const std::string& file : files_ ) image.push_back( bytesOf( file ) );
      if ( images_.empty() || images_.back() != image ) {
         images_.push_back( std::move( image ) );
      }
   }

   static inline KillPoints* current_ = nullptr;
   std::vector<std::string> files_;
   std::vector<Image> images_;
};

}
