#include "platform/base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ostream>

namespace Mox {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

bool isDigit( char c ) {
   return c >= '0' && c <= '9';
}

void appendEscaped( String& out, char c ) {
   switch ( c ) {
      case '\\':
      case '\'':
         out += '\\';
         out += c;
         return;
      case '\n':
         out += "\\n";
         return;
      case '\t':
         out += "\\t";
         return;
      default:
         break;
   }
   auto byte = static_cast<unsigned char>( c );
   if ( byte >= 0x20 && byte < 0x7f ) {
      out += c;
      return;
   }
   out += "\\x";
   out += kHexDigits[byte >> 4];
   out += kHexDigits[byte & 15];
}

unsigned hexDigit( StringIter& begin, StringIter end ) {
   if ( begin == end ) parseFailed( "a hexadecimal digit", begin, end );
   const char* found = std::find( kHexDigits, kHexDigits + 16, *begin );
   if ( found == kHexDigits + 16 ) parseFailed( "a hexadecimal digit", begin, end );
   ++begin;
   return static_cast<unsigned>( found - kHexDigits );
}

// `begin` points behind the backslash.
char unescape( StringIter& begin, StringIter end ) {
   if ( begin == end ) parseFailed( "an escaped character", begin, end );
   switch ( char c = *begin++ ) {
      case '\\':
      case '\'':
         return c;
      case 'n':
         return '\n';
      case 't':
         return '\t';
      case 'x': {
         unsigned high = hexDigit( begin, end );
         return static_cast<char>( ( high << 4 ) | hexDigit( begin, end ) );
      }
      default:
         parseFailed( "a known escape", begin - 1, end );
   }
}

}

void parseFailed( StringView expected, StringIter begin, StringIter end ) {
   constexpr std::ptrdiff_t kShown = 40;
   if ( begin == end ) {
      throw ParseError( fmt::format( "expected {} but the text ends", expected ) );
   }
   StringView rest( begin, static_cast<size_t>( std::min( end - begin, kShown ) ) );
   throw ParseError( fmt::format( "expected {} at {}{}", expected,
                                  valueToStrep( String( rest ) ),
                                  end - begin > kShown ? "..." : "" ) );
}

bool acceptLiteral( StringIter& begin, StringIter end, StringView literal ) {
   if ( static_cast<size_t>( end - begin ) < literal.size() ) return false;
   if ( StringView( begin, literal.size() ) != literal ) return false;
   begin += literal.size();
   return true;
}

void expectLiteral( StringIter& begin, StringIter end, StringView literal ) {
   if ( acceptLiteral( begin, end, literal ) ) return;
   parseFailed( fmt::format( "\"{}\"", literal ), begin, end );
}

namespace Detail {

std::ostream& put( std::ostream& stream, StringView text ) {
   return stream << text;
}

String unsignedText( uint64_t value ) {
   return fmt::format_int( value ).str();
}
String signedText( int64_t value ) {
   return fmt::format_int( value ).str();
}

uint64_t parseUnsigned( StringIter& begin, StringIter end, uint64_t max ) {
   if ( begin == end || !isDigit( *begin ) ) parseFailed( "a number", begin, end );
   uint64_t value = 0;
   auto [rest, error] = std::from_chars( begin, end, value );
   if ( error != std::errc() || value > max ) {
      throw RangeError(
         fmt::format( "{} is above {}", StringView( begin, rest - begin ), max ) );
   }
   begin = rest;
   return value;
}

int64_t parseSigned( StringIter& begin, StringIter end, int64_t min, int64_t max ) {
   int64_t value = 0;
   auto [rest, error] = std::from_chars( begin, end, value );
   if ( error == std::errc::invalid_argument )
      parseFailed( "a number", begin, end );
   if ( error != std::errc() || value < min || value > max ) {
      throw RangeError( fmt::format( "{} is not between {} and {}",
                                     StringView( begin, rest - begin ), min,
                                     max ) );
   }
   begin = rest;
   return value;
}

bool parseBool( StringIter& begin, StringIter end ) {
   if ( acceptLiteral( begin, end, "true" ) ) return true;
   if ( acceptLiteral( begin, end, "false" ) ) return false;
   parseFailed( "true or false", begin, end );
}

}

template <>
String valueToStrep( double value ) {
   char buffer[32];
   auto result = std::to_chars( buffer, buffer + sizeof buffer, value );
   return String( buffer, result.ptr );
}

void sequenceToValue( StringIter& begin, StringIter end, double& out ) {
   auto [rest, error] = std::from_chars( begin, end, out );
   if ( error == std::errc::invalid_argument )
      parseFailed( "a number", begin, end );
   if ( error != std::errc() ) {
      throw RangeError( fmt::format( "{} does not fit a double",
                                     StringView( begin, rest - begin ) ) );
   }
   begin = rest;
}

String valueToStrep( const String& value ) {
   String out = "'";
   for ( char c : value ) appendEscaped( out, c );
   out += '\'';
   return out;
}

void sequenceToValue( StringIter& begin, StringIter end, String& out ) {
   expectLiteral( begin, end, "'" );
   out.clear();
   while ( !acceptLiteral( begin, end, "'" ) ) {
      if ( begin == end ) parseFailed( "a closing quote", begin, end );
      char c = *begin++;
      out += c == '\\' ? unescape( begin, end ) : c;
   }
}

String pointerText( const void* pointer ) {
   return fmt::format( "0x{:x}", reinterpret_cast<uintptr_t>( pointer ) );
}

}
