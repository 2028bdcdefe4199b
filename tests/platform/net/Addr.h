#pragma once

#include "platform/net/IpGenAddr.h"

namespace Vantu {

inline IpGenAddr addr( const char* text ) {
   return IpGenAddr( Mox::StringView( text ) );
}

}
