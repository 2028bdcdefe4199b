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

Mox::String besidePath( Mox::StringView path, Mox::StringView kind ) {
   const size_t last = path.rfind( '/' );
   const bool beside = last != Mox::StringView::npos && last != 0;
   const size_t before =
      beside ? path.rfind( '/', last - 1 ) : Mox::StringView::npos;
   if ( before == Mox::StringView::npos ) return Mox::String( path );
   return fmt::format( "{}/{}{}", path.substr( 0, before ), kind,
                       path.substr( last ) );
}

}
