// One message of the kernel's route netlink (rtnetlink(7)), read without trust in its
// lengths.
//
// A message and its attributes are views: valid during the call that hands them over.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstring>
#include <optional>
#include <span>

#include "platform/net/IpGenAddr.h"

namespace Netlink {

using Bytes = std::span<const uint8_t>;

// A value of the attribute's first bytes; nothing where they are too few.
template <class T>
std::optional<T> valueOf( Bytes bytes ) {
   T value;
   if ( bytes.size() < sizeof value ) return std::nullopt;
   std::memcpy( &value, bytes.data(), sizeof value );
   return value;
}

// A list of attributes. What stands behind a broken one does not count.
class Attributes {
 public:
   Attributes() = default;
   explicit Attributes( Bytes bytes ) : bytes_( bytes ) {}

   // The first attribute of that type; nothing where there is none.
   std::optional<Bytes> find( uint16_t type ) const;

   template <class T>
   std::optional<T> value( uint16_t type ) const {
      std::optional<Bytes> bytes = find( type );
      return bytes ? valueOf<T>( *bytes ) : std::nullopt;
   }
   // Of exactly the family's size.
   std::optional<Vantu::IpGenAddr> address( uint16_t type,
                                            Vantu::AddressFamily family ) const;
   // Without the NUL that ends it.
   std::optional<Mox::StringView> text( uint16_t type ) const;
   // Empty where there is none.
   Attributes nested( uint16_t type ) const;

 private:
   Bytes bytes_;
};

class Message {
 public:
   // REQUIRES: `length` bytes behind the header's start, as its nlmsg_len says.
   explicit Message( const nlmsghdr& header ) : header_( header ) {}

   uint16_t type() const { return header_.nlmsg_type; }

   // The fixed part, such as rtmsg or ifinfomsg; null where the message is shorter.
   template <class Body>
   const Body* body() const {
      return payload().size() < sizeof( Body )
                ? nullptr
                : reinterpret_cast<const Body*>( payload().data() );
   }
   // What follows that part.
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

// AF_INET or AF_INET6 of a message as a family; nothing for any other.
std::optional<Vantu::AddressFamily> familyOf( int systemFamily );
int systemFamily( Vantu::AddressFamily family );

}
