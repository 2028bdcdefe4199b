// The short forms of the PIM types for traces.
#include <ostream>

#include "platform/pim/RouteKey.h"
#include "platform/pim/Rpf.h"

namespace Routing::Pim {

std::ostream& operator<<( std::ostream& stream, const RouteKey& key ) {
   stream << '(';
   if ( key.source.isUnspecified() ) {
      stream << '*';
   } else {
      stream << key.source;
   }
   return stream << ", " << key.group << ')';
}

std::ostream& operator<<( std::ostream& stream, const RouteIntfKey& key ) {
   return stream << key.routeKey << ' ' << key.intfId;
}

std::ostream& operator<<( std::ostream& stream, const Rpf& rpf ) {
   if ( rpf == Rpf() ) return stream << "none";
   return stream << rpf.intfId << " via " << rpf.neighbor << " ["
                 << Mox::valueToStrep( rpf.preference ) << '/' << rpf.metric << ']';
}

}
