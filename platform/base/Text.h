// Text forms ("streps"): every value type prints with valueToStrep() and is read
// back by sequenceToValue() from exactly that text.
//
// A type joins in with two free functions in its own namespace:
//
//    Mox::String valueToStrep( const T& );
//    void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end, T& out );
//
// The parser advances `begin` past what it read, so that parsers nest. It throws
// ParseError on an unexpected text and RangeError on a value that is not allowed;
// `out` is then unspecified. What one prints the other accepts.
//
// Forms: bool `true`/`false`; integers in decimal, 8-bit ones too; a double in the
// shortest form that reads back to the same value, infinity `inf`; a string in
// single quotes with backslash escapes; a pointer as `0x` and hexadecimal digits
// (not read back).
#pragma once

#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <limits>
#include <type_traits>

#include "platform/base/Error.h"
#include "platform/base/Export.h"
#include "platform/base/String.h"

namespace Mox {

namespace Detail {
// Lets headers print without including <ostream>.
PIMSM_API std::ostream& put( std::ostream& stream, StringView text );
PIMSM_API String unsignedText( uint64_t value );
PIMSM_API String signedText( int64_t value );
PIMSM_API uint64_t parseUnsigned( StringIter& begin, StringIter end, uint64_t max );
PIMSM_API int64_t parseSigned( StringIter& begin, StringIter end, int64_t min,
                               int64_t max );
PIMSM_API bool parseBool( StringIter& begin, StringIter end );
}

template <std::same_as<bool> T>
String valueToStrep( T value ) {
   return value ? "true" : "false";
}
template <std::same_as<bool> T>
void sequenceToValue( StringIter& begin, StringIter end, T& out ) {
   out = Detail::parseBool( begin, end );
}

template <std::integral T>
requires( !std::same_as<T, bool> ) String valueToStrep( T value ) {
   if constexpr ( std::is_signed_v<T> ) {
      return Detail::signedText( value );
   } else {
      return Detail::unsignedText( value );
   }
}
template <std::integral T>
requires( !std::same_as<T, bool> ) void sequenceToValue( StringIter& begin,
                                                         StringIter end, T& out ) {
   using Limits = std::numeric_limits<T>;
   if constexpr ( std::is_signed_v<T> ) {
      out = static_cast<T>(
         Detail::parseSigned( begin, end, Limits::min(), Limits::max() ) );
   } else {
      out = static_cast<T>( Detail::parseUnsigned( begin, end, Limits::max() ) );
   }
}

template <std::same_as<double> T>
String valueToStrep( T value );
template <>
PIMSM_API String valueToStrep( double value );
PIMSM_API void sequenceToValue( StringIter& begin, StringIter end, double& out );

PIMSM_API String valueToStrep( const String& value );
PIMSM_API void sequenceToValue( StringIter& begin, StringIter end, String& out );

PIMSM_API String pointerText( const void* pointer );

// Consumes exactly `literal`. Throws ParseError.
PIMSM_API void expectLiteral( StringIter& begin, StringIter end,
                              StringView literal );

// A ParseError that says what was expected and what stands there instead.
[[noreturn]] PIMSM_API void parseFailed( StringView expected, StringIter begin,
                                         StringIter end );

// True and advanced when `literal` stands at `begin`; else unchanged.
PIMSM_API bool acceptLiteral( StringIter& begin, StringIter end,
                              StringView literal );

// Converts a whole string: parses and demands that all of it was read.
// REQUIRES: T is default constructible and has a parser.
template <class T>
T stringToValue( StringView text ) {
   StringIter begin = text.data();
   StringIter end = begin + text.size();
   T value{};
   sequenceToValue( begin, end, value );
   if ( begin != end ) parseFailed( "the end of the text", begin, end );
   return value;
}

// Parses one field of a record; a failure names the field.
template <class T>
void fieldToValue( StringIter& begin, StringIter end, StringView name, T& out ) {
   try {
      sequenceToValue( begin, end, out );
   } catch ( const ParseError& e ) {
      throw ParseError( String( name ) + ": " + e.what() );
   } catch ( const RangeError& e ) {
      throw RangeError( String( name ) + ": " + e.what() );
   }
}

}
