// Texts that read back as the printed value. The fuzzer tests this, too.
#include "platform/base/Text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "tests/support/ErrorText.h"

namespace Mox {
namespace {

template <class T>
void expectReadBack( T value, const char* text ) {
   EXPECT_EQ( valueToStrep( value ), text );
   EXPECT_EQ( stringToValue<T>( text ), value ) << text;
}
template <class T, class Error>
void expectRefused( std::initializer_list<const char*> texts ) {
   for ( const char* text : texts )
      EXPECT_THROW( stringToValue<T>( text ), Error ) << '"' << text << '"';
}

TEST( Text, NumbersAreExactAndInTheirRange ) {
   expectReadBack<uint8_t>( 65, "65" );
   expectReadBack<int8_t>( -65, "-65" );
   expectReadBack<char>( 'A', "65" );
   expectReadBack<uint64_t>( ~uint64_t( 0 ), "18446744073709551615" );
   expectReadBack( std::numeric_limits<int64_t>::min(), "-9223372036854775808" );
   expectReadBack( true, "true" );
   expectReadBack( 0.1, "0.1" );
   expectReadBack( std::numeric_limits<double>::infinity(), "inf" );
   unsigned seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   for ( int i = 0; i < 1000; ++i ) {
      double value = std::ldexp( double( random() ), int( random() % 200 ) - 100 );
      EXPECT_EQ( stringToValue<double>( valueToStrep( value ) ), value );
   }
   expectRefused<uint8_t, RangeError>( { "256" } );
   expectRefused<int8_t, RangeError>( { "-129" } );
   expectRefused<uint64_t, RangeError>( { "18446744073709551616" } );
   expectRefused<double, RangeError>( { "1e999" } );
   expectRefused<uint32_t, ParseError>( { "", "-1", "+1", "1 ", "0x10" } );
   expectRefused<bool, ParseError>( { "True" } );
   expectRefused<double, ParseError>( { "fast" } );
}

TEST( Text, EveryByteOfAStringIsReadBack ) {
   String all;
   for ( int c = 0; c < 256; ++c ) all += static_cast<char>( c );
   EXPECT_EQ( stringToValue<String>( valueToStrep( all ) ), all );
   EXPECT_EQ( valueToStrep( String( "it's \\ \n\t\x7f\xc3" ) ),
              R"('it\'s \\ \n\t\x7f\xc3')" );
   expectRefused<String, ParseError>(
      { "a'", "'\\q'", "'\\x1'", "'\\xg0'", "'a'b'" } );
   // What stands behind the end is not read.
   const String whole = R"('a\x1f\'')";
   for ( size_t size = 0; size < whole.size(); ++size ) {
      StringIter begin = whole.c_str();
      EXPECT_THROW( sequenceToValue( begin, begin + size, all ), ParseError );
   }
}

TEST( Text, ParsersStopBehindTheirValueAndErrorsShowThePlace ) {
   String text = "'a'12 rest";
   StringIter begin = text.c_str();
   StringIter end = begin + text.size();
   String first;
   uint32_t second = 0;
   sequenceToValue( begin, end, first );
   sequenceToValue( begin, end, second );
   EXPECT_EQ( first + std::to_string( second ), "a12" );
   EXPECT_EQ( Mox::Test::errorText<ParseError>(
                 [&] { expectLiteral( begin, end, " west" ); } ),
              R"(expected " west" at ' rest')" );
   EXPECT_STREQ( begin, " rest" ) << "a failed literal consumes nothing";
}

}
}
