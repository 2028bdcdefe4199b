// Enumerations with names.
//
//    #define PIMSM_UP_JOIN_STATES( V ) V( upNotJoined ) V( upJoined )
//    MOX_ENUM( UpJoinState, PIMSM_UP_JOIN_STATES )
//
// declares the unscoped 32-bit enumeration, numbered from 0 in row order. Outside
// any class, after it:
//
//    MOX_ENUM_TEXT( UpJoinState, PIMSM_UP_JOIN_STATES )
//
// adds stringValue(), valueToStrep(), sequenceToValue() and operator<<, which all
// give and take the value's name. Mox::enumInstance<T>() maps a number or a name
// to the value; an unknown one is a RangeError.
#pragma once

#include <cstdint>
#include <span>

#include "platform/base/Text.h"

namespace Mox {

// The type's name for messages, and the names of its values in order.
struct EnumNames {
   StringView type;
   std::span<const StringView> values;
};

namespace Detail {
// A number outside the enumeration prints as itself and is not read back.
PIMSM_API String enumText( const EnumNames& names, uint32_t value );
PIMSM_API uint32_t enumFromName( const EnumNames& names, StringView name );
PIMSM_API uint32_t enumFromNumber( const EnumNames& names, uint32_t number );
PIMSM_API uint32_t parseEnum( const EnumNames& names, StringIter& begin,
                              StringIter end );
}

template <class Enum>
Enum enumInstance( uint32_t number ) {
   return static_cast<Enum>(
      Detail::enumFromNumber( enumNames( Enum() ), number ) );
}

template <class Enum>
Enum enumInstance( StringView name ) {
   return static_cast<Enum>( Detail::enumFromName( enumNames( Enum() ), name ) );
}

}

#define MOX_ENUM_VALUE( name ) name,
#define MOX_ENUM_NAME( name ) #name,

#define MOX_ENUM( Type, ROWS ) enum Type : uint32_t { ROWS( MOX_ENUM_VALUE ) };

#define MOX_ENUM_TEXT( Type, ROWS )                                              \
   inline ::Mox::EnumNames enumNames( Type ) {                                   \
      static constexpr ::Mox::StringView names[] = { ROWS( MOX_ENUM_NAME ) };    \
      return { #Type, names };                                                   \
   }                                                                             \
   inline ::Mox::String stringValue( Type value ) {                              \
      return ::Mox::Detail::enumText( enumNames( value ), value );               \
   }                                                                             \
   inline ::Mox::String valueToStrep( Type value ) {                             \
      return stringValue( value );                                               \
   }                                                                             \
   inline void sequenceToValue( ::Mox::StringIter& begin, ::Mox::StringIter end, \
                                Type& out ) {                                    \
      out = static_cast<Type>(                                                   \
         ::Mox::Detail::parseEnum( enumNames( Type() ), begin, end ) );          \
   }                                                                             \
   inline std::ostream& operator<<( std::ostream& stream, Type value ) {         \
      return ::Mox::Detail::put( stream, stringValue( value ) );                 \
   }
