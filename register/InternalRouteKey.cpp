#include "register/InternalRouteKey.h"

namespace Routing::Pim::SparseMode {

InternalRouteKey::InternalRouteKey( Mox::StringIter& begin, Mox::StringIter end ) {
   sequenceToValue( begin, end, key );
}

Mox::String valueToStrep( const InternalRouteKey& value ) {
   return valueToStrep( value.key );
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                      InternalRouteKey& out ) {
   out = InternalRouteKey( begin, end );
}

}
