// The address family of routes, tables and addresses.
//
// A cast can make other values, as can a corrupt record. They print as
// "family<number>" and are not read back.
#pragma once

#include <cstdint>

#include "platform/base/Text.h"

namespace Vantu {

enum class AddressFamily : uint8_t { ipv4, ipv6 };

inline Mox::String valueToStrep( AddressFamily family ) {
   if ( family == AddressFamily::ipv4 ) return "ipv4";
   if ( family == AddressFamily::ipv6 ) return "ipv6";
   return "family" + Mox::valueToStrep( static_cast<uint8_t>( family ) );
}

// Throws ParseError.
inline void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                             AddressFamily& out ) {
   if ( Mox::acceptLiteral( begin, end, "ipv4" ) ) {
      out = AddressFamily::ipv4;
   } else if ( Mox::acceptLiteral( begin, end, "ipv6" ) ) {
      out = AddressFamily::ipv6;
   } else {
      Mox::parseFailed( "ipv4 or ipv6", begin, end );
   }
}

inline std::ostream& operator<<( std::ostream& stream, AddressFamily family ) {
   return Mox::Detail::put( stream, valueToStrep( family ) );
}

// The number of bits in an address; 0 for any other family.
constexpr unsigned addressBits( AddressFamily family ) {
   return family == AddressFamily::ipv4   ? 32
          : family == AddressFamily::ipv6 ? 128
                                          : 0;
}

}
