#include "platform/trace/Sinks.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace Mox {
namespace {

using testing::HasSubstr;
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

   using Lines = std::vector<String>;
   Lines lines;
   TraceFacility writer{ "Pimsm::RouteBraneWriter" };
   TraceFacility reader{ "Pimsm::RouteBraneReader" };
};

TEST_F( Trace, FirstMatchingEntryDecides ) {
   EXPECT_EQ( earlyLevels, 0b1100u ) << "a setting from before the facility";
   traceSettingsIs( "Pimsm::RouteBraneWriter/2-6, Pimsm*/8" );
   EXPECT_EQ( enabledLevels( writer ), "23456" );
   EXPECT_EQ( enabledLevels( reader ), "012345678" );
   EXPECT_EQ( enabledLevels( defaultTraceFacility ), "012345678" );
   EXPECT_EQ( enabledLevels( early ), "" );
   // A destroyed facility gets no settings any more.
   std::make_unique<TraceFacility>( "Pimsm::Gone" ).reset();
   traceSettingsIs( "Early::Bird/9-9" );
   EXPECT_EQ( enabledLevels( early ), "9" );
   EXPECT_EQ( enabledLevels( writer ), "" );
}

TEST_F( Trace, BadEntriesAreReportedAndTheOthersCount ) {
   for ( const char* bad :
         { "Pimsm*", "/3", "Pimsm*/", "Pimsm*/10", "Pimsm*/6-3",
           "Pimsm*/:", "Pimsm*/.", "Pimsm*/3-", "Pimsm*/-3", "Pimsm*/3-4-5" } ) {
      CaptureStderr();
      traceSettingsIs( String( bad ) + ",,Pimsm::*Reader/1" );
      String warning = GetCapturedStderr();
      EXPECT_THAT( warning, HasSubstr( "'" + String( bad ) + "' left out" ) );
      EXPECT_EQ( std::count( warning.begin(), warning.end(), '\n' ), 1 ) << bad;
      EXPECT_EQ( enabledLevels( reader ), "01" ) << bad;
      EXPECT_EQ( enabledLevels( writer ), "" ) << bad;
   }
}

TEST_F( Trace, OnlyWhatIsEnabledIsEvaluated ) {
   int evaluated = 0;
   auto count = [&] { return ++evaluated; };
   traceSettingsIs( "Pimsm*/3" );
   MOX_TRACE( writer, 4, "n " << count() );
   EXPECT_EQ( evaluated, 0 );
   // An argument's exception passes through, and nothing is traced.
   auto fail = []() -> int { throw std::range_error( "too long" ); };
   EXPECT_THROW( MOX_TRACE( writer, 3, "half " << fail() ), std::range_error );
   // The program's locale has no say.
   struct Grouping : std::numpunct<char> {
      std::string do_grouping() const override { return "\3"; }
   };
   const std::locale former =
      std::locale::global( std::locale( std::locale(), new Grouping ) );
   MOX_TRACE( writer, 3, "n " << count() << ", many " << 1000 * evaluated );
   std::locale::global( former );
   EXPECT_EQ( lines, Lines{ "Pimsm::RouteBraneWriter/3: n 1, many 1000" } );
}

TEST_F( Trace, SinkMayTraceAndReplaceItselfByTheDefault ) {
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
   CaptureStderr();
   MOX_TRACE( defaultTraceFacility, 0, "two\nparts" );
   String line = GetCapturedStderr();
   EXPECT_THAT( line, testing::EndsWith( " Pimsm 0 two parts\n" ) );
   EXPECT_GT( std::stod( line ), 0.0 );
}

TEST_F( Trace, FieldsStandBesideTheText ) {
   traceSinkIs( [&]( const TraceRecord& r ) {
      lines.emplace_back( r.text );
      for ( const TraceField& field : r.fields )
         lines.push_back( fmt::format( "{}={}", field.name, field.value ) );
   } );
   traceSettingsIs( "Pimsm*/9" );
   MOX_TRACE(
      writer, 1,
      "full" << traceField( "VRF", "red" ) << '!' << traceField( "ROOM", 0 ) );
   MOX_TRACE( writer, 1, "next" );
   EXPECT_EQ( lines, ( Lines{ "full!", "VRF=red", "ROOM=0", "next" } ) );
   std::ostringstream other;
   other << traceField( "VRF", "red" ) << "text";
   EXPECT_EQ( other.str(), "text" );
}

// A journal socket of the test's own.
TEST_F( Trace, TheJournalGetsEntries ) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   const String path = fmt::format( "/tmp/pimsm-journal-{}", getpid() );
   path.copy( address.sun_path, sizeof address.sun_path - 1 );
   const int journal = socket( AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0 );
   ASSERT_EQ(
      bind( journal, reinterpret_cast<sockaddr*>( &address ), sizeof address ), 0 );
   traceSettingsIs( "Pimsm*/9" );
   traceSinkIs( journalSink( path ) );
   MOX_TRACE( writer, 0, "no room" << traceField( "VRF", "red" ) );
   MOX_TRACE( reader, 5, "two\nlines" );
   char bytes[1000];
   const auto entry = [&] {
      const ssize_t size = recv( journal, bytes, sizeof bytes, MSG_DONTWAIT );
      return String( bytes, static_cast<size_t>( std::max<ssize_t>( size, 0 ) ) );
   };
   EXPECT_EQ( entry(),
              "MESSAGE=no room\nPRIORITY=4\n"
              "TRACE_FACILITY=Pimsm::RouteBraneWriter\nTRACE_LEVEL=0\n"
              "VRF=red\n" );
   EXPECT_EQ( entry(), String( "MESSAGE\n\x09\0\0\0\0\0\0\0two\nlines\n", 26 ) +
                          "PRIORITY=7\nTRACE_FACILITY=Pimsm::RouteBraneReader\n"
                          "TRACE_LEVEL=5\n" );
   close( journal );
   unlink( path.c_str() );
   CaptureStderr();
   MOX_TRACE( writer, 1, "nobody takes it" );
   EXPECT_THAT( GetCapturedStderr(),
                HasSubstr( "Pimsm::RouteBraneWriter 1 nobody" ) );
}

}
}
