#include "platform/shm/Layout.h"

#include <algorithm>

#include "platform/base/Error.h"
#include "platform/shm/detail/Hash.h"

namespace Brane {

namespace {

constexpr uint64_t seed[2] = { 0x6c61796f7574, 1 };

uint64_t mixed( uint64_t state, uint64_t value ) {
   uint64_t pair[2] = { state, value };
   return Detail::keyHash( pair, sizeof( pair ), seed );
}

uint64_t mixed( uint64_t state, const Mox::String& text ) {
   state = mixed( state, text.size() );
   for ( char c : text ) state = mixed( state, static_cast<unsigned char>( c ) );
   return state;
}

// A table's every mount checks its layout: the text is made for a fault alone.
template <class... Parts>
void require( bool condition, const Parts&... parts ) {
   if ( !condition )
      throw Mox::RangeError( ( Mox::String( "layout: " ) + ... + parts ) );
}

bool textFits( const Mox::String& text ) {
   return !text.empty() && text.size() <= Layout::maxTextSize &&
          text.find( '\0' ) == Mox::String::npos;
}

}

uint64_t Layout::fingerprint() const {
   uint64_t state = mixed( mixed( 0, keySize ), recordSize );
   for ( const Field& field : fields ) {
      state = mixed( mixed( state, field.name ), field.type );
      state = mixed( mixed( state, field.offset ), field.size );
   }
   return state;
}

void Layout::check() const {
   require( keySize % 8 == 0 && keySize >= 8,
            "the key's size is no multiple of 8" );
   require( recordSize % 8 == 0, "the record's size is no multiple of 8" );
   require( keySize <= recordSize, "the key is larger than the record" );
   require( recordSize <= maxRecordSize, "the record is too large" );
   require( fields.size() <= maxFields, "too many fields" );
   for ( const Field& field : fields ) {
      require( textFits( field.name ), "field name '", field.name, "'" );
      require( textFits( field.type ), "type '", field.type, "' of field ",
               field.name );
      const auto first = std::find_if(
         fields.begin(), fields.end(),
         [&]( const Field& other ) { return other.name == field.name; } );
      require( &*first == &field, "two fields ", field.name );
      uint64_t end = uint64_t( field.offset ) + field.size;
      require( end <= recordSize, "field ", field.name, " ends beyond the record" );
      require( field.offset >= keySize || end <= keySize, "field ", field.name,
               " lies astride the key's end" );
   }
}

bool Layout::sameKey( const Layout& other ) const {
   auto keyFields = []( const Layout& layout ) {
      std::vector<Field> result;
      std::copy_if( layout.fields.begin(), layout.fields.end(),
                    std::back_inserter( result ),
                    [&]( const Field& f ) { return f.offset < layout.keySize; } );
      std::sort( result.begin(), result.end(),
                 []( const Field& a, const Field& b ) { return a.name < b.name; } );
      return result;
   };
   return keySize == other.keySize && keyFields( *this ) == keyFields( other );
}

}
