#include "platform/net/IpGenPrefix.h"

#include <fmt/format.h>

#include "platform/net/AddressNumber.h"

namespace Vantu {
namespace {

constexpr Mox::StringView kNone = "none";

// The address with its bits beyond `length` cleared.
template <class Family>
IpGenAddr maskedAs( const IpGenAddr& address, unsigned length ) {
   auto cleared = Family::ones( Family::bits - length );
   return Family::address( Family::of( address ) & ~cleared );
}
IpGenAddr masked( const IpGenAddr& address, unsigned length ) {
   return address.family() == AddressFamily::ipv4
             ? maskedAs<Ip4Number>( address, length )
             : maskedAs<Ip6Number>( address, length );
}

}

IpGenPrefix::IpGenPrefix( const IpGenAddr& address, unsigned length ) {
   unsigned limit = addressBits( address.family() );
   if ( limit == 0 ) throw Mox::RangeError( "Unsupported address family" );
   if ( length > limit ) {
      throw Mox::RangeError(
         fmt::format( "IpGenPrefix::length > {} not allowed", limit ) );
   }
   address_ = masked( address, length );
   length_ = static_cast<uint8_t>( length );
   some_ = true;
}

IpGenPrefix::IpGenPrefix( const IpGenAddr& address )
   : IpGenPrefix( address, addressBits( address.family() ) ) {}

IpGenPrefix::IpGenPrefix( Mox::StringView text )
   : IpGenPrefix( Mox::stringToValue<IpGenPrefix>( text ) ) {}

bool IpGenPrefix::contains( const IpGenAddr& address ) const {
   return some_ && address.family() == family() &&
          masked( address, length_ ) == address_;
}

bool IpGenPrefix::contains( const IpGenPrefix& prefix ) const {
   return prefix.some_ && length_ <= prefix.length_ && contains( prefix.address_ );
}

Mox::String valueToStrep( const IpGenPrefix& prefix ) {
   if ( prefix.isNone() ) return Mox::String( kNone );
   return fmt::format( "{}/{}", valueToStrep( prefix.address() ), prefix.length() );
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                      IpGenPrefix& out ) {
   if ( Mox::acceptLiteral( begin, end, kNone ) ) {
      out = {};
      return;
   }
   IpGenAddr address;
   uint8_t length = 0;
   sequenceToValue( begin, end, address );
   Mox::expectLiteral( begin, end, "/" );
   Mox::sequenceToValue( begin, end, length );
   out = IpGenPrefix( address, length );
}

std::ostream& operator<<( std::ostream& stream, const IpGenPrefix& prefix ) {
   return stream << valueToStrep( prefix );
}

Mox::String valueToStrep( const IpGenPrefixSet& prefixes ) {
   Mox::String out = "{";
   for ( const IpGenPrefix& prefix : prefixes ) {
      if ( out.size() > 1 ) out += ", ";
      out += valueToStrep( prefix );
   }
   return out + "}";
}

void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                      IpGenPrefixSet& out ) {
   out.clear();
   Mox::expectLiteral( begin, end, "{" );
   while ( !Mox::acceptLiteral( begin, end, "}" ) ) {
      if ( !out.empty() ) Mox::expectLiteral( begin, end, ", " );
      IpGenPrefix prefix;
      sequenceToValue( begin, end, prefix );
      out.insert( prefix );
   }
}

std::ostream& operator<<( std::ostream& stream, const IpGenPrefixSet& prefixes ) {
   return stream << valueToStrep( prefixes );
}

}
