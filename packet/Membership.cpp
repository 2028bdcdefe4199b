#include "packet/Membership.h"

#include "packet/Checksum.h"
#include "packet/Numbers.h"

namespace Router {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// RFC 3376, 4.1.1 and 4.1.7; RFC 3810, 5.1.3 and 5.1.9: the upper half of the codes
// are an exponent of three bits and a mantissa.
double decodeTime( uint32_t code, unsigned bits ) {
   if ( code < 1U << ( bits - 1 ) ) return code;
   unsigned mantissaBits = bits - 4;
   uint32_t mantissa = code & ( ( 1U << mantissaBits ) - 1 );
   uint32_t exponent = code >> mantissaBits & 7U;
   return static_cast<double>( ( mantissa | 1U << mantissaBits )
                               << ( exponent + 3 ) );
}

bool isGoodChecksum( const IpPacket& packet ) {
   Checksum checksum;
   if ( packet.family() == AddressFamily::ipv6 )
      addPseudoHeader( checksum, packet.source, packet.destination,
                       packet.payload.size(), icmp6Protocol );
   checksum.add( packet.payload );
   return checksum.isGood();
}

class MembershipDecoder {
 public:
   MembershipDecoder( Bytes message, AddressFamily family )
      : cursor_( message ), size_( message.size() ), family_( family ) {}

   DropReason decode( MembershipMessage& out );

 private:
   bool ipv4() const { return family_ == AddressFamily::ipv4; }
   DropReason query( uint16_t code, MembershipQuery& out );
   DropReason report( MembershipReport& out );
   DropReason oldReport( MembershipReport& out, uint8_t version,
                         MembershipRecordType type );
   IpGenAddr address();
   std::vector<IpGenAddr> addresses( size_t count );
   DropReason checked() const {
      return cursor_.ok() ? notDropped : truncatedMessage;
   }

   Cursor cursor_;
   size_t size_;
   AddressFamily family_;
};

// In IGMP the code is a byte before the checksum. In MLD it is two bytes behind the
// checksum, followed by two reserved bytes.
DropReason MembershipDecoder::decode( MembershipMessage& out ) {
   uint8_t type = cursor_.u8();
   uint16_t code = cursor_.u8();
   cursor_.skip( 2 );
   if ( !ipv4() && type != mldReport2 ) {
      code = cursor_.u16();
      cursor_.skip( 2 );
   }
   switch ( type ) {
      case igmpQuery:
      case mldQuery:
         return query( code, out.emplace<MembershipQuery>() );
      case igmpReport3:
      case mldReport2:
         return report( out.emplace<MembershipReport>() );
      case igmpReport1:
         return oldReport( out.emplace<MembershipReport>(), 1, isExclude );
      case igmpReport2:
      case mldReport1:
         return oldReport( out.emplace<MembershipReport>(), 2, isExclude );
      default:
         return oldReport( out.emplace<MembershipReport>(), 2, toInclude );
   }
}

// The length gives the version (RFC 3376, 7.1; RFC 3810, 8.1).
DropReason MembershipDecoder::query( uint16_t code, MembershipQuery& out ) {
   const size_t oldSize = ipv4() ? 8 : 24;
   if ( size_ != oldSize && size_ < oldSize + 4 ) return truncatedMessage;
   out.group = address();
   const double unit = ipv4() ? 0.1 : 0.001;  // s
   if ( size_ == oldSize ) {
      out.version = ipv4() && code == 0 ? 1 : 2;
      out.maxResponse = out.version == 1 ? 10.0 : code * unit;
      return checked();
   }
   out.maxResponse = decodeTime( code, ipv4() ? 8 : 16 ) * unit;
   uint8_t flags = cursor_.u8();
   out.suppress = ( flags & 8 ) != 0;
   out.robustness = flags & 7;
   out.interval = decodeTime( cursor_.u8(), 8 );
   out.sources = addresses( cursor_.u16() );
   return checked();
}

DropReason MembershipDecoder::report( MembershipReport& out ) {
   cursor_.skip( 2 );
   for ( size_t count = cursor_.u16(); count > 0 && cursor_.ok(); --count ) {
      uint8_t type = cursor_.u8();
      size_t auxiliary = size_t{ 4 } * cursor_.u8();
      size_t sources = cursor_.u16();
      MembershipRecord record;
      record.group = address();
      record.sources = addresses( sources );
      cursor_.skip( auxiliary );
      if ( type < 1 || type > 6 ) continue;
      record.type = static_cast<MembershipRecordType>( type - 1 );
      out.records.push_back( std::move( record ) );
   }
   return checked();
}

DropReason MembershipDecoder::oldReport( MembershipReport& out, uint8_t version,
                                         MembershipRecordType type ) {
   out.version = version;
   out.records.push_back( { type, address(), {} } );
   return checked();
}

IpGenAddr MembershipDecoder::address() {
   Bytes bytes = cursor_.take( Vantu::addressBits( family_ ) / 8 );
   if ( bytes.empty() ) return IpGenAddr::unspecified( family_ );
   return IpGenAddr::fromBytes( family_, bytes.data() );
}

// Reads no more than there are, whatever the count says.
std::vector<IpGenAddr> MembershipDecoder::addresses( size_t count ) {
   std::vector<IpGenAddr> out;
   for ( ; count > 0 && cursor_.ok(); --count ) out.push_back( address() );
   return out;
}

bool isIgmpType( uint8_t type ) {
   return type == igmpQuery || type == igmpReport1 || type == igmpReport2 ||
          type == igmpLeave || type == igmpReport3;
}

bool isMldType( uint8_t type ) {
   return type == mldQuery || type == mldReport1 || type == mldDone ||
          type == mldReport2;
}

// Such messages are never forwarded; MLD messages also have a link-local sender: reports of
// hosts without an address yet are discarded (RFC 3810, 5.2.13).
bool isOffLink( const IpPacket& packet ) {
   return packet.ttl != 1 || ( packet.family() == AddressFamily::ipv6 &&
                               !packet.source.isLinkLocal() );
}

}

// IGMP carries other protocols, too, for instance the first version of PIM.
bool isMembership( const IpPacket& packet ) {
   const bool ipv4 = packet.family() == AddressFamily::ipv4;
   if ( packet.protocol != ( ipv4 ? igmpProtocol : icmp6Protocol ) ) return false;
   if ( packet.payload.empty() ) return ipv4;
   return ipv4 ? isIgmpType( packet.payload[0] ) : isMldType( packet.payload[0] );
}

DropReason decodeMembership( const IpPacket& packet, MembershipMessage& out ) {
   constexpr size_t kLeast = 8;
   if ( packet.payload.size() < kLeast ) return truncatedMessage;
   if ( !isGoodChecksum( packet ) ) return badChecksum;
   if ( isOffLink( packet ) ) return offLink;
   return MembershipDecoder( packet.payload, packet.family() ).decode( out );
}

}
