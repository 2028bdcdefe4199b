#include "platform/mount/Flat.h"

#include <fmt/format.h>

namespace Brane {

Mox::String recordTypeText( Mox::StringView name,
                            const std::vector<Field>& fields ) {
   uint32_t digest = 2166136261U;  // FNV-1a
   for ( const Field& field : fields ) {
      Mox::String row = fmt::format( "{} {} {} {};", field.name, field.type,
                                     field.offset, field.size );
      for ( unsigned char c : row ) digest = ( digest ^ c ) * 16777619U;
   }
   return fmt::format( "{}#{:08x}", name, digest );
}

}
