#include "platform/entity/Reflection.h"

#include <algorithm>

namespace Mox {

const AttributeInfo& TypeInfo::attribute( StringView attributeName ) const {
   auto found =
      std::find_if( attributes.begin(), attributes.end(),
                    [&]( const auto& row ) { return row.name == attributeName; } );
   if ( found == attributes.end() ) {
      throw NameError( name + " has no attribute " + String( attributeName ) );
   }
   return *found;
}

}
