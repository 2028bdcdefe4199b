#include "packet/Ip.h"

namespace Router {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

constexpr uint16_t kEtherIpv4 = 0x0800;
constexpr uint16_t kEtherIpv6 = 0x86dd;
constexpr uint16_t kEtherVlan = 0x8100;
constexpr uint16_t kEtherServiceVlan = 0x88a8;

constexpr uint8_t kHopByHop = 0;
constexpr uint8_t kRouting = 43;
constexpr uint8_t kFragment = 44;
constexpr uint8_t kDestinationOptions = 60;

IpGenAddr takeAddress( AddressFamily family, Cursor& cursor ) {
   Bytes bytes = cursor.take( Vantu::addressBits( family ) / 8 );
   if ( bytes.empty() ) return {};
   return IpGenAddr::fromBytes( family, bytes.data() );
}

bool isTag( uint16_t type ) {
   return type == kEtherVlan || type == kEtherServiceVlan;
}

uint16_t etherTypeBehindTags( Cursor& cursor ) {
   uint16_t type = cursor.u16();
   for ( int tags = 0; tags < 2; ++tags ) {
      if ( !isTag( type ) ) break;
      cursor.skip( 2 );
      type = cursor.u16();
   }
   return type;
}

// The Ethernet type by the IP version, for links without a type field.
uint16_t etherTypeOfVersion( const Cursor& cursor ) {
   if ( cursor.atEnd() ) return 0;
   return cursor.rest()[0] >> 4 == 6 ? kEtherIpv6 : kEtherIpv4;
}

// Moves the cursor to the IP header and returns its Ethernet type.
uint16_t decodeLink( LinkType link, Cursor& cursor ) {
   uint16_t type = 0;
   switch ( link ) {
      case LinkType::ethernet:
         cursor.skip( 12 );
         return etherTypeBehindTags( cursor );
      case LinkType::linuxCooked:
         cursor.skip( 14 );
         return etherTypeBehindTags( cursor );
      case LinkType::linuxCooked2:
         type = cursor.u16();
         cursor.skip( 18 );
         return type;
      case LinkType::rawIp:
         return etherTypeOfVersion( cursor );
      case LinkType::unknown:
         break;
   }
   return 0;
}

DropReason decodeIpv4( Cursor cursor, IpPacket& out ) {
   size_t captured = cursor.left();
   uint8_t version = cursor.u8();
   cursor.skip( 1 );
   size_t total = cursor.u16();
   cursor.skip( 2 );
   uint16_t flags = cursor.u16();
   out.ttl = cursor.u8();
   out.protocol = cursor.u8();
   cursor.skip( 2 );
   out.source = takeAddress( AddressFamily::ipv4, cursor );
   out.destination = takeAddress( AddressFamily::ipv4, cursor );
   if ( !cursor.ok() ) return truncatedCapture;

   constexpr size_t kHeader = 20;
   size_t header = size_t{ 4 } * ( version & 0x0fU );
   if ( version >> 4 != 4 || header < kHeader || total < header )
      return badIpHeader;
   if ( total > captured ) return truncatedCapture;
   constexpr uint16_t kMoreOrOffset = 0x3fff;
   if ( ( flags & kMoreOrOffset ) != 0 ) return fragment;
   cursor.skip( header - kHeader );
   out.payload = cursor.take( total - header );
   return notDropped;
}

// Is it among these options (RFC 8200, 4.2), with the value that MLD has (RFC 2711)?
bool hasRouterAlert( Cursor options ) {
   constexpr uint8_t kPad1 = 0, kAlert = 5, kSize = 2;
   while ( !options.atEnd() ) {
      const uint8_t type = options.u8();
      if ( type == kPad1 ) continue;
      const uint8_t size = options.u8();
      if ( type == kAlert && size == kSize )
         return options.u16() == 0 && options.ok();
      options.skip( size );
   }
   return false;
}

// Skips the extension headers in front of the payload.
DropReason skipExtensions( Cursor& cursor, IpPacket& out ) {
   uint8_t& protocol = out.protocol;
   for ( ;; ) {
      bool isFragment = protocol == kFragment;
      bool isHopByHop = protocol == kHopByHop;
      if ( !isFragment && !isHopByHop && protocol != kRouting &&
           protocol != kDestinationOptions ) {
         return notDropped;
      }
      uint8_t next = cursor.u8();
      uint8_t units = cursor.u8();
      if ( isFragment ) {
         // In an unfragmented packet the offset is zero and no fragment follows.
         constexpr uint16_t kMoreOrOffset = 0xfff9;
         if ( ( cursor.u16() & kMoreOrOffset ) != 0 ) return fragment;
         cursor.skip( 4 );
      } else {
         const Bytes options = cursor.take( units * 8U + 6 );
         if ( isHopByHop ) out.routerAlert = hasRouterAlert( Cursor( options ) );
      }
      if ( !cursor.ok() ) return badIpHeader;
      protocol = next;
   }
}

DropReason decodeIpv6( Cursor cursor, IpPacket& out ) {
   uint8_t version = cursor.u8();
   cursor.skip( 3 );
   size_t length = cursor.u16();
   out.protocol = cursor.u8();
   out.ttl = cursor.u8();
   out.source = takeAddress( AddressFamily::ipv6, cursor );
   out.destination = takeAddress( AddressFamily::ipv6, cursor );
   if ( !cursor.ok() ) return truncatedCapture;
   if ( version >> 4 != 6 ) return badIpHeader;
   if ( length > cursor.left() ) return truncatedCapture;
   Cursor content( cursor.take( length ) );
   DropReason reason = skipExtensions( content, out );
   out.payload = content.rest();
   return reason;
}

}

bool isOfVlan( LinkType link, Bytes frame ) {
   if ( link != LinkType::ethernet ) return false;
   Cursor cursor( frame );
   cursor.skip( 12 );
   constexpr uint16_t kNumber = 0x0fff;
   while ( isTag( cursor.u16() ) ) {
      if ( ( cursor.u16() & kNumber ) != 0 ) return true;
   }
   return false;
}

DropReason decodeFrame( LinkType link, Bytes frame, IpPacket& out ) {
   if ( link == LinkType::unknown ) return unknownLink;
   Cursor cursor( frame );
   uint16_t type = decodeLink( link, cursor );
   if ( !cursor.ok() ) return truncatedCapture;
   if ( type == kEtherIpv4 ) return decodeIpv4( cursor, out );
   if ( type == kEtherIpv6 ) return decodeIpv6( cursor, out );
   return notIp;
}

}
