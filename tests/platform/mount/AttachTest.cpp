// What a writer's mount tells of a table that others left.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "platform/loop/TestClock.h"
#include "tests/platform/mount/Shelf.h"
#include "tests/support/TempRoot.h"
#include "tests/support/TraceCapture.h"

namespace MoxBrane::Test {
namespace {

struct Row {
   const char* name;
   // How the table stood before.
   void ( *leave )( ::Brane::Layout& layout, ::Brane::WriterOptions& options );
   const char* status;
   uint32_t kept;
   bool isProblem;
};
std::ostream& operator<<( std::ostream& out, const Row& row ) {
   return out << row.name;
}

class Attach : public testing::TestWithParam<Row> {};

TEST_P( Attach, TellsWhatBecameOfTheRecords ) {
   Mox::TestClock clock;
   Mox::Test::TempRoot root;
   Corvex::EntityManager manager( clock, nullptr, root.path() );
   Mox::Test::TraceCapture traces( "Pimsm::Table/0" );
   auto mount = [&]( Corvex::EntityManager& by ) {
      Mox::Ptr<Shelf> shelf( dynamic_cast<Shelf*>(
         createEntity( by, "shelf", "MoxBrane::Test::Shelf" ).get() ) );
      shelf->bookControl()->initialize( ::Brane::tableWriter, 20, false );
      return shelf;
   };
   {
      Corvex::EntityManager former( clock, nullptr, root.path() );
      Mox::Ptr<Shelf> shelf = mount( former );
      for ( uint32_t i = 1; i <= 3; ++i ) shelf->bookIs( bookOf( i, 2.5 ) );
   }
   EXPECT_TRUE( traces.take().empty() ) << "nothing stood there";
   ::Brane::Layout layout = BookTable::makeLayout();
   const uint64_t own = layout.fingerprint();
   ::Brane::WriterOptions options;
   GetParam().leave( layout, options );
   uint32_t capacity = layout.fingerprint() == own ? 30 : 20;
   {
      ::Brane::TableWriter other( root.path() + "/shelf/book", layout, capacity,
                                  options );
   }
   Mox::Ptr<Shelf> shelf = mount( manager );
   EXPECT_EQ( shelf->book().size(), GetParam().kept );
   Book book;
   bool found = shelf->book().find( bookKey( 2 ), book ) == ::Brane::lookupFound;
   EXPECT_EQ( found, GetParam().kept == 3 );
   std::string told;
   for ( const auto& line : traces.take() ) told += line + '\n';
   EXPECT_NE( told.find( GetParam().status ), std::string::npos ) << told;
   Mox::String problem = shelf->bookControl()->problem();
   EXPECT_EQ( !problem.empty(), GetParam().isProblem ) << problem;
   EXPECT_TRUE( problem.empty() || told.find( problem ) != std::string::npos );
   if ( layout.fingerprint() == own ) return;
   for ( uint64_t print : { own, layout.fingerprint() } ) {
      EXPECT_NE( problem.find( fmt::format( "{:#x}", print ) ), std::string::npos )
         << problem;
   }
}

const Row kRows[] = {
   { "AnotherCapacity", []( ::Brane::Layout&, ::Brane::WriterOptions& ) {},
     "attachResized", 3, false },
   { "AnotherBoot",
     []( ::Brane::Layout&, ::Brane::WriterOptions& options ) {
        options.bootId = "the boot before";
     },
     "attachOtherBoot", 0, true },
   { "AnotherField",
     []( ::Brane::Layout& layout, ::Brane::WriterOptions& ) {
        layout.fields.back().name += "Once";
     },
     "attachConverted", 3, true },
   { "AnotherKey",
     []( ::Brane::Layout& layout, ::Brane::WriterOptions& ) {
        layout.fields.front().type += "Once";
     },
     "attachOtherKey", 0, true },
};
INSTANTIATE_TEST_SUITE_P( Tables, Attach, testing::ValuesIn( kRows ),
                          []( const auto& each ) {
                             return std::string( each.param.name );
                          } );

}
}
