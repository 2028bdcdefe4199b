#include "count/IpAddrCollection.h"

#include "platform/base/Assert.h"

namespace Routing::Pim::SparseMode {

IpAddrCollection::IpAddrCollection( Mox::StringView ) {
   Mox::assertionFailed(
      "No String constructor for IpAddrCollection - has collection", __FILE__,
      __LINE__ );
}

const bool* IpAddrCollection::addr( const Vantu::IpGenAddr& address ) const {
   auto found = addr_.find( address );
   return found == addr_.end() ? nullptr : &found->second;
}

bool IpAddrCollection::addrIs( const Vantu::IpGenAddr& address, bool value ) {
   auto [place, added] = addr_.try_emplace( address, value );
   if ( !added && place->second == value ) return false;
   place->second = value;
   return true;
}

Mox::String valueToStrep( const IpAddrCollection& ) {
   return "None";
}

std::ostream& operator<<( std::ostream& stream, const IpAddrCollection& value ) {
   return stream << valueToStrep( value );
}

}
