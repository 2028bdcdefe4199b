// What several parts of the configuration read and check alike. All throw NodeError.
#pragma once

#include <fmt/format.h>

#include <set>
#include <string>

#include "apps/config/detail/Section.h"

namespace Agent {

using Vantu::AddressFamily;
using Vantu::IntfId;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

// All groups of the family.
Vantu::IpGenPrefix multicastRange( Vantu::AddressFamily family );

// Accepts an address that a router or host can have.
void checkUnicast( const Place& place, const Vantu::IpGenAddr& address );

Vantu::IpGenAddr readUnicast( const Place& place, const char* what,
                              Vantu::AddressFamily family );

// Other programs print the name, too.
void checkName( const Place& place, const std::string& name );

// The name of one of the VRF's interfaces.
Vantu::IntfId readInterfaceName( const Place& place, const VrfConfig& vrf );

// Throws at `place` when `names` holds a member twice.
template <class T>
void checkNew( const Place& place, const char* what, std::set<T>& known,
               const T& next, const std::string& text ) {
   if ( !known.insert( next ).second )
      place.fail( fmt::format( "{} '{}' comes twice", what, text ) );
}

// Reads the name of a VRF or an interface.
template <class Name>
Name readNewName( const Place& place ) {
   checkName( place, place.text( "name" ) );
   if ( place.text( "name" ).size() > Name::maxLength )
      place.fail( fmt::format( "name: longer than {} bytes", Name::maxLength ) );
   return Section::convert<Name>( place, "name" );
}

}
