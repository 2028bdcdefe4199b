// Access lists in one line: "deny 239.1.0.0/16, permit 239.0.0.0/8" is a standard
// list of two rules, numbered from 10 in steps of 10.
#pragma once

#include <sstream>

#include "platform/acl/AclConfig.h"

namespace Acl::Test {

inline AclRules rules( const Mox::String& text ) {
   std::vector<AclRule> out;
   std::istringstream words( text );
   Mox::String action;
   Mox::String prefix;
   while ( words >> action >> prefix ) {
      if ( prefix.back() == ',' ) prefix.pop_back();
      out.push_back( { static_cast<uint32_t>( 10 + 10 * out.size() ),
                       Mox::enumInstance<AclAction>( action ),
                       Vantu::IpGenPrefix( Mox::StringView( prefix ) ),
                       {} } );
   }
   return { standard, std::move( out ) };
}

}
