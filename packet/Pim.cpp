#include "packet/Pim.h"

#include <array>

#include "packet/Checksum.h"
#include "packet/Numbers.h"

namespace Router {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

bool isGoodChecksum( const IpPacket& packet, size_t covered ) {
   Checksum checksum;
   if ( packet.family() == AddressFamily::ipv6 )
      addPseudoHeader( checksum, packet.source, packet.destination, covered,
                       pimProtocol );
   checksum.add( packet.payload.first( covered ) );
   return checksum.isGood();
}

bool isGoodChecksum( const IpPacket& packet, PimType type ) {
   if ( type == PimType::registerData && packet.payload.size() > registerHeader &&
        isGoodChecksum( packet, registerHeader ) ) {
      return true;
   }
   return isGoodChecksum( packet, packet.payload.size() );
}

// Decodes one message; the first error decides.
class PimDecoder {
 public:
   PimDecoder( Bytes message, AddressFamily family )
      : cursor_( message ), family_( family ) {}

   DropReason hello( PimHello& out );
   DropReason joinPrune( PimJoinPrune& out );
   DropReason registerData( PimRegister& out );
   DropReason registerStop( PimRegisterStop& out );
   DropReason assertion( PimAssert& out );

 private:
   DropReason option( uint16_t type, Cursor value, PimHello& out );
   DropReason addressList( Cursor value, PimHello& out );
   DropReason group( JoinPruneGroup& out );
   DropReason groupAddress( IpGenAddr& out, uint8_t& maskLength );
   DropReason source( EncodedSource& out );
   DropReason sources( size_t count, std::vector<EncodedSource>& out );
   DropReason address( Cursor& cursor, uint8_t family, uint8_t encoding,
                       IpGenAddr& out ) const;
   DropReason unicast( Cursor& cursor, IpGenAddr& out ) const;
   bool isMaskLength( uint8_t length ) const {
      return length <= Vantu::addressBits( family_ );
   }

   Cursor cursor_;
   AddressFamily family_;
};

DropReason PimDecoder::hello( PimHello& out ) {
   while ( !cursor_.atEnd() ) {
      uint16_t type = cursor_.u16();
      Cursor value( cursor_.take( cursor_.u16() ) );
      if ( !cursor_.ok() ) return truncatedMessage;
      DropReason reason = option( type, value, out );
      if ( reason != notDropped ) return reason;
   }
   return notDropped;
}

DropReason PimDecoder::option( uint16_t type, Cursor value, PimHello& out ) {
   switch ( type ) {
      case helloHoldtime:
         out.holdtime = value.u16();
         break;
      case helloLanPruneDelay: {
         constexpr uint16_t kTracking = 0x8000;
         uint16_t propagation = value.u16();
         out.lanPruneDelay = { ( propagation & kTracking ) != 0,
                               static_cast<uint16_t>( propagation & ~kTracking ),
                               value.u16() };
         break;
      }
      case helloDrPriority:
         out.drPriority = value.u32();
         break;
      case helloGenerationId:
         out.generationId = value.u32();
         break;
      case helloAddressList:
         return addressList( value, out );
      default:
         return notDropped;
   }
   return value.ok() && value.atEnd() ? notDropped : badOption;
}

DropReason PimDecoder::addressList( Cursor value, PimHello& out ) {
   out.addresses.clear();
   while ( !value.atEnd() ) {
      DropReason reason = unicast( value, out.addresses.emplace_back() );
      if ( reason != notDropped ) return reason;
   }
   return notDropped;
}

DropReason PimDecoder::joinPrune( PimJoinPrune& out ) {
   DropReason reason = unicast( cursor_, out.upstreamNeighbor );
   if ( reason != notDropped ) return reason;
   cursor_.skip( 1 );
   size_t groups = cursor_.u8();
   out.holdtime = cursor_.u16();
   for ( ; groups > 0 && cursor_.ok(); --groups ) {
      reason = group( out.groups.emplace_back() );
      if ( reason != notDropped ) return reason;
   }
   return cursor_.ok() ? notDropped : truncatedMessage;
}

DropReason PimDecoder::registerData( PimRegister& out ) {
   uint32_t flags = cursor_.u32();
   out.border = ( flags & 0x80000000 ) != 0;
   out.nullRegister = ( flags & 0x40000000 ) != 0;
   if ( !cursor_.ok() || cursor_.atEnd() ) return truncatedMessage;
   bool isIpv4 = family_ == AddressFamily::ipv4;
   if ( cursor_.rest()[0] >> 4 != ( isIpv4 ? 4 : 6 ) ) return badRegister;
   // Skips up to the addresses, which end either header except for IPv4's options.
   cursor_.skip( isIpv4 ? 12 : 8 );
   Bytes source = cursor_.take( Vantu::addressBits( family_ ) / 8 );
   Bytes group = cursor_.take( Vantu::addressBits( family_ ) / 8 );
   if ( !cursor_.ok() ) return truncatedMessage;
   out.source = IpGenAddr::fromBytes( family_, source.data() );
   out.group = IpGenAddr::fromBytes( family_, group.data() );
   return notDropped;
}

DropReason PimDecoder::registerStop( PimRegisterStop& out ) {
   DropReason reason = groupAddress( out.group, out.maskLength );
   return reason != notDropped ? reason : unicast( cursor_, out.source );
}

DropReason PimDecoder::assertion( PimAssert& out ) {
   DropReason reason = groupAddress( out.group, out.maskLength );
   if ( reason == notDropped ) reason = unicast( cursor_, out.source );
   if ( reason != notDropped ) return reason;
   constexpr uint32_t kRptBit = 0x80000000;
   uint32_t preference = cursor_.u32();
   out.rptBit = ( preference & kRptBit ) != 0;
   out.preference = preference & ~kRptBit;
   out.metric = cursor_.u32();
   return cursor_.ok() ? notDropped : truncatedMessage;
}

DropReason PimDecoder::groupAddress( IpGenAddr& out, uint8_t& maskLength ) {
   uint8_t family = cursor_.u8();
   uint8_t encoding = cursor_.u8();
   cursor_.skip( 1 );
   maskLength = cursor_.u8();
   DropReason reason = address( cursor_, family, encoding, out );
   if ( reason != notDropped ) return reason;
   return isMaskLength( maskLength ) ? notDropped : badAddress;
}

DropReason PimDecoder::group( JoinPruneGroup& out ) {
   DropReason reason = groupAddress( out.address, out.maskLength );
   if ( reason != notDropped ) return reason;
   size_t joins = cursor_.u16();
   size_t prunes = cursor_.u16();
   reason = sources( joins, out.joins );
   return reason != notDropped ? reason : sources( prunes, out.prunes );
}

DropReason PimDecoder::sources( size_t count, std::vector<EncodedSource>& out ) {
   for ( ; count > 0; --count ) {
      DropReason reason = source( out.emplace_back() );
      if ( reason != notDropped ) return reason;
   }
   return cursor_.ok() ? notDropped : truncatedMessage;
}

DropReason PimDecoder::source( EncodedSource& out ) {
   uint8_t family = cursor_.u8();
   uint8_t encoding = cursor_.u8();
   uint8_t flags = cursor_.u8();
   out.sparse = ( flags & 4 ) != 0;
   out.wildcard = ( flags & 2 ) != 0;
   out.rpt = ( flags & 1 ) != 0;
   out.maskLength = cursor_.u8();
   DropReason reason = address( cursor_, family, encoding, out.address );
   if ( reason != notDropped ) return reason;
   return isMaskLength( out.maskLength ) ? notDropped : badAddress;
}

DropReason PimDecoder::unicast( Cursor& cursor, IpGenAddr& out ) const {
   uint8_t family = cursor.u8();
   uint8_t encoding = cursor.u8();
   return address( cursor, family, encoding, out );
}

// Reads the bare address, behind the fields of its encoding.
DropReason PimDecoder::address( Cursor& cursor, uint8_t family, uint8_t encoding,
                                IpGenAddr& out ) const {
   constexpr uint8_t kNativeEncoding = 0;
   if ( !cursor.ok() ) return truncatedMessage;
   // Numbers of the address family registry: 1 and 2.
   if ( family != ( family_ == AddressFamily::ipv4 ? 1 : 2 ) ) return badAddress;
   if ( encoding != kNativeEncoding ) return badAddress;
   Bytes bytes = cursor.take( Vantu::addressBits( family_ ) / 8 );
   if ( !cursor.ok() ) return truncatedMessage;
   out = IpGenAddr::fromBytes( family_, bytes.data() );
   return notDropped;
}

}

Mox::StringView pimTypeName( PimType type ) {
   static constexpr std::array<Mox::StringView, 11> names = {
      "hello",        "register",      "register-stop", "join-prune",
      "bootstrap",    "assert",        "graft",         "graft-ack",
      "candidate-rp", "state-refresh", "df-election" };
   auto number = static_cast<size_t>( type );
   return number < names.size() ? names[number] : "unknown";
}

const IpGenAddr& allPimRouters( Vantu::AddressFamily family ) {
   static const IpGenAddr v4( "224.0.0.13" );
   static const IpGenAddr v6( "ff02::d" );
   return family == Vantu::AddressFamily::ipv4 ? v4 : v6;
}

DropReason decodePim( const IpPacket& packet, PimMessage& out ) {
   if ( packet.protocol != pimProtocol ) return otherProtocol;
   Cursor cursor( packet.payload );
   uint8_t first = cursor.u8();
   cursor.skip( 3 );
   if ( !cursor.ok() ) return truncatedMessage;
   if ( first >> 4 != 2 ) return badPimVersion;
   out.type = static_cast<PimType>( first & 0x0f );
   if ( !isGoodChecksum( packet, out.type ) ) return badChecksum;
   PimDecoder decoder( cursor.rest(), packet.family() );
   out.body = {};
   switch ( out.type ) {
      case PimType::hello:
         return decoder.hello( out.body.emplace<PimHello>() );
      case PimType::joinPrune:
         return decoder.joinPrune( out.body.emplace<PimJoinPrune>() );
      case PimType::registerData:
         return decoder.registerData( out.body.emplace<PimRegister>() );
      case PimType::registerStop:
         return decoder.registerStop( out.body.emplace<PimRegisterStop>() );
      case PimType::assertion:
         return decoder.assertion( out.body.emplace<PimAssert>() );
      default:
         return notDropped;
   }
}

}
