#include "platform/trace/Trace.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace Mox {
namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

// Runs before the facility below is constructed.
const bool earlySetting = [] {
   traceSettingsIs( "Early::*/2-3" );
   return true;
}();
MOX_TRACE_FACILITY( early, "Early::Bird" )
const uint32_t earlyLevels =
   ( early.enabled( 1 ) << 1 ) | ( early.enabled( 2 ) << 2 ) |
   ( early.enabled( 3 ) << 3 ) | ( early.enabled( 4 ) << 4 );

class Trace : public testing::Test {
 protected:
   Trace() {
      traceSinkIs( [this]( const TraceRecord& r ) {
         lines.push_back( fmt::format( "{}/{}: {}", r.facility, r.level, r.text ) );
      } );
   }
   ~Trace() override {
      traceSinkIs( {} );
      traceSettingsIs( "" );
   }

   static String enabledLevels( const TraceFacility& facility ) {
      String out;
      for ( unsigned level = 0; level <= TraceFacility::maxLevel; ++level ) {
         if ( facility.enabled( level ) ) out += std::to_string( level );
      }
      return out;
   }

   std::vector<String> lines;
   TraceFacility writer{ "Pimsm::RouteBraneWriter" };
   TraceFacility reader{ "Pimsm::RouteBraneReader" };
};

TEST_F( Trace, SettingsBeforeConstructionCount ) {
   EXPECT_EQ( earlyLevels, 0b1100u );
}

TEST_F( Trace, FirstMatchingEntryDecides ) {
   traceSettingsIs( "Pimsm::RouteBraneWriter/2-6, Pimsm*/8" );
   EXPECT_EQ( enabledLevels( writer ), "23456" );
   EXPECT_EQ( enabledLevels( reader ), "012345678" );
   EXPECT_EQ( enabledLevels( defaultTraceFacility ), "012345678" );
   EXPECT_EQ( enabledLevels( early ), "" );
   traceSettingsIs( "Early::Bird/9-9" );
   EXPECT_EQ( enabledLevels( early ), "9" );
   EXPECT_EQ( enabledLevels( writer ), "" );
}

TEST_F( Trace, BadEntriesAreReportedAndTheOthersCount ) {
   for ( const char* bad :
         { "Pimsm*", "/3", "Pimsm*/", "Pimsm*/10", "Pimsm*/6-3", "Pimsm*/a-3",
           "Pimsm*/3-", "Pimsm*/-3", "Pimsm*/3-4-5" } ) {
      CaptureStderr();
      traceSettingsIs( String( bad ) + ",,Pimsm::*Reader/1" );
      String warning = GetCapturedStderr();
      EXPECT_NE( warning.find( "'" + String( bad ) + "' left out" ), String::npos )
         << bad << ": " << warning;
      EXPECT_EQ( std::count( warning.begin(), warning.end(), '\n' ), 1 ) << bad;
      EXPECT_EQ( enabledLevels( reader ), "01" ) << bad;
      EXPECT_EQ( enabledLevels( writer ), "" ) << bad;
   }
}

TEST_F( Trace, DisabledEvaluatesNothing ) {
   int evaluated = 0;
   auto count = [&] { return ++evaluated; };
   traceSettingsIs( "Pimsm*/3" );
   MOX_TRACE( writer, 4, "n " << count() );
   EXPECT_EQ( evaluated, 0 );
   MOX_TRACE( writer, 3, "n " << count() << ", twice " << 2 * evaluated );
   EXPECT_EQ( lines,
              std::vector<String>{ "Pimsm::RouteBraneWriter/3: n 1, twice 2" } );
}

TEST_F( Trace, WhatAnArgumentThrowsPassesAndNothingIsTraced ) {
   traceSettingsIs( "Pimsm*/3" );
   auto fail = []() -> int { throw std::range_error( "too long" ); };
   EXPECT_THROW( MOX_TRACE( writer, 3, "half " << fail() ), std::range_error );
   EXPECT_TRUE( lines.empty() );
   MOX_TRACE( writer, 3, "whole" );
   EXPECT_EQ( lines.size(), 1u );
}

TEST_F( Trace, SinkMayTraceAndReplaceItself ) {
   traceSettingsIs( "Pimsm*/3" );
   int calls = 0;
   traceSinkIs( [&, big = std::vector<int>( 100 )]( const TraceRecord& ) {
      ++calls;
      MOX_TRACE( writer, 0, "from the sink" );
      traceSinkIs( {} );
      calls += static_cast<int>( big.size() );
   } );
   MOX_TRACE( writer, 0, "one" );
   EXPECT_EQ( calls, 101 );
}

TEST_F( Trace, DefaultSinkWritesOneLine ) {
   traceSinkIs( {} );
   traceSettingsIs( "Pimsm/0" );
   CaptureStderr();
   MOX_TRACE( defaultTraceFacility, 0, "two\nparts" );
   String line = GetCapturedStderr();
   EXPECT_NE( line.find( " Pimsm 0 two parts\n" ), String::npos ) << line;
   EXPECT_GT( std::stod( line ), 0.0 );
   EXPECT_EQ( std::count( line.begin(), line.end(), '\n' ), 1 );
}

TEST_F( Trace, DestroyedFacilityLeavesTheRegistry ) {
   auto gone = std::make_unique<TraceFacility>( "Pimsm::Gone" );
   gone.reset();
   traceSettingsIs( "Pimsm*/3" );
   EXPECT_TRUE( writer.enabled( 3 ) );
}

}
}
