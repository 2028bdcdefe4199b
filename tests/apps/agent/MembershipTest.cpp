#include "apps/agent/packet/Membership.h"

#include <gtest/gtest.h>

#include "tests/apps/agent/PacketBuilder.h"

namespace Agent {
namespace {

using Vantu::IpGenAddr;

// A message between two hosts on a link, its checksum filled in.
class Packet {
 public:
   Packet( const PacketBuilder& message, bool ipv6 ) : bytes_( message ) {
      packet.source = IpGenAddr( ipv6 ? "fe80::7" : "192.0.2.7" );
      packet.destination = IpGenAddr( ipv6 ? "ff02::16" : "224.0.0.22" );
      packet.protocol = ipv6 ? icmp6Protocol : igmpProtocol;
      packet.ttl = 1;
      fillChecksum();
   }

   DropReason decode( MembershipMessage& out ) {
      packet.payload = bytes_;
      return decodeMembership( packet, out );
   }
   DropReason reason() {
      MembershipMessage ignored;
      return decode( ignored );
   }
   Packet& cut( size_t size ) {
      bytes_.resize( size );
      fillChecksum();
      return *this;
   }

   IpPacket packet;

 private:
   // Worked out word by word, apart from the decoder's own sum.
   void fillChecksum() {
      bytes_[2] = bytes_[3] = 0;
      ByteVector all = bytes_;
      if ( packet.protocol == icmp6Protocol ) {
         for ( const IpGenAddr& address : { packet.source, packet.destination } )
            all.insert( all.begin(), address.bytes().begin(),
                        address.bytes().end() );
         all.insert( all.begin(), { 0, uint8_t( bytes_.size() ), 0, 58 } );
      }
      if ( all.size() % 2 != 0 ) all.push_back( 0 );
      uint32_t sum = 0;
      for ( size_t i = 0; i < all.size(); i += 2 ) {
         sum += static_cast<uint32_t>( all[i] << 8 | all[i + 1] );
         sum = ( sum & 0xffff ) + ( sum >> 16 );
      }
      bytes_[2] = static_cast<uint8_t>( ~sum >> 8 );
      bytes_[3] = static_cast<uint8_t>( ~sum );
   }

   ByteVector bytes_;
};

PacketBuilder mldReport( unsigned recordType = 4, unsigned auxiliary = 0 ) {
   PacketBuilder out;
   out.u8( 143 ).u8( 0 ).u16( 0 ).u16( 0 ).u16( 2 );
   out.u8( recordType )
      .u8( auxiliary )
      .u16( 1 )
      .addr( "ff3e::1" )
      .addr( "2001:db8::7" );
   out.zeros( auxiliary * 4 );
   return out.u8( 5 ).u8( 0 ).u16( 0 ).addr( "ff3e::2" );
}

TEST( Membership, ReportsOfMldAreDecodedAsAWholeOrNot ) {
   MembershipMessage message;
   ASSERT_EQ( Packet( mldReport(), true ).decode( message ), notDropped );
   const auto& report = std::get<MembershipReport>( message );
   ASSERT_EQ( report.records.size(), 2u );
   EXPECT_EQ( report.records[0].type, toExclude );
   EXPECT_EQ( report.records[0].sources,
              std::vector{ IpGenAddr( "2001:db8::7" ) } );
   EXPECT_EQ( report.records[1].group, IpGenAddr( "ff3e::2" ) );
   EXPECT_EQ( report.records[1].type, allow );
   const size_t size = mldReport().bytes().size();
   for ( size_t length = 8; length < size; ++length )
      EXPECT_EQ( Packet( mldReport(), true ).cut( length ).reason(),
                 truncatedMessage );
   EXPECT_EQ( Packet( mldReport( 4, 3 ), true ).reason(), notDropped )
      << "auxiliary data is skipped";
   ASSERT_EQ( Packet( mldReport( 7 ), true ).decode( message ), notDropped );
   EXPECT_EQ( std::get<MembershipReport>( message ).records.size(), 1u )
      << "a record of an unknown type is left out";
}

struct QueryRow {
   const char* bytes;  // behind the checksum
   unsigned code;      // of IGMP
   bool ipv6;
   uint8_t version;
   double maxResponse;
   double interval;
};

// The length tells versions apart; codes from 128 (MLD: 32768) on are exponential.
TEST( Membership, QueriesTellTheirVersionAndTimes ) {
   const QueryRow kRows[] = {
      { "00000000", 0, false, 1, 10.0, 0 },
      { "e9fc0001", 100, false, 2, 10.0, 0 },
      { "e9fc0001", 0xff, false, 2, 25.5, 0 },
      { "e9fc0001 0a7d 0000", 100, false, 3, 10.0, 125 },
      { "e9fc0001 02ff 0001 c0000207", 0x8f, false, 3, 24.8, 31744 },
      { "03e8 0000 ff3e0000000000000000000000000001", 0, true, 2, 1.0, 0 },
      { "8001 0000 ff3e0000000000000000000000000001 0280 0000", 0, true, 3, 32.776,
        128 } };
   for ( const QueryRow& row : kRows ) {
      SCOPED_TRACE( row.bytes );
      PacketBuilder bytes;
      bytes.u8( row.ipv6 ? 130 : 0x11 ).u8( row.code ).u16( 0 ).hex( row.bytes );
      MembershipMessage message;
      ASSERT_EQ( Packet( bytes, row.ipv6 ).decode( message ), notDropped );
      const auto& query = std::get<MembershipQuery>( message );
      EXPECT_EQ( query.version, row.version );
      EXPECT_NEAR( query.maxResponse, row.maxResponse, 1e-9 );
      EXPECT_EQ( query.interval, row.interval );
      EXPECT_EQ( query.suppress, row.interval == 125 );
      EXPECT_EQ( query.sources.size(), row.interval == 31744 ? 1u : 0u );
   }
   EXPECT_EQ(
      Packet( PacketBuilder().hex( "1164 0000 e9fc0001 0a7d" ), false ).reason(),
      truncatedMessage )
      << "of neither version's length";
}

TEST( Membership, OnlyTheLinkItselfCounts ) {
   for ( bool ipv6 : { false, true } ) {
      PacketBuilder bytes;
      bytes.u8( ipv6 ? 131 : 0x16 ).u8( 0 ).u16( 0 );
      if ( ipv6 ) bytes.u32( 0 );
      bytes.addr( ipv6 ? "ff3e::1" : "233.252.0.1" );
      Packet packet( bytes, ipv6 );
      EXPECT_EQ( packet.reason(), notDropped );
      packet.packet.ttl = 2;
      EXPECT_EQ( packet.reason(), offLink );
   }
   PacketBuilder done =
      PacketBuilder().u8( 132 ).u8( 0 ).u16( 0 ).u32( 0 ).addr( "ff3e::1" );
   Packet global( done, true );
   global.packet.source = IpGenAddr( "2001:db8::7" );
   global.cut( done.bytes().size() );
   EXPECT_EQ( global.reason(), offLink );
   for ( unsigned type : { 130, 131 } ) {
      PacketBuilder bytes =
         PacketBuilder().u8( type ).u8( 0 ).u16( 0 ).u32( 0 ).addr( "ff3e::1" );
      Packet unnumbered( bytes, true );
      unnumbered.packet.source = IpGenAddr( "::" );
      unnumbered.cut( bytes.bytes().size() );
      EXPECT_EQ( unnumbered.reason(), type == 130 ? offLink : notDropped );
   }
}

TEST( Membership, EachFamilyHasItsOwnProtocol ) {
   for ( bool ipv6 : { false, true } ) {
      const ByteVector bytes = { uint8_t( ipv6 ? 143 : 0x22 ), 0, 0, 0 };
      Packet own( PacketBuilder().hex( "00000000" ), ipv6 );
      own.packet.payload = bytes;
      EXPECT_TRUE( isMembership( own.packet ) );
      own.packet.source = IpGenAddr( ipv6 ? "192.0.2.7" : "fe80::7" );
      EXPECT_FALSE( isMembership( own.packet ) );
   }
}

}
}
