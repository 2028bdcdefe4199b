// Writes bytes front to back, in network order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "packet/Cursor.h"
#include "platform/net/IpGenAddr.h"

namespace Router {

class Writer {
 public:
   Writer& u8( uint32_t value ) {
      bytes_.push_back( static_cast<uint8_t>( value ) );
      return *this;
   }
   Writer& u16( uint32_t value ) { return u8( value >> 8 ).u8( value ); }
   Writer& u32( uint32_t value ) { return u16( value >> 16 ).u16( value ); }
   Writer& bytes( Bytes bytes ) {
      bytes_.insert( bytes_.end(), bytes.begin(), bytes.end() );
      return *this;
   }
   // Unspecified addresses are those of the family, whatever theirs is.
   Writer& address( const Vantu::IpGenAddr& address, Vantu::AddressFamily family ) {
      const size_t size = Vantu::addressBits( family ) / 8;
      if ( address.isUnspecified() ) {
         bytes_.resize( bytes_.size() + size );
         return *this;
      }
      return bytes( Bytes( address.bytes() ).first( size ) );
   }
   // Writes the number at a place that was left open.
   void setU16( size_t at, uint32_t value ) {
      bytes_[at] = static_cast<uint8_t>( value >> 8 );
      bytes_[at + 1] = static_cast<uint8_t>( value );
   }

   size_t size() const { return bytes_.size(); }
   Bytes written() const { return bytes_; }
   std::vector<uint8_t> take() { return std::move( bytes_ ); }

 private:
   std::vector<uint8_t> bytes_;
};

}
