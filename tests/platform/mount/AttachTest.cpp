// The report of a writer's mount about an existing table.
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/loop/TestClock.h"
#include "tests/platform/mount/Shelf.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TraceCapture.h"

namespace MoxBrane::Test {
namespace {

using testing::HasSubstr;

using Layout = ::Brane::Layout;
using Options = ::Brane::WriterOptions;
struct Row {
   const char* status;
   uint32_t kept;
   // The former state of the table.
   void ( *leave )( Layout& layout, Options& options );
};
const Row kRows[] = {
   { "attachResized", 3, []( Layout&, Options& ) {} },
   { "attachOtherBoot", 0, []( Layout&, Options& o ) { o.bootId = "another"; } },
   { "attachConverted", 3,
     []( Layout& l, Options& ) { l.fields[5].name += "Once"; } },
   { "attachOtherKey", 0,
     []( Layout& l, Options& ) { l.fields[0].type += "Once"; } },
};

TEST( Attach, TellsWhatBecameOfTheRecords ) {
   for ( const Row& row : kRows ) {
      SCOPED_TRACE( row.status );
      Mox::TestClock clock;
      Mox::Test::TempRoot root;
      Mox::Test::TraceCapture traces( "Pimsm::Table/0" );
      Layout layout = BookTable::makeLayout();
      const uint64_t own = layout.fingerprint();
      {
         Side former( clock, root.path(), ::Brane::tableWriter, 20 );
         for ( uint32_t i = 1; i <= 3; ++i ) former.shelf->bookIs( bookOf( i ) );
      }
      EXPECT_TRUE( traces.take().empty() ) << "nothing stood there";
      Options options;
      row.leave( layout, options );
      { ::Brane::TableWriter( Side::file( root.path() ), layout, 30, options ); }
      Side next( clock, root.path(), ::Brane::tableWriter, 20 );
      EXPECT_EQ( next.shelf->book().size(), row.kept );
      EXPECT_EQ( next.shelf->book().has( bookKey( 2 ) ), row.kept == 3 );
      std::string told;
      for ( const auto& line : traces.take() ) told += line + '\n';
      EXPECT_THAT( told, HasSubstr( row.status ) );
      Mox::String problem = next.control().problem();
      EXPECT_EQ( problem.empty(), &row == kRows ) << problem;
      EXPECT_THAT( told, HasSubstr( problem ) );
      if ( layout.fingerprint() == own ) continue;
      for ( uint64_t print : { own, layout.fingerprint() } )
         EXPECT_THAT( problem, HasSubstr( fmt::format( "{:#x}", print ) ) );
   }
}

}
}
