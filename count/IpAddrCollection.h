// A set of addresses, each with a flag that its users always set.
#pragma once

#include <iosfwd>
#include <unordered_map>

#include "platform/base/Text.h"
#include "platform/net/IpGenAddr.h"

namespace Routing::Pim::SparseMode {

class PIMSM_API IpAddrCollection {
 public:
   using AddrMap = std::unordered_map<Vantu::IpGenAddr, bool>;

   IpAddrCollection() = default;
   // Deliberately a fatal assertion: the text form holds nothing to read back.
   [[noreturn]] explicit IpAddrCollection( Mox::StringView text );

   const AddrMap& addr() const { return addr_; }
   // The address's flag; null when the address is no member.
   const bool* addr( const Vantu::IpGenAddr& address ) const;

   // True when the call changed the collection.
   bool addrIs( const Vantu::IpGenAddr& address, bool value );
   bool addrDel( Vantu::IpGenAddr address ) { return addr_.erase( address ) != 0; }
   void addrDelAll() { addr_.clear(); }

   // The same addresses with the same flags.
   bool operator==( const IpAddrCollection& ) const = default;
   // Is the collection empty?
   bool operator!() const { return addr_.empty(); }

 private:
   AddrMap addr_;
};

// Deliberately "None", whatever the collection holds.
PIMSM_API Mox::String valueToStrep( const IpAddrCollection& value );
PIMSM_API std::ostream& operator<<( std::ostream& stream,
                                    const IpAddrCollection& value );

}
