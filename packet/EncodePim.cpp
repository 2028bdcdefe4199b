#include <algorithm>

#include "packet/Checksum.h"
#include "packet/Encode.h"
#include "packet/Numbers.h"
#include "packet/Writer.h"
#include "platform/base/Assert.h"

namespace Router {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// Writes the parts of messages of one family.
class PimWriter : public Writer {
 public:
   explicit PimWriter( AddressFamily family ) : family_( family ) {}

   bool isIp4() const { return family_ == AddressFamily::ipv4; }
   PimWriter& address( const IpGenAddr& of ) {
      Writer::address( of, family_ );
      return *this;
   }
   // RFC 7761, 4.9.1: the family's registry number, and its native encoding.
   void head() { u8( isIp4() ? 1 : 2 ).u8( 0 ); }
   void unicast( const IpGenAddr& of ) {
      head();
      address( of );
   }
   void group( const IpGenAddr& of, uint8_t maskLength ) {
      head();
      u8( 0 ).u8( maskLength );
      address( of );
   }
   void source( const EncodedSource& each ) {
      head();
      u8( ( each.sparse ? 4U : 0U ) | ( each.wildcard ? 2U : 0U ) |
          ( each.rpt ? 1U : 0U ) );
      u8( each.maskLength );
      address( each.address );
   }

 private:
   AddressFamily family_;
};

// Writes each kind of body behind the header.
struct Body {
   PimType operator()( const std::monostate& ) const { return PimType::hello; }
   PimType operator()( const PimHello& hello ) const;
   PimType operator()( const PimJoinPrune& message ) const;
   PimType operator()( const PimRegister& message ) const;
   PimType operator()( const PimRegisterStop& message ) const;
   PimType operator()( const PimAssert& message ) const;

   PimWriter& out;
};

PimType Body::operator()( const PimHello& hello ) const {
   if ( hello.holdtime ) out.u16( helloHoldtime ).u16( 2 ).u16( *hello.holdtime );
   if ( hello.lanPruneDelay ) {
      constexpr uint16_t kMost = 0x7fff;
      const LanPruneDelay& delay = *hello.lanPruneDelay;
      out.u16( helloLanPruneDelay ).u16( 4 );
      out.u16( ( delay.trackingSupport ? kMost + 1U : 0U ) |
               std::min( delay.propagationDelay, kMost ) );
      out.u16( delay.overrideInterval );
   }
   if ( hello.drPriority )
      out.u16( helloDrPriority ).u16( 4 ).u32( *hello.drPriority );
   if ( hello.generationId )
      out.u16( helloGenerationId ).u16( 4 ).u32( *hello.generationId );
   if ( hello.addresses.empty() ) return PimType::hello;
   out.u16( helloAddressList );
   const size_t length = out.size();
   out.u16( 0 );
   for ( const IpGenAddr& each : hello.addresses ) out.unicast( each );
   out.setU16( length, static_cast<uint32_t>( out.size() - length - 2 ) );
   return PimType::hello;
}

PimType Body::operator()( const PimJoinPrune& message ) const {
   MOX_ASSERT( message.groups.size() <= PimJoinPrune::maxGroups );
   out.unicast( message.upstreamNeighbor );
   out.u8( 0 ).u8( static_cast<uint32_t>( message.groups.size() ) );
   out.u16( message.holdtime );
   for ( const JoinPruneGroup& each : message.groups ) {
      out.group( each.address, each.maskLength );
      out.u16( static_cast<uint32_t>( each.joins.size() ) );
      out.u16( static_cast<uint32_t>( each.prunes.size() ) );
      for ( const EncodedSource& join : each.joins ) out.source( join );
      for ( const EncodedSource& prune : each.prunes ) out.source( prune );
   }
   return PimType::joinPrune;
}

// The inner packet of a null register.
void nullPacket( PimWriter& out, const PimRegister& message ) {
   Checksum checksum;
   if ( out.isIp4() ) {
      PimWriter header( AddressFamily::ipv4 );
      header.u8( 0x45 )
         .u8( 0 )
         .u16( 20 )
         .u32( 0 )
         .u8( 0 )
         .u8( pimProtocol )
         .u16( 0 );
      header.address( message.source ).address( message.group );
      checksum.add( header.written() );
      header.setU16( 10, checksum.value() );
      out.bytes( header.written() );
      return;
   }
   constexpr size_t kPimHeader = 4;
   out.u32( 0x60000000 ).u16( kPimHeader ).u8( pimProtocol ).u8( 0 );
   out.address( message.source ).address( message.group );
   addPseudoHeader( checksum, message.source, message.group, kPimHeader,
                    pimProtocol );
   out.u16( 0 ).u16( checksum.value() );
}

PimType Body::operator()( const PimRegister& message ) const {
   out.u32( ( message.border ? 0x80000000 : 0U ) |
            ( message.nullRegister || message.packet.empty() ? 0x40000000 : 0U ) );
   if ( message.packet.empty() ) {
      nullPacket( out, message );
   } else {
      out.bytes( message.packet );
   }
   return PimType::registerData;
}

PimType Body::operator()( const PimRegisterStop& message ) const {
   out.group( message.group, message.maskLength );
   out.unicast( message.source );
   return PimType::registerStop;
}

PimType Body::operator()( const PimAssert& message ) const {
   out.group( message.group, message.maskLength );
   out.unicast( message.source );
   constexpr uint32_t kRptBit = 0x80000000;
   const uint32_t preference = std::min( message.preference, kRptBit - 1 );
   out.u32( ( message.rptBit ? kRptBit : 0U ) | preference );
   out.u32( message.metric );
   return PimType::assertion;
}

}

PimMessage pimMessage( PimMessage::Body body ) {
   static constexpr PimType kTypes[] = {
      PimType::hello,        PimType::hello,        PimType::joinPrune,
      PimType::registerData, PimType::registerStop, PimType::assertion };
   const PimType type = kTypes[body.index()];
   return { type, std::move( body ) };
}

std::vector<uint8_t> encodePim( const PimMessage& message, const IpGenAddr& source,
                                const IpGenAddr& destination ) {
   if ( std::holds_alternative<std::monostate>( message.body ) ) return {};
   constexpr uint32_t kVersion = 2;
   PimWriter out( source.family() );
   out.u32( 0 );
   const PimType type = std::visit( Body{ out }, message.body );
   out.setU16( 0, ( kVersion << 12 ) | static_cast<uint32_t>( type ) << 8 );
   // For a register only the header is summed (RFC 7761, 4.9.3).
   const size_t covered =
      type == PimType::registerData ? registerHeader : out.size();
   Checksum checksum;
   if ( !out.isIp4() )
      addPseudoHeader( checksum, source, destination, covered, pimProtocol );
   checksum.add( out.written().first( covered ) );
   out.setU16( 2, checksum.value() );
   return out.take();
}

}
