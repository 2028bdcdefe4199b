#include "platform/net/VrfName.h"

#include "platform/base/Error.h"

namespace L3 {

VrfName::VrfName( Mox::StringView name ) : name_( name ) {
   if ( name.size() > maxLength ) {
      throw Mox::RangeError( "VrfName::bytes > VrfName::maxLength not allowed" );
   }
}

Mox::String valueToStrep( const VrfName& vrf ) {
   return Mox::valueToStrep( vrf.name() );
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end, VrfName& out ) {
   Mox::String name;
   Mox::sequenceToValue( begin, end, name );
   out = VrfName( name );
}

std::ostream& operator<<( std::ostream& stream, const VrfName& vrf ) {
   return stream << vrf.name();
}

}
