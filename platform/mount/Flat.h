// Flat forms: how a value lies in a shared-memory record, the same in every
// process.
//
// FlatForm<T> gives, for a field type:
//
//    Bytes                  a trivially copyable type of fixed size and alignment
//    typeText()             names the form; changes whenever its meaning does
//    write( value, bytes )  into zeroed bytes, so that padding stays zero
//    read( bytes, out )     false when the bytes are no such value: nothing in a
//                           mapping is trusted
//
// Records with rows (platform/base/Record.h) get theirs from BRANE_FLAT_RECORD.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstring>
#include <vector>

#include "platform/base/Enum.h"
#include "platform/base/Flags.h"
#include "platform/net/IntfId.h"
#include "platform/net/IpGenPrefix.h"
#include "platform/shm/Layout.h"

namespace Brane {

template <class T>
struct FlatForm;

// See FlatForm<IntfId>. Remembers the names read last: tables repeat few names often.
PIMSM_API bool readIntfId( const char ( &name )[Vantu::IntfId::maxLength + 1],
                           Vantu::IntfId& out );

// A record's type text: its name and a digest of its fields. The digest is needed
// because a field may itself be a record.
PIMSM_API Mox::String recordTypeText( Mox::StringView name,
                                      const std::vector<Field>& fields );

template <>
struct FlatForm<bool> {
   using Bytes = uint8_t;
   static Mox::String typeText() { return "bool"; }
   static void write( bool value, Bytes& bytes ) { bytes = value ? 1 : 0; }
   static bool read( const Bytes& bytes, bool& out ) {
      out = bytes != 0;
      return bytes <= 1;
   }
};

template <std::unsigned_integral T>
requires( !std::same_as<T, bool> ) struct FlatForm<T> {
   using Bytes = T;
   static Mox::String typeText() {
      return "u" + Mox::valueToStrep( 8 * sizeof( T ) );
   }
   static void write( T value, Bytes& bytes ) { bytes = value; }
   static bool read( const Bytes& bytes, T& out ) {
      out = bytes;
      return true;
   }
};

template <>
struct FlatForm<double> {
   using Bytes = double;
   static Mox::String typeText() { return "double"; }
   static void write( double value, Bytes& bytes ) { bytes = value; }
   static bool read( const Bytes& bytes, double& out ) {
      out = bytes;
      return true;
   }
};

template <class T>
requires std::is_enum_v<T>
struct FlatForm<T> {
   using Bytes = uint32_t;
   static Mox::String typeText() {
      Mox::EnumNames names = enumNames( T() );
      return "enum " + Mox::String( names.type ) + "/" +
             Mox::valueToStrep( names.values.size() );
   }
   static void write( T value, Bytes& bytes ) { bytes = value; }
   static bool read( const Bytes& bytes, T& out ) {
      out = static_cast<T>( bytes );
      return bytes < enumNames( T() ).values.size();
   }
};

template <class T>
requires std::derived_from<T, Mox::FlagSet<T>>
struct FlatForm<T> {
   using Bytes = uint32_t;
   static Mox::String typeText() {
      return "flags " + Mox::String( T::typeName ) + "/" +
             Mox::valueToStrep( unsigned( T::flagCount ) );
   }
   static void write( const T& value, Bytes& bytes ) { bytes = value.value(); }
   static bool read( const Bytes& bytes, T& out ) {
      if ( bytes > T::limit ) return false;
      out.valueIs( bytes );
      return true;
   }
};

// The default address is all zeros, so that the default key is the zero key, which
// a table refuses.
template <>
struct FlatForm<Vantu::IpGenAddr> {
   struct Bytes {
      uint8_t address[Vantu::IpGenAddr::maxBytes];
      uint32_t family;  // 0: IPv4, 6: IPv6
   };
   static Mox::String typeText() { return "IpGenAddr"; }
   static void write( const Vantu::IpGenAddr& value, Bytes& bytes ) {
      std::memcpy( bytes.address, value.bytes().data(), sizeof bytes.address );
      bytes.family = value.family() == Vantu::AddressFamily::ipv6 ? 6 : 0;
   }
   static bool read( const Bytes& bytes, Vantu::IpGenAddr& out ) {
      if ( bytes.family != 0 && bytes.family != 6 ) return false;
      out = Vantu::IpGenAddr::fromBytes( bytes.family == 6
                                            ? Vantu::AddressFamily::ipv6
                                            : Vantu::AddressFamily::ipv4,
                                         bytes.address );
      return true;
   }
};

template <>
struct FlatForm<Vantu::IpGenPrefix> {
   struct Bytes {
      FlatForm<Vantu::IpGenAddr>::Bytes address;
      uint32_t length;  // 0 for no prefix, otherwise its length plus one
   };
   static Mox::String typeText() { return "IpGenPrefix"; }
   static void write( const Vantu::IpGenPrefix& value, Bytes& bytes ) {
      if ( value.isNone() ) return;
      FlatForm<Vantu::IpGenAddr>::write( value.address(), bytes.address );
      bytes.length = value.length() + 1;
   }
   static bool read( const Bytes& bytes, Vantu::IpGenPrefix& out ) {
      Vantu::IpGenAddr address;
      if ( !FlatForm<Vantu::IpGenAddr>::read( bytes.address, address ) ||
           bytes.length > Vantu::addressBits( address.family() ) + 1 )
         return false;
      out = bytes.length == 0 ? Vantu::IpGenPrefix()
                              : Vantu::IpGenPrefix( address, bytes.length - 1 );
      return true;
   }
};

template <>
struct FlatForm<Vantu::IntfId> {
   struct Bytes {
      char name[Vantu::IntfId::maxLength + 1];  // ends with a NUL
   };
   static Mox::String typeText() { return "IntfId"; }
   static void write( Vantu::IntfId value, Bytes& bytes ) {
      Mox::StringView name = value.name();
      std::memcpy( bytes.name, name.data(), name.size() );
   }
   static bool read( const Bytes& bytes, Vantu::IntfId& out ) {
      return readIntfId( bytes.name, out );
   }
};

}

#define BRANE_FLAT_FIELD( type, name, ... ) FlatForm<type>::Bytes name;
#define BRANE_FLAT_WRITE( type, name, ... ) \
   FlatForm<type>::write( value.name, bytes.name );
#define BRANE_FLAT_READ( type, name, ... ) \
   if ( !FlatForm<type>::read( bytes.name, out.name ) ) return false;
#define BRANE_FLAT_ENTRY( type, name, ... )                 \
   Field{ #name, FlatForm<type>::typeText(),                \
          static_cast<uint32_t>( offsetof( Bytes, name ) ), \
          static_cast<uint32_t>( sizeof( Bytes::name ) ) },

// The flat form of a record with rows; in namespace ::Brane. `Type` and the types
// in the rows must be visible there.
#define BRANE_FLAT_RECORD( Type, text, ROWS )                                     \
   template <>                                                                    \
   struct FlatForm<Type> {                                                        \
      struct Bytes {                                                              \
         ROWS( BRANE_FLAT_FIELD )                                                 \
      };                                                                          \
      static Mox::String typeText() { return recordTypeText( text, fields() ); }  \
      static void write( const Type& value, Bytes& bytes ) {                      \
         ROWS( BRANE_FLAT_WRITE )                                                 \
      }                                                                           \
      static bool read( const Bytes& bytes, Type& out ) {                         \
         ROWS( BRANE_FLAT_READ )                                                  \
         return true;                                                             \
      }                                                                           \
      static std::vector<Field> fields() { return { ROWS( BRANE_FLAT_ENTRY ) }; } \
   };
