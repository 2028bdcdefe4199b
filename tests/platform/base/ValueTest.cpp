// Enumerations, flag sets and records: the text forms that come from rows.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "platform/base/Enum.h"
#include "platform/base/Flags.h"
#include "platform/base/Record.h"
#include "tests/support/ErrorText.h"

namespace Mox {
namespace {

using Test::errorText;

#define TEST_STATES( V ) V( idle ) V( running ) V( run ) V( run_on )
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
   EXPECT_EQ( errorText<RangeError>( [] { enumInstance<Task::State>( 4 ); } ),
              "Task::State has no value 4" );
   EXPECT_EQ( stringToValue<Task::State>( "run_on" ), Task::run_on );
   EXPECT_EQ( errorText<RangeError>( [] { stringToValue<Task::State>( "ru" ); } ),
              "Task::State has no value 'ru'" );
   EXPECT_EQ( stringValue( static_cast<Task::State>( 9 ) ), "9" );
}

TEST( Flags, RowOrderGivesBitsAndLimit ) {
   Task::Marks marks;
   marks.thirdIs( true );
   EXPECT_EQ( marks.value(), 4u );
   marks.firstIs( true );
   marks.thirdIs( false );
   EXPECT_EQ( errorText<RangeError>( [&] { marks.valueIs( 8 ); } ),
              "Marks::value > 0x7 not allowed" );
   EXPECT_EQ( marks.value(), 1u ) << "a refused word leaves the flags";
   EXPECT_THROW( Task::Marks( 0xffffffff ), RangeError );
}

TEST( Record, NestsAndIsReadBackOrRefusedByName ) {
   const Job job{ Task::run, "it's", Task::Marks( 2 ), 65 };
   const String text =
      "Value('Test::Job', ** {'state': run, 'name': 'it\\'s', 'marks': "
      "Value('Test::Task::Marks', ** {'first': false, 'silent': true, "
      "'third': false}), 'level': 65})";
   EXPECT_EQ( valueToStrep( job ), text );
   EXPECT_EQ( stringToValue<Job>( text ), job );
   // The text is refused wherever it is cut.
   for ( size_t length = 0; length < text.size(); ++length ) {
      EXPECT_ANY_THROW( stringToValue<Job>( text.substr( 0, length ) ) ) << length;
   }
   auto with = [&]( const char* from, const char* to ) {
      String changed = text;
      changed.replace( changed.find( from ), strlen( from ), to );
      return errorText<Error>( [&] { stringToValue<Job>( changed ); } );
   };
   EXPECT_EQ( with( "65", "256" ), "level: 256 is above 255" );
   EXPECT_EQ( with( "run", "busy" ), "state: Task::State has no value 'busy'" );
   for ( auto [from, to] : { std::pair( "'it\\'s'", "x" ),
                             { "'level'", "'label'" },
                             { "Task::Marks", "Marks" },
                             { "'silent': true, ", "" },
                             { "'silent'", "'third'" },
                             { "false", "0" },
                             { "65})", "65}) " } } )
      EXPECT_THAT( with( from, to ), testing::HasSubstr( "expected" ) ) << to;
}

}
}
