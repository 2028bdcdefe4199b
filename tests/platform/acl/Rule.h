#pragma once

#include "platform/acl/AclConfig.h"

namespace Acl {

inline AclRule rule( uint32_t sequence, AclAction action, const char* source,
                     const char* destination = "none" ) {
   return { sequence, action, Vantu::IpGenPrefix( Mox::StringView( source ) ),
            Vantu::IpGenPrefix( Mox::StringView( destination ) ) };
}

}
