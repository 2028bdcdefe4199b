// One message of the kernel's route netlink (rtnetlink(7)), whose lengths are
// checked.
//
// A message and its attributes are views: valid during the call that passes them.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <optional>
#include <span>

#include "platform/net/IpGenAddr.h"

namespace Netlink {

using Bytes = std::span<const uint8_t>;

// A value from the attribute's first bytes; nothing if they are too few.
template <class T>
std::optional<T> valueOf( Bytes bytes ) {
   T value;
   if ( bytes.size() < sizeof value ) return std::nullopt;
   std::memcpy( &value, bytes.data(), sizeof value );
   return value;
}

// A list of attributes. It ends at a broken one.
class Attributes {
 public:
   Attributes() = default;
   explicit Attributes( Bytes bytes ) : bytes_( bytes ) {}

   // The first attribute of that type; nothing without one.
   std::optional<Bytes> find( uint16_t type ) const;

   template <class T>
   std::optional<T> value( uint16_t type ) const {
      std::optional<Bytes> bytes = find( type );
      return bytes ? valueOf<T>( *bytes ) : std::nullopt;
   }
   // The address, if it has exactly the family's size.
   std::optional<Vantu::IpGenAddr> address( uint16_t type,
                                            Vantu::AddressFamily family ) const;
   // The text without its final NUL.
   std::optional<Mox::StringView> text( uint16_t type ) const;
   // Empty without such an attribute.
   Attributes nested( uint16_t type ) const;

 private:
   Bytes bytes_;
};

class Message {
 public:
   // REQUIRES: `length` bytes behind the header's start, as its nlmsg_len says.
   explicit Message( const nlmsghdr& header ) : header_( header ) {}

   uint16_t type() const { return header_.nlmsg_type; }

   // The fixed part, such as rtmsg or ifinfomsg; null if the message is shorter.
   template <class Body>
   const Body* body() const {
      return payload().size() < sizeof( Body )
                ? nullptr
                : reinterpret_cast<const Body*>( payload().data() );
   }
   // The attributes behind the fixed part.
   template <class Body>
   Attributes attributes() const {
      constexpr size_t kSize = NLMSG_ALIGN( sizeof( Body ) );
      return payload().size() < kSize ? Attributes()
                                      : Attributes( payload().subspan( kSize ) );
   }

 private:
   Bytes payload() const {
      return { reinterpret_cast<const uint8_t*>( &header_ ) + NLMSG_HDRLEN,
               header_.nlmsg_len - static_cast<size_t>( NLMSG_HDRLEN ) };
   }

   const nlmsghdr& header_;
};

// The family of AF_INET or AF_INET6; nothing for any other number.
std::optional<Vantu::AddressFamily> familyOf( int systemFamily );
int systemFamily( Vantu::AddressFamily family );

}
