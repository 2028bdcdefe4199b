#include "apps/config/detail/Values.h"

#include <algorithm>

#include "apps/program/Printable.h"

namespace Agent {

using Vantu::AddressFamily;
using Vantu::IntfId;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

IpGenPrefix multicastRange( AddressFamily family ) {
   return IpGenPrefix( family == AddressFamily::ipv4 ? "224.0.0.0/4" : "ff00::/8" );
}

void checkUnicast( const Place& place, const IpGenAddr& address ) {
   if ( !address.isUnspecified() && !address.isMulticast() ) return;
   place.fail( valueToStrep( address ) + " is no unicast address" );
}

IpGenAddr readUnicast( const Place& place, const char* what,
                       AddressFamily family ) {
   auto address = Section::convert<IpGenAddr>( place, what );
   checkUnicast( place, address );
   if ( address.family() == family ) return address;
   place.fail(
      fmt::format( "{}: {} is of another family", what, valueToStrep( address ) ) );
}

void checkName( const Place& place, const std::string& name ) {
   if ( Programs::printable( name ) == name ) return;
   place.fail( fmt::format( "name: '{}' has a control character", name ) );
}

IntfId readInterfaceName( const Place& place, const VrfConfig& vrf ) {
   auto name = Section::convert<IntfId>( place, "interface" );
   bool isKnown = std::any_of(
      vrf.interfaces.begin(), vrf.interfaces.end(),
      [&]( const InterfaceConfig& known ) { return known.name == name; } );
   if ( isKnown ) return name;
   place.fail( fmt::format( "interface '{}' is not of this VRF", name.name() ) );
}

}
