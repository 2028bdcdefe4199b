// A text of bounded length, for a table's record.
#pragma once

#include "platform/mount/Flat.h"

namespace Published {

// Fewer than `size` bytes, none of them NUL.
template <size_t size>
class Text {
 public:
   Text() = default;
   // Longer text is cut off, as is text after a NUL: it is for people only.
   explicit Text( Mox::StringView text )
      : text_( text.substr( 0, std::min( text.find( '\0' ), size - 1 ) ) ) {}

   const Mox::String& text() const { return text_; }
   auto operator<=>( const Text& ) const = default;

 private:
   Mox::String text_;
};

}

namespace Brane {

template <size_t size>
struct FlatForm<Published::Text<size>> {
   struct Bytes {
      char text[size];  // ends with a NUL
   };
   static Mox::String typeText() {
      return "text/" + Mox::valueToStrep( uint32_t( size ) );
   }
   static void write( const Published::Text<size>& value, Bytes& bytes ) {
      std::memcpy( bytes.text, value.text().data(), value.text().size() );
   }
   static bool read( const Bytes& bytes, Published::Text<size>& out ) {
      const void* end = std::memchr( bytes.text, '\0', size );
      if ( end == nullptr ) return false;
      out = Published::Text<size>( bytes.text );
      return true;
   }
};

}
