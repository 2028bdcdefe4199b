// Builds frames and capture files byte by byte. Numbers are in network order.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/net/IpGenAddr.h"

namespace Router {

using ByteVector = std::vector<uint8_t>;

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
   // "8100 0005 =10.0.0.1 @10.0.0.1 #239.1.1.1 7%10.0.0.1": digits in pairs, and addresses:
   // plain, and encoded as unicast, as group and as source with those flags.
   PacketBuilder& hex( const std::string& text ) {
      std::istringstream words( text );
      for ( std::string word; words >> word; ) {
         const size_t mark = word.find_first_of( "=@#%" );
         const char* behind = word.c_str() + mark + 1;
         for ( size_t at = 0; mark == std::string::npos && at < word.size();
               at += 2 )
            u8( std::stoul( word.substr( at, 2 ), nullptr, 16 ) );
         if ( mark == std::string::npos ) continue;
         if ( word[mark] == '=' ) addr( behind );
         if ( word[mark] == '@' ) unicast( behind );
         if ( word[mark] == '#' ) group( behind );
         if ( word[mark] == '%' ) source( behind, word[0] - '0' );
      }
      return *this;
   }
   PacketBuilder& raw( const ByteVector& bytes ) {
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
   // Encoded as in RFC 7761, 4.9.1.
   PacketBuilder& unicast( const char* text ) { return head( text ).addr( text ); }
   PacketBuilder& group( const char* text ) { return source( text, 0 ); }
   PacketBuilder& source( const char* text, unsigned flags ) {
      return head( text ).u8( flags ).u8( isIpv6( text ) ? 128 : 32 ).addr( text );
   }

   const ByteVector& bytes() const { return bytes_; }
   operator const ByteVector&() const { return bytes_; }

 private:
   static bool isIpv6( const std::string& text ) {
      return text.find( ':' ) != std::string::npos;
   }
   PacketBuilder& head( const char* text ) {
      return u8( isIpv6( text ) ? 2 : 1 ).u8( 0 );
   }

   ByteVector bytes_;
};

// A captured packet of one byte.
struct CapturedByte {
   double time;  // s
   uint8_t content;
   uint32_t wireLength = 1;
};

// The classic format, big-endian.
inline ByteVector pcapFile( const std::vector<CapturedByte>& packets,
                            unsigned link = 1 ) {
   PacketBuilder out;
   out.hex( "a1b2c3d4 0002 0004 00000000 00000000 0000ffff" ).u32( link );
   for ( const CapturedByte& p : packets ) {
      auto seconds = static_cast<uint32_t>( p.time );
      auto micros = static_cast<uint32_t>( ( p.time - seconds ) * 1e6 );
      out.u32( seconds ).u32( micros ).u32( 1 ).u32( p.wireLength ).u8( p.content );
   }
   return out;
}

// Returns the path.
inline std::string writeFile( const std::string& path, const ByteVector& bytes ) {
   std::ofstream( path, std::ios::binary )
      .write( reinterpret_cast<const char*>( bytes.data() ),
              static_cast<std::streamsize>( bytes.size() ) );
   return path;
}

}
