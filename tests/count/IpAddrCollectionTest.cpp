#include <gtest/gtest.h>

#include "count/IpAddrCollection.h"
#include "tests/support/ThrowingAssertions.h"

namespace Routing::Pim::SparseMode {
namespace {

const Vantu::IpGenAddr kFirst( "192.0.2.1" );
const Vantu::IpGenAddr kSecond( "2001:db8::1" );

TEST( IpAddrCollection, TellsNothingAsTextAndReadsNone ) {
   IpAddrCollection collection;
   EXPECT_EQ( valueToStrep( collection ), "None" );
   collection.addrIs( kFirst, true );
   EXPECT_EQ( valueToStrep( collection ), "None" );
   EXPECT_EQ( Mox::Test::assertionText( [] { IpAddrCollection( "None" ); } ),
              "No String constructor for IpAddrCollection - has collection" );
}

TEST( IpAddrCollection, ComparesMembersAndFlagsWhateverTheirOrder ) {
   IpAddrCollection a, b;
   EXPECT_TRUE( !a );
   a.addrIs( kFirst, true );
   a.addrIs( kSecond, true );
   b.addrIs( kSecond, true );
   EXPECT_NE( a, b );
   b.addrIs( kFirst, false );
   EXPECT_NE( a, b );
   EXPECT_TRUE( b.addrIs( kFirst, true ) );
   EXPECT_FALSE( b.addrIs( kFirst, true ) );
   EXPECT_EQ( a, b );
   EXPECT_TRUE( b.addrDel( kFirst ) );
   EXPECT_FALSE( b.addrDel( kFirst ) );
   EXPECT_EQ( b.addr( kFirst ), nullptr );
   EXPECT_FALSE( !b );
   b.addrDelAll();
   EXPECT_EQ( b, IpAddrCollection() );
}

}
}
