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

TEST( Text, NumbersPrintInDecimalEightBitOnesToo ) {
   expectReadBack<uint8_t>( 65, "65" );
   expectReadBack<int8_t>( -65, "-65" );
   expectReadBack<char>( 'A', "65" );
   expectReadBack<uint64_t>( std::numeric_limits<uint64_t>::max(),
                             "18446744073709551615" );
   expectReadBack<int64_t>( std::numeric_limits<int64_t>::min(),
                            "-9223372036854775808" );
   expectReadBack( true, "true" );
}

TEST( Text, NumbersOutOfTheirTypesRangeAreRangeErrors ) {
   EXPECT_THROW( stringToValue<uint8_t>( "256" ), RangeError );
   EXPECT_THROW( stringToValue<int8_t>( "-129" ), RangeError );
   EXPECT_THROW( stringToValue<uint64_t>( "18446744073709551616" ), RangeError );
   EXPECT_THROW( stringToValue<double>( "1e999" ), RangeError );
}

TEST( Text, BrokenLiteralsAreParseErrors ) {
   for ( const char* text : { "", "-1", "+1", "1 ", "0x10" } ) {
      EXPECT_THROW( stringToValue<uint32_t>( text ), ParseError ) << text;
   }
   EXPECT_THROW( stringToValue<bool>( "True" ), ParseError );
   EXPECT_THROW( stringToValue<double>( "fast" ), ParseError );
}

TEST( Text, DoublesAreShortAndExact ) {
   expectReadBack( 0.1, "0.1" );
   expectReadBack( 0.0, "0" );
   expectReadBack( std::numeric_limits<double>::infinity(), "inf" );
   unsigned seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937_64 random( seed );
   for ( int i = 0; i < 1000; ++i ) {
      double value = std::ldexp( static_cast<double>( random() ),
                                 static_cast<int>( random() % 200 ) - 100 );
      EXPECT_EQ( stringToValue<double>( valueToStrep( value ) ), value );
   }
}

TEST( Text, EveryByteOfAStringIsReadBack ) {
   String all;
   for ( int c = 0; c < 256; ++c ) all += static_cast<char>( c );
   EXPECT_EQ( stringToValue<String>( valueToStrep( all ) ), all );
   EXPECT_EQ( valueToStrep( String( "it's \\ \n\t\x7f\xc3" ) ),
              R"('it\'s \\ \n\t\x7f\xc3')" );
   for ( char c : valueToStrep( all ) ) {
      EXPECT_TRUE( c >= 0x20 && c < 0x7f ) << static_cast<int>( c );
   }
   for ( const char* bad :
         { "", "'", "'a", "a'", "'\\", "'\\q'", "'\\x1'", "'\\xg0'", "'a'b'" } ) {
      EXPECT_THROW( stringToValue<String>( bad ), ParseError ) << bad;
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
