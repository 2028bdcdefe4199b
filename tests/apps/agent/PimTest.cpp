#include "apps/agent/packet/Pim.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/apps/agent/PacketBuilder.h"

namespace Agent {
namespace {

using Vantu::IpGenAddr;

constexpr unsigned kHello = 0;
constexpr unsigned kRegister = 1;
constexpr unsigned kRegisterStop = 2;
constexpr unsigned kJoinPrune = 3;

unsigned folded( const ByteVector& bytes ) {
   unsigned sum = 0;
   for ( size_t i = 0; i < bytes.size(); ++i ) sum += bytes[i] << ( i % 2 ? 0 : 8 );
   while ( sum > 0xffff ) sum = ( sum >> 16 ) + ( sum & 0xffff );
   return sum;
}

// A packet that owns its bytes; its checksum is right unless a test spoils it.
class Packet {
 public:
   Packet( unsigned type, const ByteVector& body, bool isIpv6 = false )
      : isIpv6_( isIpv6 ) {
      bytes_ = PacketBuilder().u8( 0x20 | type ).zeros( 3 ).raw( body );
      checksum( bytes_.size() );
   }

   // Covers that much of the message and, for IPv6, a pseudo header of that length.
   Packet& checksum( size_t covered ) {
      bytes_[2] = bytes_[3] = 0;
      ByteVector summed( bytes_.begin(), bytes_.begin() + covered );
      if ( summed.size() % 2 != 0 ) summed.push_back( 0 );
      PacketBuilder all;
      all.raw( summed );
      if ( isIpv6_ ) {
         all.addr( "fe80::1" ).addr( "ff02::d" ).u32( covered ).u32( pimProtocol );
      }
      unsigned sum = ~folded( all ) & 0xffff;
      bytes_[2] = static_cast<uint8_t>( sum >> 8 );
      bytes_[3] = static_cast<uint8_t>( sum );
      return *this;
   }

   Packet& cut( size_t length ) {
      bytes_.resize( length );
      bytes_.shrink_to_fit();  // so that the sanitizer guards the end
      return length >= 4 ? checksum( length ) : *this;
   }

   ByteVector& bytes() { return bytes_; }

   DropReason decode( PimMessage& out ) const {
      IpPacket ip;
      ip.source = IpGenAddr( isIpv6_ ? "fe80::1" : "192.0.2.1" );
      ip.destination = IpGenAddr( isIpv6_ ? "ff02::d" : "224.0.0.13" );
      ip.protocol = pimProtocol;
      ip.payload = bytes_;
      return decodePim( ip, out );
   }
   DropReason reason() const {
      PimMessage ignored;
      return decode( ignored );
   }

 private:
   bool isIpv6_;
   ByteVector bytes_;
};

PimHello hello( const ByteVector& options, bool isIpv6 = false ) {
   PimMessage message;
   EXPECT_EQ( Packet( kHello, options, isIpv6 ).decode( message ), notDropped );
   return std::get<PimHello>( message.body );
}

const ByteVector kJoinPruneBody = PacketBuilder()
                                     .unicast( "192.0.2.9" )
                                     .hex( "00 02" )  // reserved, groups
                                     .u16( 210 )
                                     .group( "233.252.0.1" )
                                     .hex( "0002 0001" )
                                     .source( "198.51.100.1", 7 )
                                     .source( "198.51.100.2", 4 )
                                     .source( "198.51.100.3", 5 )
                                     .group( "233.252.0.2" )
                                     .hex( "0000 0001" )
                                     .source( "198.51.100.4", 0 );

// Flags and the header of a data packet.
ByteVector registerBody( uint32_t flags, bool isIpv6 ) {
   PacketBuilder body;
   body.u32( flags );
   if ( isIpv6 ) {
      body.hex( "60000000 0004 11 10" ).addr( "2001:db8::7" ).addr( "ff3e::1" );
   } else {
      body.hex( "45000018 00000000 1011 0000" );
      body.addr( "198.51.100.7" ).addr( "233.252.0.1" );
   }
   return body;
}

TEST( PimHello, ReadsKnownOptionsAndSkipsOthers ) {
   PimHello got = hello( PacketBuilder()
                            .hex( "0001 0002 0069" )
                            .hex( "0015 0004 00000000" )  // state refresh
                            .hex( "0002 0004 81f4 09c4" )
                            .hex( "fde9 0003 010002" )
                            .hex( "0013 0004 00000007" )
                            .hex( "0014 0004 fffefdfc" )
                            .hex( "0016 0000 0018 000c" )
                            .unicast( "192.0.2.5" )
                            .unicast( "192.0.2.6" ) );
   EXPECT_EQ( got.holdtime, 105 );
   ASSERT_TRUE( got.lanPruneDelay );
   EXPECT_TRUE( got.lanPruneDelay->trackingSupport );
   EXPECT_EQ( got.lanPruneDelay->propagationDelay, 500 );
   EXPECT_EQ( got.lanPruneDelay->overrideInterval, 2500 );
   EXPECT_EQ( got.drPriority, 7u );
   EXPECT_EQ( got.generationId, 0xfffefdfc );
   EXPECT_EQ( got.addresses,
              ( std::vector<IpGenAddr>{ IpGenAddr( "192.0.2.5" ),
                                        IpGenAddr( "192.0.2.6" ) } ) );
}

TEST( PimHello, AbsentOptionsAreEmptyAndTheLastOfTwoCounts ) {
   PimHello none = hello( {} );
   EXPECT_FALSE( none.holdtime || none.lanPruneDelay || none.drPriority ||
                 none.generationId );
   PimHello twice =
      hello( PacketBuilder().hex( "0013 0004 00000007 0013 0004 00000000" ), true );
   EXPECT_EQ( twice.drPriority, 0u ) << "priority 0 is not absence";
}

TEST( PimHello, DropsOptionsOfAWrongLength ) {
   for ( unsigned type : { 1, 2, 19, 20 } ) {
      for ( unsigned length : { 0, 1, 3, 5, 8 } ) {
         ByteVector option =
            PacketBuilder().u16( type ).u16( length ).zeros( length );
         EXPECT_EQ( Packet( kHello, option ).reason(), badOption )
            << type << " " << length;
      }
   }
   EXPECT_EQ( Packet( kHello, PacketBuilder().hex( "0001 0002 00" ) ).reason(),
              truncatedMessage );
   ByteVector ipv6 = PacketBuilder().hex( "0018 0012" ).unicast( "2001:db8::1" );
   EXPECT_EQ( Packet( kHello, ipv6 ).reason(), badAddress ) << "in an IPv4 hello";
}

TEST( PimJoinPrune, ReadsGroupsSourcesAndFlags ) {
   PimMessage message;
   ASSERT_EQ( Packet( kJoinPrune, kJoinPruneBody ).decode( message ), notDropped );
   const auto& got = std::get<PimJoinPrune>( message.body );
   EXPECT_EQ( got.upstreamNeighbor, IpGenAddr( "192.0.2.9" ) );
   EXPECT_EQ( got.holdtime, 210 );
   ASSERT_EQ( got.groups.size(), 2u );
   ASSERT_EQ( got.groups[0].joins.size(), 2u );
   ASSERT_EQ( got.groups[0].prunes.size(), 1u );
   EXPECT_TRUE( got.groups[0].joins[0].wildcard );
   EXPECT_FALSE( got.groups[0].joins[1].rpt );
   EXPECT_TRUE( got.groups[0].prunes[0].rpt );
   EXPECT_FALSE( got.groups[0].prunes[0].wildcard );
   EXPECT_EQ( got.groups[1].prunes[0].address, IpGenAddr( "198.51.100.4" ) );
   EXPECT_FALSE( got.groups[1].prunes[0].sparse );
}

TEST( PimJoinPrune, DropsWhatItCannotUse ) {
   struct Row {
      const char* what;
      size_t offset;
      uint8_t value;
      DropReason reason;
   };
   // Offsets into the message: 4 upstream neighbour, 11 groups, 14 first group, 22
   // its joins, 24 its prunes, 26 first source.
   for ( const Row& row : { Row{ "upstream of IPv6", 4, 2, badAddress },
                            { "upstream of no family", 4, 0, badAddress },
                            { "encoding with attributes", 5, 1, badAddress },
                            { "groups beyond the end", 11, 0xff, truncatedMessage },
                            { "group of IPv6", 14, 2, badAddress },
                            { "group mask of 33", 17, 33, badAddress },
                            { "joins beyond the end", 22, 0xff, badAddress },
                            { "prunes beyond the end", 24, 0xff, badAddress },
                            { "source of IPv6", 26, 2, badAddress },
                            { "source encoding", 27, 1, badAddress },
                            { "source mask of 128", 29, 128, badAddress } } ) {
      Packet packet( kJoinPrune, kJoinPruneBody );
      packet.bytes()[row.offset] = row.value;
      packet.checksum( packet.bytes().size() );
      EXPECT_EQ( packet.reason(), row.reason ) << row.what;
   }
   ByteVector longer = kJoinPruneBody;
   longer.insert( longer.end(), 5, 0xee );
   EXPECT_EQ( Packet( kJoinPrune, longer ).reason(), notDropped )
      << "what follows the last group is left alone";
}

// With a right checksum, so that the cut itself is what the decoder meets.
TEST( PimMessage, CutAnywhereItIsDropped ) {
   size_t whole = kJoinPruneBody.size() + 4;
   for ( size_t length = 0; length < whole; ++length ) {
      EXPECT_EQ( Packet( kJoinPrune, kJoinPruneBody ).cut( length ).reason(),
                 truncatedMessage )
         << length;
   }
}

TEST( PimMessage, VersionAndChecksumDecideFirst ) {
   Packet packet( kHello, {} );
   packet.bytes()[0] = 0x10;
   EXPECT_EQ( packet.checksum( 4 ).reason(), badPimVersion );
   for ( bool isIpv6 : { false, true } ) {
      Packet odd( kHello, PacketBuilder().hex( "fde9 0001 01" ), isIpv6 );
      EXPECT_EQ( odd.reason(), notDropped ) << "an odd number of bytes";
      odd.bytes()[8] ^= 1;
      EXPECT_EQ( odd.reason(), badChecksum );
   }
   IpPacket foreign;
   foreign.protocol = 17;
   PimMessage message;
   EXPECT_EQ( decodePim( foreign, message ), otherProtocol );
}

TEST( PimMessage, RegisterChecksumCoversItsHeaderOrAll ) {
   for ( bool isIpv6 : { false, true } ) {
      ByteVector body = registerBody( 0, isIpv6 );
      Packet packet( kRegister, body, isIpv6 );
      EXPECT_EQ( packet.reason(), notDropped ) << "over the whole message";
      EXPECT_EQ( packet.checksum( 8 ).reason(), notDropped );
      packet.bytes().back() ^= 1;
      EXPECT_EQ( packet.reason(), notDropped ) << "data is not covered";
      packet.bytes()[5] ^= 1;
      EXPECT_EQ( packet.reason(), badChecksum );
      Packet shorter( kJoinPrune, body, isIpv6 );
      EXPECT_EQ( shorter.checksum( 8 ).reason(), badChecksum )
         << "only registers may leave their data out";
   }
}

TEST( PimRegister, NamesTheDataPacketsAddressesAndItsFlags ) {
   for ( bool isIpv6 : { false, true } ) {
      for ( uint32_t flags : { 0u, 0x40000000u, 0x80000000u, 0x3fffffffu } ) {
         PimMessage message;
         Packet packet( kRegister, registerBody( flags, isIpv6 ), isIpv6 );
         ASSERT_EQ( packet.checksum( 8 ).decode( message ), notDropped );
         const auto& got = std::get<PimRegister>( message.body );
         EXPECT_EQ( got.border, flags == 0x80000000 );
         EXPECT_EQ( got.nullRegister, flags == 0x40000000 );
         EXPECT_EQ( got.source,
                    IpGenAddr( isIpv6 ? "2001:db8::7" : "198.51.100.7" ) );
         EXPECT_EQ( got.group, IpGenAddr( isIpv6 ? "ff3e::1" : "233.252.0.1" ) );
      }
      EXPECT_EQ( Packet( kRegister, registerBody( 0, !isIpv6 ), isIpv6 ).reason(),
                 badRegister )
         << "a data packet of the other family";
      Packet whole( kRegister, registerBody( 0, isIpv6 ), isIpv6 );
      for ( size_t length = 4; length < whole.bytes().size(); ++length ) {
         Packet packet = whole;
         EXPECT_EQ( packet.cut( length ).reason(), truncatedMessage ) << length;
      }
   }
}

TEST( PimRegisterStop, NamesGroupAndSource ) {
   ByteVector body =
      PacketBuilder().group( "233.252.0.1" ).unicast( "198.51.100.7" );
   PimMessage message;
   ASSERT_EQ( Packet( kRegisterStop, body ).decode( message ), notDropped );
   const auto& got = std::get<PimRegisterStop>( message.body );
   EXPECT_EQ( got.group, IpGenAddr( "233.252.0.1" ) );
   EXPECT_EQ( got.maskLength, 32 );
   EXPECT_EQ( got.source, IpGenAddr( "198.51.100.7" ) );
   for ( size_t length = 4; length < body.size() + 4; ++length ) {
      EXPECT_EQ( Packet( kRegisterStop, body ).cut( length ).reason(),
                 truncatedMessage )
         << length;
   }
   ByteVector wide = body;
   wide[3] = 33;
   EXPECT_EQ( Packet( kRegisterStop, wide ).reason(), badAddress );
   ByteVector other =
      PacketBuilder().group( "233.252.0.1" ).unicast( "2001:db8::7" );
   EXPECT_EQ( Packet( kRegisterStop, other ).reason(), badAddress );
}

TEST( PimMessage, OtherTypesAreOnlyNamed ) {
   PimMessage message;
   ASSERT_EQ( Packet( 4, { 1, 2, 3 } ).decode( message ), notDropped );
   EXPECT_EQ( pimTypeName( message.type ), "bootstrap" );
   EXPECT_TRUE( std::holds_alternative<std::monostate>( message.body ) );
   ASSERT_EQ( Packet( 13, {} ).decode( message ), notDropped );
   EXPECT_EQ( pimTypeName( message.type ), "unknown" );
}

// Damaged messages with right checksums: nothing is read beyond their end, and what
// is accepted has addresses of the packet's family.
TEST( PimMessage, SurvivesRandomDamage ) {
   unsigned seed = std::random_device()();
   SCOPED_TRACE( "seed " + std::to_string( seed ) );
   std::mt19937 random( seed );
   for ( int round = 0; round < 20000; ++round ) {
      bool isIpv6 = random() % 2 != 0;
      Packet packet( random() % 2 != 0 ? kJoinPrune : kHello, kJoinPruneBody,
                     isIpv6 );
      packet.cut( 4 + random() % ( packet.bytes().size() - 3 ) );
      for ( size_t i = random() % 6; i > 0 && packet.bytes().size() > 4; --i ) {
         size_t at = 4 + random() % ( packet.bytes().size() - 4 );
         packet.bytes()[at] =
            static_cast<uint8_t>( random() % 4 != 0 ? random() % 4 : random() );
      }
      packet.checksum( packet.bytes().size() );
      PimMessage message;
      DropReason reason = packet.decode( message );
      ASSERT_NE( reason, badChecksum );
      if ( auto* got = std::get_if<PimJoinPrune>( &message.body );
           got != nullptr && reason == notDropped ) {
         ASSERT_EQ(
            got->upstreamNeighbor.family(),
            isIpv6 ? Vantu::AddressFamily::ipv6 : Vantu::AddressFamily::ipv4 );
      }
   }
}

}
}
