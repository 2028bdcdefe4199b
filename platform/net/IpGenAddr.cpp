#include "platform/net/IpGenAddr.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>

#include "platform/base/Assert.h"

namespace Vantu {
namespace {

bool isAddressCharacter( unsigned char c ) {
   return std::isxdigit( c ) != 0 || c == '.' || c == ':';
}

}

IpGenAddr::IpGenAddr( const in_addr& address ) {
   std::memcpy( bytes_.data(), &address, sizeof address );
}

IpGenAddr::IpGenAddr( const in6_addr& address )
   : IpGenAddr( unspecified( AddressFamily::ipv6 ) ) {
   std::memcpy( bytes_.data(), &address, sizeof address );
}

IpGenAddr::IpGenAddr( Mox::StringView text )
   : IpGenAddr( Mox::stringToValue<IpGenAddr>( text ) ) {}

bool IpGenAddr::isLinkLocalMulticast() const {
   if ( !isMulticast() ) return false;
   if ( family() == AddressFamily::ipv4 ) {
      return bytes_[0] == 224 && bytes_[1] == 0 && bytes_[2] == 0;
   }
   constexpr uint8_t kLinkLocal = 2;
   return ( bytes_[1] & 0x0f ) <= kLinkLocal;
}

bool IpGenAddr::isLinkLocal() const {
   if ( family() == AddressFamily::ipv4 )
      return bytes_[0] == 169 && bytes_[1] == 254;
   return bytes_[0] == 0xfe && ( bytes_[1] & 0xc0 ) == 0x80;
}

Mox::String valueToStrep( const IpGenAddr& address ) {
   if ( addressBits( address.family() ) == 0 ) {
      return valueToStrep( address.family() );
   }
   char buffer[INET6_ADDRSTRLEN];
   int family = address.family() == AddressFamily::ipv4 ? AF_INET : AF_INET6;
   return inet_ntop( family, address.bytes().data(), buffer, sizeof buffer );
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                      IpGenAddr& out ) {
   Mox::StringIter last = std::find_if_not( begin, end, isAddressCharacter );
   Mox::String text( begin, last );
   bool isIpv6 = text.find( ':' ) != Mox::String::npos;
   uint8_t bytes[IpGenAddr::maxBytes];
   if ( inet_pton( isIpv6 ? AF_INET6 : AF_INET, text.c_str(), bytes ) != 1 ) {
      Mox::parseFailed( "an address", begin, end );
   }
   out = IpGenAddr::fromBytes( isIpv6 ? AddressFamily::ipv6 : AddressFamily::ipv4,
                               bytes );
   begin = last;
}

std::ostream& operator<<( std::ostream& stream, const IpGenAddr& address ) {
   return stream << valueToStrep( address );
}

}
