#include "platform/entity/Reflection.h"

#include <algorithm>
#include <boost/core/demangle.hpp>

namespace Mox {

const AttributeInfo& TypeInfo::attribute( StringView attributeName ) const {
   for ( const auto& rows : { attributes, unlisted } ) {
      for ( const AttributeInfo& row : rows ) {
         if ( row.name == attributeName ) return row;
      }
   }
   throw NameError( name + " has no attribute " + String( attributeName ) );
}

String Detail::fullTypeName( const std::type_info& type ) {
   return boost::core::demangle( type.name() );
}

TypeInfo Detail::typeInfoOf( String name, std::span<AttributeInfo> rows ) {
   auto alone = std::stable_partition(
      rows.begin(), rows.end(),
      []( const AttributeInfo& row ) { return row.kind != "Alone"; } );
   return { std::move( name ), { rows.begin(), alone }, { alone, rows.end() } };
}

}
