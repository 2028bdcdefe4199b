// Enumerations, flag sets and records: the text forms that come from rows.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/base/Enum.h"
#include "platform/base/Flags.h"
#include "platform/base/Record.h"
#include "tests/support/ErrorText.h"

namespace Mox {
namespace {

using Test::errorText;

#define TEST_STATES( V ) V( idle ) V( running ) V( run )
#define TEST_FLAGS( FLAG ) FLAG( first, 'F' ) FLAG( silent, ' ' ) FLAG( third, 'T' )

struct Task {
   MOX_ENUM( State, TEST_STATES )
   MOX_FLAGS( Marks, "Test::Task::", TEST_FLAGS )
};
MOX_ENUM_TEXT( Task::State, TEST_STATES )

#define TEST_JOB( FIELD )                  \
   FIELD( Task::State, state, Task::idle ) \
   FIELD( String, name, {} )               \
   FIELD( Task::Marks, marks, {} )         \
   FIELD( uint8_t, level, 7 )
struct Job {
   TEST_JOB( MOX_RECORD_FIELD )
   bool operator==( const Job& ) const = default;
};
MOX_RECORD_TEXT( Job, "Test::Job", TEST_JOB )

TEST( Enum, NamesAndNumbersMapBothWays ) {
   EXPECT_EQ( enumInstance<Task::State>( 1 ), Task::running );
   EXPECT_EQ( enumInstance<Task::State>( "run" ), Task::run );
   EXPECT_EQ( stringToValue<Task::State>( "running" ), Task::running );
   EXPECT_THROW( stringToValue<Task::State>( "" ), ParseError );
   EXPECT_EQ( errorText<RangeError>( [] { enumInstance<Task::State>( 3 ); } ),
              "Task::State has no value 3" );
   EXPECT_EQ( errorText<RangeError>( [] { stringToValue<Task::State>( "ru" ); } ),
              "Task::State has no value 'ru'" );
   EXPECT_EQ( stringValue( static_cast<Task::State>( 9 ) ), "9" );
}

TEST( Flags, RowOrderGivesBitsTextAndLimit ) {
   Task::Marks marks;
   marks.thirdIs( true );
   EXPECT_EQ( marks.value(), 4u );
   marks.firstIs( true );
   marks.thirdIs( false );
   EXPECT_EQ( marks.value(), 1u );
   String text =
      "Value('Test::Task::Marks', ** {'first': true, 'silent': false, "
      "'third': false})";
   EXPECT_EQ( valueToStrep( marks ), text );
   EXPECT_EQ( stringToValue<Task::Marks>( text ), marks );
   StringIter begin = text.c_str();
   EXPECT_EQ( Task::Marks( begin, begin + text.size() ), marks );
   EXPECT_EQ( errorText<RangeError>( [&] { marks.valueIs( 8 ); } ),
              "Marks::value > 0x7 not allowed" );
   EXPECT_EQ( marks.value(), 1u ) << "a refused word leaves the flags";
   EXPECT_THROW( Task::Marks( 0xffffffff ), RangeError );
}

TEST( Flags, ParserWantsEveryFlagInOrder ) {
   for ( const char* text :
         { "Value('Test::Task::Marks', ** {'first': true, 'third': false})",
           "Value('Test::Task::Marks', ** {'silent': true, 'first': true, 'third': "
           "true})",
           "Value('Test::Task::Marks', ** {'first': 1, 'silent': 0, 'third': 0})",
           "Value('Marks', ** {'first': true, 'silent': true, 'third': true})",
           "Value('Test::Task::Marks', ** {'first': true, 'silent': true, 'third': "
           "true}) " } ) {
      EXPECT_THROW( stringToValue<Task::Marks>( text ), ParseError ) << text;
   }
}

TEST( Record, NestsAndIsReadBack ) {
   Job job{ Task::run, "it's", Task::Marks( 2 ), 65 };
   String text =
      "Value('Test::Job', ** {'state': run, 'name': 'it\\'s', 'marks': "
      "Value('Test::Task::Marks', ** {'first': false, 'silent': true, "
      "'third': false}), 'level': 65})";
   EXPECT_EQ( valueToStrep( job ), text );
   EXPECT_EQ( stringToValue<Job>( text ), job );
   EXPECT_EQ( stringToValue<Job>( valueToStrep( Job() ) ), Job() );
   // Cut anywhere, it is refused.
   for ( size_t length = 0; length < text.size(); ++length ) {
      EXPECT_ANY_THROW( stringToValue<Job>( text.substr( 0, length ) ) ) << length;
   }
}

TEST( Record, FailuresNameTheField ) {
   String text = valueToStrep( Job() );
   auto with = [&]( const char* from, const char* to ) {
      String changed = text;
      changed.replace( changed.find( from ), strlen( from ), to );
      return [changed] { stringToValue<Job>( changed ); };
   };
   EXPECT_EQ( errorText<RangeError>( with( "7", "256" ) ),
              "level: 256 is above 255" );
   EXPECT_EQ( errorText<RangeError>( with( "idle", "busy" ) ),
              "state: Task::State has no value 'busy'" );
   EXPECT_EQ( errorText<ParseError>( with( "''", "x" ) ).substr( 0, 6 ), "name: " );
   EXPECT_THROW( with( "'level'", "'label'" )(), ParseError );
}

}
}
