// What a writer's mount tells of a table that others left.
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

struct Row {
   // How the table stood before.
   void ( *leave )( ::Brane::Layout& layout, ::Brane::WriterOptions& options );
   const char* status;
   uint32_t kept;
   bool isProblem;
};
using Layout = ::Brane::Layout;
using Options = ::Brane::WriterOptions;
const Row kRows[] = {
   { []( Layout&, Options& ) {}, "attachResized", 3, false },
   { []( Layout&, Options& options ) { options.bootId = "the boot before"; },
     "attachOtherBoot", 0, true },
   { []( Layout& layout, Options& ) { layout.fields.back().name += "Once"; },
     "attachConverted", 3, true },
   { []( Layout& layout, Options& ) { layout.fields.front().type += "Once"; },
     "attachOtherKey", 0, true },
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
      const bool ours = layout.fingerprint() == own;
      { ::Brane::TableWriter( Side::file( root.path() ), layout, 30, options ); }
      Side next( clock, root.path(), ::Brane::tableWriter, ours ? 20 : 30 );
      EXPECT_EQ( next.shelf->book().size(), row.kept );
      EXPECT_EQ( next.shelf->book().has( bookKey( 2 ) ), row.kept == 3 );
      std::string told;
      for ( const auto& line : traces.take() ) told += line + '\n';
      EXPECT_THAT( told, HasSubstr( row.status ) );
      Mox::String problem = next.shelf->bookControl()->problem();
      EXPECT_EQ( !problem.empty(), row.isProblem ) << problem;
      EXPECT_THAT( told, HasSubstr( problem ) );
      if ( ours ) continue;
      for ( uint64_t print : { own, layout.fingerprint() } )
         EXPECT_THAT( problem, HasSubstr( fmt::format( "{:#x}", print ) ) );
   }
}

}
}
