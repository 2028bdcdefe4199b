#include <gtest/gtest.h>

#include "register/AdvertisedSg.h"
#include "register/InternalRouteKey.h"

namespace Routing::Pim::SparseMode {
namespace {

const RouteKey kKey{ Vantu::IpGenAddr( "198.51.100.7" ),
                     Vantu::IpGenAddr( "233.252.0.1" ) };

TEST( InternalRouteKey, PrintsAsItsBareKey ) {
   const InternalRouteKey value( kKey );
   const Mox::String text = valueToStrep( value );
   EXPECT_EQ( text, valueToStrep( kKey ) );
   EXPECT_EQ( Mox::stringToValue<InternalRouteKey>( text ), value );
   // Parsers nest: this one stops behind the key.
   const Mox::String longer = text + ", more";
   Mox::StringIter begin = longer.data();
   EXPECT_EQ( InternalRouteKey( begin, longer.data() + longer.size() ), value );
   EXPECT_EQ( Mox::StringView( begin ), ", more" );
   begin = text.data() + 1;
   EXPECT_THROW( InternalRouteKey( begin, text.data() + text.size() ),
                 Mox::ParseError );
}

TEST( AdvertisedSg, ReadsBackWhatItPrints ) {
   const AdvertisedSg value{ kKey, Vantu::IpGenAddr( "192.0.2.1" ), true };
   const Mox::String text =
      "Value('Routing::Pim::SparseMode::AdvertisedSg', ** {'key': " +
      valueToStrep( kKey ) + ", 'rp': 192.0.2.1, 'anycastDiscovered': true})";
   EXPECT_EQ( valueToStrep( value ), text );
   EXPECT_EQ( Mox::stringToValue<AdvertisedSg>( text ), value );
   // Each part of the form, when broken, fails.
   for ( Mox::StringView piece : { "AdvertisedSg', ** {", "'key': ", ", 'rp': ",
                                   ", 'anycastDiscovered': ", "true", "})" } ) {
      Mox::String broken = text;
      // The closing brackets are the last of their kind, the others the first.
      broken.replace( piece == "})" ? text.rfind( piece ) : text.find( piece ),
                      piece.size(), "?" );
      EXPECT_THROW( Mox::stringToValue<AdvertisedSg>( broken ), Mox::ParseError )
         << broken;
   }
}

// In each pair the fields that come later point the wrong way.
TEST( AdvertisedSg, OrdersByKeyThenRpThenDiscovery ) {
   const Vantu::IpGenAddr low( "192.0.2.1" ), high( "192.0.2.2" );
   RouteKey next = kKey;
   next.source = Vantu::IpGenAddr( "198.51.100.8" );
   const AdvertisedSg pairs[][2] = {
      { { kKey, high, true }, { next, low, false } },
      { { kKey, low, true }, { kKey, high, false } },
      { { kKey, low, false }, { kKey, low, true } },
   };
   for ( const auto& [less, more] : pairs ) {
      EXPECT_LT( less, more );
      EXPECT_FALSE( more < less );
      EXPECT_FALSE( less < less );
      EXPECT_NE( less, more );
   }
}

TEST( RegisterValues, AreEmptyAsMadeByDefaultOnly ) {
   EXPECT_TRUE( !InternalRouteKey() );
   EXPECT_FALSE( !InternalRouteKey( { {}, kKey.group } ) );
   EXPECT_FALSE( !InternalRouteKey( { kKey.source, {} } ) );
   EXPECT_TRUE( !AdvertisedSg() );
   EXPECT_FALSE( !AdvertisedSg{ kKey } );
   EXPECT_FALSE( ( !AdvertisedSg{ {}, Vantu::IpGenAddr( "192.0.2.1" ) } ) );
   EXPECT_FALSE( ( !AdvertisedSg{ {}, {}, true } ) );
}

TEST( AdvertisedSg, HashesEachAddressForItself ) {
   const Vantu::IpGenAddr rp( "192.0.2.1" );
   const size_t hash = kKey.source.hash() ^ kKey.group.hash() ^ rp.hash();
   EXPECT_EQ( ( AdvertisedSg{ kKey, rp, false }.hash() ), hash );
   EXPECT_EQ( ( std::hash<AdvertisedSg>()( { kKey, rp, true } ) ), hash ^ 1 );
}

}
}
