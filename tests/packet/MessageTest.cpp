#include <fmt/format.h>

#include "packet/Checksum.h"
#include "packet/Encode.h"
#include "packet/Message.h"

#include <gtest/gtest.h>

#include "tests/packet/Hex.h"
#include "tests/packet/MessageText.h"

namespace Router {
namespace {

// A message with the right checksum unless a test changes it.
class Sent {
 public:
   Sent( unsigned protocol, bool ipv6, const ByteVector& bytes ) : bytes_( bytes ) {
      packet.source = Vantu::IpGenAddr( ipv6 ? "fe80::7" : "192.0.2.7" );
      packet.destination = Vantu::IpGenAddr( ipv6 ? "ff02::16" : "224.0.0.22" );
      packet.protocol = protocol;
      packet.ttl = 1;
      checksum();
   }
   // The checksum covers that much of the message and a pseudo header of that
   // length, if any.
   Sent& checksum( size_t covered = std::string::npos ) {
      bytes_.shrink_to_fit();  // so that the sanitizer guards the end
      if ( bytes_.size() < 4 ) return *this;
      covered = std::min( covered, bytes_.size() );
      bytes_[2] = bytes_[3] = 0;
      Checksum sum;
      sum.add( Bytes( bytes_ ).first( covered ) );
      if ( packet.source.family() == Vantu::AddressFamily::ipv6 )
         addPseudoHeader( sum, packet.source, packet.destination, covered,
                          packet.protocol );
      bytes_[2] = sum.value() >> 8;
      bytes_[3] = sum.value();
      return *this;
   }
   Sent cut( size_t length ) const {
      Sent out = *this;
      out.bytes_.resize( length );
      return out.checksum();
   }
   uint8_t& operator[]( size_t at ) { return bytes_[at]; }
   size_t size() const { return bytes_.size(); }

   // The decoded message, or the reason for dropping it.
   std::string text() {
      packet.payload = bytes_;
      Message message;
      DropReason reason = decodeMessage( packet, message );
      if ( reason != notDropped ) return std::string( dropName( reason ) );
      if ( auto* pim = std::get_if<PimMessage>( &message ) ) {
         std::string out = textOf( *pim );
         auto* hello = std::get_if<PimHello>( &pim->body );
         if ( hello == nullptr ) return out;
         if ( hello->lanPruneDelay && hello->lanPruneDelay->trackingSupport )
            out += " T";
         for ( const auto& each : hello->addresses )
            out += ' ' + valueToStrep( each );
         return out;
      }
      auto& membership = std::get<MembershipMessage>( message );
      std::string out;
      for ( const std::string& line : linesOf( packet, membership ) )
         out += ( out.empty() ? "" : "; " ) + line.substr( line.find( ' ' ) + 1 );
      if ( auto* query = std::get_if<MembershipQuery>( &membership ) )
         out += fmt::format( " {:g} s {:g} s{}", query->maxResponse,
                             query->interval, query->suppress ? " suppress" : "" );
      return out;
   }

   // Encoded again after decoding.
   ByteVector encoded() const {
      Message message;
      IpPacket read = packet;
      read.payload = bytes_;
      EXPECT_EQ( decodeMessage( read, message ), notDropped );
      if ( auto* pim = std::get_if<PimMessage>( &message ) )
         return encodePim( *pim, packet.source, packet.destination );
      return encodeMembership( std::get<MembershipMessage>( message ),
                               packet.source, packet.destination );
   }
   const ByteVector& bytes() const { return bytes_; }

   IpPacket packet;

 private:
   ByteVector bytes_;
};

struct Row {
   bool ipv6;
   const char* bytes;
   const char* text;
};

const char* const kJoinPrune =
   "23000000 @192.0.2.9 00 02 00d2"
   "  #233.252.0.1 0002 0001 7%198.51.100.1 4%198.51.100.2 5%198.51.100.3"
   "  #233.252.0.2 0000 0001 0%198.51.100.4";
const char* const kRegister =
   "21000000 00000000 45000018 00000000 10110000 =198.51.100.7 =233.252.0.1";
const char* const kRegister6 =
   "21000000 00000000 60000000 0004 11 10 =2001:db8::7 =ff3e::1";
const char* const kStop = "22000000 #233.252.0.1 @198.51.100.7";
const char* const kAssert = "25000000 #233.252.0.1 @198.51.100.7 8000006e 00000014";
const char* const kMldReport =
   "8f000000 0000 0002 04 00 0001 =ff3e::1 =2001:db8::7 05 00 0000 =ff3e::2";

const Row kPimRows[] = {
   { false,
     "20000000 0001 0002 0069 0015 0004 00000000 0002 0004 81f4 09c4 fde9 0003 "
     "010002"
     " 0013 0004 00000007 0014 0004 fffefdfc 0016 0000 0018 000c @192.0.2.5 "
     "@192.0.2.6",
     "hold=105 dr=7 gen=4294901244 prop=500 ovr=2500 T 192.0.2.5 192.0.2.6" },
   { false, "20000000", "" },
   // Priority 0 is not absence; the last of two counts.
   { true, "20000000 0013 0004 00000007 0013 0004 00000000", "dr=0" },
   { false, "20000000 0001 0002 00", "truncatedMessage" },
   { false, "20000000 0018 0012 @2001:db8::1", "badAddress" },
   { false, kJoinPrune,
     "up=192.0.2.9 hold=210 J(198.51.100.1/32,233.252.0.1/32)SWR "
     "J(198.51.100.2/32,233.252.0.1/32)S P(198.51.100.3/32,233.252.0.1/32)SR "
     "P(198.51.100.4/32,233.252.0.2/32)-" },
   // Bytes after the last group are ignored.
   { false, "23000000 @192.0.2.9 00 00 00d2 eeeeeeeeee", "up=192.0.2.9 hold=210" },
   { false, kRegister, "null=No border=No inner=198.51.100.7>233.252.0.1" },
   { true, kRegister6, "null=No border=No inner=2001:db8::7>ff3e::1" },
   { true, kRegister, "badRegister" },
   { false, kRegister6, "badRegister" },
   { false, kStop, "group=233.252.0.1/32 source=198.51.100.7" },
   { false, "22000000 0100 00 21 e9fc0001 @198.51.100.7", "badAddress" },
   { false, "22000000 #233.252.0.1 @2001:db8::7", "badAddress" },
   { false, kAssert,
     "group=233.252.0.1/32 source=198.51.100.7 rpt=True pref=110 metric=20" },
   { false, "24000000 010203", "not decoded" },
   { false, "2d000000", "not decoded" },
   { false, "10000000", "badPimVersion" },
};

TEST( PimMessage, IsReadOrDropped ) {
   for ( const Row& row : kPimRows )
      EXPECT_EQ( Sent( pimProtocol, row.ipv6, hex( row.bytes ) ).text(), row.text )
         << row.bytes;
   for ( unsigned type : { 1, 2, 19, 20 } ) {
      for ( unsigned length : { 0, 1, 3, 5, 8 } ) {
         const auto option = hex( fmt::format( "20000000 {:04x} {:04x} {:0{}}",
                                               type, length, 0, 2 * length ) );
         EXPECT_EQ( Sent( pimProtocol, false, option ).text(), "badOption" )
            << type << ' ' << length;
      }
   }
   EXPECT_EQ( Sent( 17, false, hex( "20000000" ) ).text(), "otherProtocol" );
}

TEST( PimMessage, JoinPruneIsDroppedForWhatItCannotUse ) {
   struct Fault {
      const char* what;
      size_t offset;
      uint8_t value;
      const char* reason;
   };
   for ( const Fault& fault :
         { Fault{ "upstream of IPv6", 4, 2, "badAddress" },
           { "encoding with attributes", 5, 1, "badAddress" },
           { "groups beyond the end", 11, 0xff, "truncatedMessage" },
           { "group of IPv6", 14, 2, "badAddress" },
           { "group mask of 33", 17, 33, "badAddress" },
           { "joins beyond the end", 22, 0xff, "badAddress" },
           { "prunes beyond the end", 24, 0xff, "badAddress" },
           { "source of IPv6", 26, 2, "badAddress" },
           { "source encoding", 27, 1, "badAddress" },
           { "source mask of 128", 29, 128, "badAddress" } } ) {
      Sent sent( pimProtocol, false, hex( kJoinPrune ) );
      sent[fault.offset] = fault.value;
      EXPECT_EQ( sent.checksum().text(), fault.reason ) << fault.what;
   }
}

// With a right checksum, so that the decoder meets the cut itself.
TEST( PimMessage, CutAnywhereItIsDropped ) {
   for ( const auto& [ipv6, bytes] : { std::pair( false, kJoinPrune ),
                                       { false, kRegister },
                                       { true, kRegister6 },
                                       { false, kStop },
                                       { false, kAssert } } ) {
      const Sent whole( pimProtocol, ipv6, hex( bytes ) );
      for ( size_t length = 0; length < whole.size(); ++length )
         EXPECT_EQ( whole.cut( length ).text(), "truncatedMessage" )
            << bytes << length;
   }
}

TEST( PimMessage, ChecksumCoversAllOrARegistersHeader ) {
   for ( bool ipv6 : { false, true } ) {
      Sent odd( pimProtocol, ipv6, hex( "20000000 fde9 0001 01" ) );
      EXPECT_EQ( odd.text(), "" );
      odd[8] ^= 1;
      EXPECT_EQ( odd.text(), "badChecksum" );
      for ( unsigned flags : { 0x40, 0x80, 0x3f } ) {
         Sent sent( pimProtocol, ipv6, hex( ipv6 ? kRegister6 : kRegister ) );
         sent[4] = flags;
         const std::string text = fmt::format(
            "null={} border={} inner={}", flags == 0x40 ? "Yes" : "No",
            flags == 0x80 ? "Yes" : "No",
            ipv6 ? "2001:db8::7>ff3e::1" : "198.51.100.7>233.252.0.1" );
         EXPECT_EQ( sent.checksum( 8 ).text(), text );
         sent[9] ^= 1;
         EXPECT_EQ( sent.text(), text ) << "data is not covered";
         sent[5] ^= 1;
         EXPECT_EQ( sent.text(), "badChecksum" );
      }
      Sent other( pimProtocol, false, hex( kStop ) );
      EXPECT_EQ( other.checksum( 8 ).text(), "badChecksum" )
         << "only registers may leave their data out";
   }
}

// The length tells a query's version; its codes from 128 (MLD: 32768) on are exponential.
const Row kMembershipRows[] = {
   { false, "11000000 00000000", "IGMPv1 Membership Query 0.0.0.0  10 s 0 s" },
   { false, "11640000 e9fc0001", "IGMPv2 Membership Query 233.252.0.1  10 s 0 s" },
   { false, "11ff0000 e9fc0001",
     "IGMPv2 Membership Query 233.252.0.1  25.5 s 0 s" },
   { false, "11640000 e9fc0001 0a7d 0000",
     "IGMPv3 Membership Query 233.252.0.1  10 s 125 s suppress" },
   { false, "118f0000 e9fc0001 02ff 0001 c0000207",
     "IGMPv3 Membership Query 233.252.0.1  192.0.2.7 24.8 s 31744 s" },
   { false, "11640000 e9fc0001 0a7d", "truncatedMessage" },
   { true, "82000000 03e8 0000 =ff3e::1",
     "IGMPv2 Membership Query ff3e::1  1 s 0 s" },
   { true, "82000000 8001 0000 =ff3e::1 0280 0000",
     "IGMPv3 Membership Query ff3e::1  32.776 s 128 s" },
   { true, kMldReport,
     "IGMPv3 Membership Report ff3e::1 TO_EX 2001:db8::7; "
     "IGMPv3 Membership Report ff3e::2 ALLOW" },
   // Auxiliary data is skipped, a record of an unknown type dropped.
   { true,
     "8f000000 0000 0003 07 00 0000 =ff3e::1 01 01 0000 =ff3e::3 eeeeeeee 05 00 "
     "0000 =ff3e::2",
     "IGMPv3 Membership Report ff3e::3 IS_IN; IGMPv3 Membership Report ff3e::2 "
     "ALLOW" },
   { false, "12000000 e9fc0001", "Multicast Listener Report 233.252.0.1 " },
   // Version 2 of IGMP and the first of MLD are in the captures. What is no report at all:
   { false, "22ff0000 00000000", "" },
   { false, "14000000 00000000", "otherProtocol" },
   { true, "86000000 00000000", "otherProtocol" },
};

TEST( MembershipMessage, IsReadOrDropped ) {
   for ( const Row& row : kMembershipRows )
      EXPECT_EQ(
         Sent( row.ipv6 ? icmp6Protocol : igmpProtocol, row.ipv6, hex( row.bytes ) )
            .text(),
         row.text )
         << row.bytes;
   const Sent whole( icmp6Protocol, true, hex( kMldReport ) );
   for ( size_t length = 8; length < whole.size(); ++length )
      EXPECT_EQ( whole.cut( length ).text(), "truncatedMessage" ) << length;
}

// Null registers have the inner header of RFC 7761, 4.9.3.
TEST( Messages, AreWrittenAsTheyWereRead ) {
   struct Written {
      unsigned protocol;
      bool ipv6;
      const char* bytes;
   };
   for ( const Written& row :
         { Written{ pimProtocol, false,
                    "20000000 0001 0002 0069 0002 0004 81f4 09c4 0013 0004 00000007"
                    " 0014 0004 fffefdfc 0018 000c @192.0.2.5 @192.0.2.6" },
           { pimProtocol, true, "20000000 0018 0012 @2001:db8::1" },
           { pimProtocol, false, kJoinPrune },
           { pimProtocol, true,
             "23000000 @fe80::9 00 01 ffff #ff3e::1 0001 0000 6%2001:db8::1" },
           { pimProtocol, false,
             "21000000 c0000000 45000014 00000000 0067 a64b =198.51.100.7 "
             "=233.252.0.1" },
           { pimProtocol, true,
             "21000000 40000000 60000000 0004 67 00 =2001:db8::7 =ff3e::1 0000 "
             "d294" },
           { pimProtocol, false, kStop },
           { pimProtocol, false, kAssert },
           { igmpProtocol, false, "11640000 e9fc0001 0a7d 0000" },
           { igmpProtocol, false, "118f0000 e9fc0001 02ff 0001 c0000207" },
           { igmpProtocol, false, "117f0000 e9fc0001 0080 0000" },
           { igmpProtocol, false, "11ff0000 e9fc0001" },
           { igmpProtocol, false, "11000000 00000000" },
           { igmpProtocol, false, "12000000 e9fc0001" },
           { igmpProtocol, false, "16000000 e9fc0001" },
           { igmpProtocol, false, "17000000 e9fc0001" },
           { icmp6Protocol, true, "82000000 03e8 0000 =ff3e::1" },
           { icmp6Protocol, true, "82000000 8001 0000 =ff3e::1 0280 0000" },
           { icmp6Protocol, true, "82000000 7fff 0000 =ff3e::1 0280 0000" },
           { icmp6Protocol, true, "84000000 0000 0000 =ff3e::1" },
           { icmp6Protocol, true, kMldReport } } ) {
      Sent sent( row.protocol, row.ipv6, hex( row.bytes ) );
      if ( row.bytes[1] == '1' && row.protocol == pimProtocol ) sent.checksum( 8 );
      EXPECT_EQ( sent.encoded(), sent.bytes() ) << row.bytes;
   }
}

// Never forwarded. An MLD sender is link-local.
TEST( MembershipMessage, OnlyTheLinkItselfCounts ) {
   struct Sender {
      bool ipv6;
      const char* bytes;
      const char* source;
      uint8_t ttl;
      bool offLink;
   };
   const char* done = "84000000 00000000 =ff3e::1";
   for ( const Sender& row :
         { Sender{ false, "16000000 e9fc0001", "192.0.2.7", 2, true },
           { true, done, "fe80::7", 2, true },
           { true, done, "2001:db8::7", 1, true },
           { true, done, "fe80::7", 1, false },
           { true, "83000000 00000000 =ff3e::1", "::", 1, true } } ) {
      Sent sent( row.ipv6 ? icmp6Protocol : igmpProtocol, row.ipv6,
                 hex( row.bytes ) );
      sent.packet.source = Vantu::IpGenAddr( Mox::StringView( row.source ) );
      sent.packet.ttl = row.ttl;
      EXPECT_EQ( sent.checksum().text() == "offLink", row.offLink )
         << row.bytes << row.source;
   }
}

}
}
