// Puts together frames byte by byte for the decoder's tests.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/net/IpGenAddr.h"

namespace Agent {

class PacketBuilder {
 public:
   PacketBuilder& u8( unsigned value ) {
      bytes_.push_back( static_cast<uint8_t>( value ) );
      return *this;
   }
   PacketBuilder& u16( unsigned value ) { return u8( value >> 8 ).u8( value ); }
   PacketBuilder& u32( uint32_t value ) {
      return u16( value >> 16 ).u16( value & 0xffff );
   }
   PacketBuilder& raw( const std::vector<uint8_t>& bytes ) {
      bytes_.insert( bytes_.end(), bytes.begin(), bytes.end() );
      return *this;
   }
   PacketBuilder& zeros( size_t count ) {
      bytes_.resize( bytes_.size() + count );
      return *this;
   }
   PacketBuilder& addr( const char* text ) {
      Vantu::IpGenAddr address{ Mox::StringView( text ) };
      const auto& all = address.bytes();
      bytes_.insert( bytes_.end(), all.begin(),
                     all.begin() + Vantu::addressBits( address.family() ) / 8 );
      return *this;
   }
   // Encoded as of RFC 7761, 4.9.1.
   PacketBuilder& unicast( const char* text ) { return head( text ).addr( text ); }
   PacketBuilder& group( const char* text ) {
      return head( text ).u8( 0 ).u8( bits( text ) ).addr( text );
   }
   PacketBuilder& source( const char* text, unsigned flags ) {
      return head( text ).u8( flags ).u8( bits( text ) ).addr( text );
   }

   const std::vector<uint8_t>& bytes() const { return bytes_; }
   operator const std::vector<uint8_t>&() const { return bytes_; }

 private:
   static bool isIpv6( const std::string& text ) {
      return text.find( ':' ) != std::string::npos;
   }
   static unsigned bits( const char* text ) { return isIpv6( text ) ? 128 : 32; }
   PacketBuilder& head( const char* text ) {
      return u8( isIpv6( text ) ? 2 : 1 ).u8( 0 );
   }

   std::vector<uint8_t> bytes_;
};

}
