#include <gtest/gtest.h>
#include <linux/if_link.h>

#include <algorithm>
#include <vector>

#include "apps/netlink/Dump.h"

namespace Netlink {
namespace {

// An attribute of that type with any length field.
std::vector<uint8_t> attribute( uint16_t type, uint16_t length,
                                std::vector<uint8_t> value ) {
   nlattr header = { length, type };
   std::vector<uint8_t> out( sizeof header + value.size() );
   std::memcpy( out.data(), &header, sizeof header );
   std::copy( value.begin(), value.end(), out.begin() + sizeof header );
   return out;
}

std::vector<uint8_t> operator+( std::vector<uint8_t> a,
                                const std::vector<uint8_t>& b ) {
   a.insert( a.end(), b.begin(), b.end() );
   return a;
}

TEST( Attributes, AreReadAsFarAsTheirLengthsHold ) {
   const auto number = attribute( 7, 8, { 1, 0, 0, 0 } );
   const auto name = attribute( 9, 7, { 'l', 'o', 0, 0 } );
   struct {
      const char* what;
      std::vector<uint8_t> bytes;
      bool number, name;
   } rows[] = {
      { "whole", number + name, true, true },
      { "other order", name + number, true, true },
      { "no padding at the end", number + attribute( 9, 7, { 'l', 'o', 0 } ), true,
        true },
      { "shorter than a header", attribute( 7, 3, { 1, 0, 0, 0 } ) + name, false,
        false },
      { "length of zero", attribute( 7, 0, {} ) + name, false, false },
      { "longer than what is there", number + attribute( 9, 9, { 'l', 'o', 0, 0 } ),
        true, false },
      { "half a header", number + std::vector<uint8_t>{ 7, 0, 9 }, true, false },
      { "value too short", attribute( 7, 7, { 1, 0, 0, 0 } ) + name, false, true },
      { "nothing", {}, false, false } };
   for ( const auto& row : rows ) {
      SCOPED_TRACE( row.what );
      Attributes attributes{ Bytes( row.bytes ) };
      EXPECT_EQ( attributes.value<uint32_t>( 7 ).has_value(), row.number );
      EXPECT_EQ( attributes.text( 9 ).value_or( "" ) == "lo", row.name );
   }
   EXPECT_EQ( Attributes( Bytes( number ) ).value<uint32_t>( 7 ), 1U );
}

TEST( Family, HasItsNameAndAnotherForMulticastForwarding ) {
   EXPECT_EQ( familyOf( AF_INET ), Vantu::AddressFamily::ipv4 );
   EXPECT_EQ( familyOf( RTNL_FAMILY_IPMR ), Vantu::AddressFamily::ipv4 );
   EXPECT_EQ( familyOf( AF_INET6 ), Vantu::AddressFamily::ipv6 );
   EXPECT_EQ( familyOf( RTNL_FAMILY_IP6MR ), Vantu::AddressFamily::ipv6 );
   EXPECT_EQ( familyOf( AF_BRIDGE ), std::nullopt );
}

TEST( Attributes, HoldAddressesOfTheirFamilyOnly ) {
   using Vantu::AddressFamily;
   auto bytes = attribute( 1, 8, { 192, 0, 2, 1 } );
   Attributes attributes{ Bytes( bytes ) };
   EXPECT_EQ( attributes.address( 1, AddressFamily::ipv4 ),
              Vantu::IpGenAddr( "192.0.2.1" ) );
   EXPECT_FALSE( attributes.address( 1, AddressFamily::ipv6 ) );
}

TEST( Dump, TellsOfEveryLink ) {
   std::vector<Mox::String> names;
   dump( RTM_GETLINK, AF_UNSPEC, [&]( const Message& message ) {
      ASSERT_EQ( message.type(), RTM_NEWLINK );
      ASSERT_NE( message.body<ifinfomsg>(), nullptr );
      names.emplace_back(
         message.attributes<ifinfomsg>().text( IFLA_IFNAME ).value_or( "" ) );
   } );
   EXPECT_EQ( std::count( names.begin(), names.end(), "lo" ), 1 );
}

TEST( Dump, TellsOfOneTableOnly ) {
   // The loopback's own addresses are in the local table.
   for ( uint32_t table :
         { uint32_t( RT_TABLE_LOCAL ), uint32_t( RT_TABLE_MAIN ) } ) {
      size_t others = 0, own = 0;
      dumpRoutes( AF_INET, table, [&]( const Message& message ) {
         ASSERT_NE( message.body<rtmsg>(), nullptr );
         ( message.body<rtmsg>()->rtm_table == table ? own : others ) += 1;
      } );
      EXPECT_EQ( others, 0u );
      EXPECT_TRUE( own > 0 || table != RT_TABLE_LOCAL );
   }
}

TEST( Dump, ThrowsWhatTheKernelAnswers ) {
   // An unknown message type.
   EXPECT_THROW( dump( RTM_MAX + 1, AF_UNSPEC, []( const Message& ) {} ),
                 std::system_error );
   // The answer to this request ends like a complete one.
   constexpr uint32_t kNoTable = 987654321;
   EXPECT_THROW( dumpRoutes( AF_INET, kNoTable, []( const Message& ) {} ),
                 std::system_error );
}

}
}
