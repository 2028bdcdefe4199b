// Refusals that depend on addresses alone.
#pragma once

#include <optional>

#include "platform/net/IpGenAddr.h"
#include "published/Refusal.h"

namespace Router {

using Published::Refusal;
using Published::refusalCount;
using enum Published::Refusal;

// The reason why the address is no group that routers forward, or no source; empty
// otherwise.
inline std::optional<Refusal> refusalOfGroup( const Vantu::IpGenAddr& group ) {
   if ( !group.isMulticast() ) return notMulticast;
   if ( group.isLinkLocalMulticast() ) return linkLocalGroup;
   return std::nullopt;
}
inline std::optional<Refusal> refusalOfSource( const Vantu::IpGenAddr& source ) {
   if ( source.isUnspecified() || source.isMulticast() ) return badSource;
   return std::nullopt;
}
inline std::optional<Refusal> refusalOfRoute( const Vantu::IpGenAddr& source,
                                              const Vantu::IpGenAddr& group ) {
   const auto refusal = refusalOfGroup( group );
   return refusal ? refusal : refusalOfSource( source );
}

}
