#include "platform/mount/VrfPath.h"

#include <fmt/format.h>

#include "platform/base/Assert.h"
#include "platform/base/Error.h"
#include "platform/base/Text.h"

namespace MoxBrane {

Mox::String vrfPath( Mox::StringView kind, Vantu::AddressFamily family,
                     const L3::VrfName& vrf ) {
   using enum Vantu::AddressFamily;
   MOX_ASSERT_TEXT( family == ipv4 || family == ipv6,
                    "Unsupported address family" );
   const Mox::String& name = vrf.name();
   if ( name.empty() || name == "." || name == ".." ||
        name.find_first_of( Mox::StringView( "/\0", 2 ) ) != Mox::String::npos ) {
      throw Mox::RangeError( "VRF name " + Mox::valueToStrep( name ) +
                             " cannot be part of a path" );
   }
   return fmt::format( "{}/{}/{}", family == ipv4 ? "routing" : "routing6", kind,
                       name );
}

}
