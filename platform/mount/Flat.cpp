#include "platform/mount/Flat.h"

#include <fmt/format.h>

namespace Brane {

namespace {

struct KnownName {
   char bytes[Vantu::IntfId::maxLength + 1] = {};
   Vantu::IntfId id;
};

// Names of the usual lengths differ in their first 16 bytes. So many places that some
// hundred names seldom meet in one.
KnownName& knownName( const char* bytes ) {
   static KnownName names[4096];
   uint64_t words[2];
   std::memcpy( words, bytes, sizeof words );
   uint64_t hash = ( words[0] ^ words[1] * 31 ) * UINT64_C( 0x9e3779b97f4a7c15 );
   return names[hash >> 52];
}

}

bool readIntfId( const char ( &name )[Vantu::IntfId::maxLength + 1],
                 Vantu::IntfId& out ) {
   KnownName& known = knownName( name );
   if ( std::memcmp( known.bytes, name, sizeof name ) != 0 ) {
      size_t length = strnlen( name, sizeof name );
      if ( length == sizeof name ) return false;
      known.id = Vantu::IntfId( Mox::StringView( name, length ) );
      std::memcpy( known.bytes, name, sizeof name );
   }
   out = known.id;
   return true;
}

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
