// Text forms of a route and of its flag sets.

#include <ostream>

#include "model/Route.h"

namespace Routing::Pim::SparseMode {

// The form has its own order of letters, not that of the bits.
Mox::String Route::routeFlagsString() const {
   Mox::String out;
   auto append = [&]( bool set, char letter ) {
      if ( set ) out += letter;
   };
   append( wildCard(), 'W' );
   append( spTree(), 'S' );
   append( rpTree(), 'R' );
   append( switching(), 'J' );
   append( iifSwitching(), 'T' );
   append( rpfAttached(), 'L' );
   append( mbr(), 'B' );
   append( markedForDeletion(), 'Z' );
   append( mayAdvertise(), 'N' );
   append( msdpDiscovered(), 'M' );
   append( anycastDiscovered(), 'A' );
   append( drDiscovered(), 'C' );
   append( programmable(), 'P' );
   append( hwRecovered(), 'X' );
   append( !wildCard() && !spTree() && !rpTree(), 'E' );
   if ( !switching() ) return out;
   append( !katExpired() && !nullInheritedOlistSg(), 'H' );
   append( !nullImmediateOlistSg(), 'D' );
   return out;
}

Mox::String Route::expiredFlagsString() const {
   Mox::String out;
   if ( expiredFlags().allExpired() ) out += "ALL,";
   if ( expiredFlags().registerExpired() ) out += "Register,";
   if ( expiredFlags().advertiseExpired() ) out += "Advertise,";
   return out;
}

std::ostream& operator<<( std::ostream& stream, const Route* route ) {
   if ( route == nullptr ) return stream << "null";
   return stream << route->key() << ", Flags: " << route->routeFlagsString();
}

}
