#include <gtest/gtest.h>

#include "tests/platform/mount/Shelf.h"

namespace MoxBrane::Test {
namespace {

TEST( Flat, RefusesWhatIsNoValue ) {
   Book book = bookOf( 1 ), read;
   book.colour = blue;
   book.marks.valueIs( Marks::limit );
   book.place = Vantu::IntfId( Mox::String( Vantu::IntfId::maxLength, 'x' ) );
   book.lent = true;
   const BookBytes good = flatBytesOf( book );
   ASSERT_TRUE( ::Brane::FlatForm<Book>::read( good, read ) );
   EXPECT_EQ( read, book );
   using Harm = void ( * )( BookBytes& );
   for ( Harm harm : std::initializer_list<Harm>{
            []( BookBytes& b ) { b.colour = 3; },
            []( BookBytes& b ) { b.marks = Marks::limit + 1; },
            []( BookBytes& b ) { b.key.address.family = 4; },
            []( BookBytes& b ) { b.lent = 2; },
            []( BookBytes& b ) { std::memset( b.place.name, 'y', 32 ); } } ) {
      BookBytes bytes = good;
      harm( bytes );
      EXPECT_FALSE( ::Brane::FlatForm<Book>::read( bytes, read ) );
   }
}

// A record's type text, and so the layout of any record with it as a field, changes
// with each of its fields.
TEST( Flat, TellsNestedRecordsApart ) {
   const ::Brane::Layout layout = BookTable::makeLayout();
   layout.check();
   auto expectText = [&]( const std::vector<::Brane::Field>& fields, bool same ) {
      EXPECT_EQ(
         ::Brane::recordTypeText( "BookKey", fields ) == layout.fields[0].type,
         same );
   };
   const auto fields = ::Brane::FlatForm<BookKey>::fields();
   expectText( fields, true );
   using Harm = void ( * )( ::Brane::Field& );
   for ( Harm harm : std::initializer_list<Harm>{
            []( ::Brane::Field& f ) { f.name = "b"; },
            []( ::Brane::Field& f ) { f.type = "enum Shade/4"; },
            []( ::Brane::Field& f ) { f.offset += 4; },
            []( ::Brane::Field& f ) { f.size += 4; } } ) {
      auto other = fields;
      harm( other[1] );
      expectText( other, false );
   }
}

}
}
