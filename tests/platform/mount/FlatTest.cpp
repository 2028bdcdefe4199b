#include <gtest/gtest.h>

#include "tests/platform/mount/Shelf.h"

namespace MoxBrane::Test {
namespace {

template <class T>
using FlatBytes = typename ::Brane::FlatForm<T>::Bytes;

template <class T>
bool reads( const FlatBytes<T>& bytes ) {
   T ignored;
   return ::Brane::FlatForm<T>::read( bytes, ignored );
}

FlatBytes<Book> bytesOf( const Book& book ) {
   FlatBytes<Book> bytes;
   std::memset( &bytes, 0, sizeof bytes );
   ::Brane::FlatForm<Book>::write( book, bytes );
   return bytes;
}

TEST( Flat, RefusesWhatIsNoValue ) {
   Book book = bookOf( 1 );
   book.colour = blue;
   book.marks.valueIs( Marks::limit );
   book.place = Vantu::IntfId( Mox::String( Vantu::IntfId::maxLength, 'x' ) );
   book.lent = true;
   const FlatBytes<Book> good = bytesOf( book );
   Book read;
   ASSERT_TRUE( ::Brane::FlatForm<Book>::read( good, read ) );
   EXPECT_EQ( read, book );

   auto refuses = [&]( auto&& harm ) {
      FlatBytes<Book> bytes = good;
      harm( bytes );
      return !reads<Book>( bytes );
   };
   EXPECT_TRUE( refuses( []( auto& b ) { b.colour = 3; } ) );
   EXPECT_TRUE( refuses( []( auto& b ) { b.marks = Marks::limit + 1; } ) );
   EXPECT_TRUE( refuses( []( auto& b ) { b.key.address.family = 4; } ) );
   EXPECT_TRUE( refuses( []( auto& b ) { b.lent = 2; } ) );
   EXPECT_TRUE( refuses(
      []( auto& b ) { std::memset( b.place.name, 'y', sizeof b.place.name ); } ) );
}

// A record's type text, and so the layout of whoever has it as a field, changes
// with any of its fields.
TEST( Flat, TellsNestedRecordsApart ) {
   using ::Brane::Field;
   const Mox::String base =
      ::Brane::recordTypeText( "Key", { { "a", "u32", 0, 4 } } );
   for ( const Field& field :
         { Field{ "b", "u32", 0, 4 }, Field{ "a", "u16", 0, 4 },
           Field{ "a", "u32", 4, 4 }, Field{ "a", "u32", 0, 8 } } ) {
      EXPECT_NE( ::Brane::recordTypeText( "Key", { field } ), base );
   }
   ::Brane::Layout layout = BookTable::makeLayout();
   layout.check();
   ASSERT_EQ(
      layout.fields[0].type,
      ::Brane::recordTypeText( "BookKey", ::Brane::FlatForm<BookKey>::fields() ) );
   ::Brane::Layout other = layout;
   auto keyFields = ::Brane::FlatForm<BookKey>::fields();
   keyFields[1].type = "enum Shade/4";
   other.fields[0].type = ::Brane::recordTypeText( "BookKey", keyFields );
   EXPECT_NE( other.fingerprint(), layout.fingerprint() );
}

}
}
