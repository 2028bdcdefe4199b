#include "model/ChangeFlags.h"

#include <ostream>

namespace Routing::Pim::SparseMode {

std::ostream& operator<<( std::ostream& stream, const ChangeFlags* flags ) {
   if ( flags->value() == 0 ) return stream << '0';
   ChangeFlags head = *flags;
   head.rpfFrrNeighborGenIdChangedIs( false );
   if ( head.value() != 0 ) {
      stream << Mox::compactFlags( head.value(), ChangeFlags::rows() );
   }
   if ( flags->rpfFrrNeighborGenIdChanged() ) stream << 'Z';
   return stream;
}

std::ostream& operator<<( std::ostream& stream, const IntfChangeFlags* flags ) {
   return stream << Mox::compactFlags( flags->value(), IntfChangeFlags::rows() );
}

}
