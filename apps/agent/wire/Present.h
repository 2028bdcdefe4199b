// A VRF's configuration, completed by what this host's interfaces are at present: for
// a router that sends.
#pragma once

#include <string>

#include "apps/agent/wire/HostLinks.h"
#include "apps/config/AgentConfig.h"

namespace Agent {

// The configuration for that family. An interface is not up that is missing or down,
// or lacks the address that PIM uses: in IPv4 the first one configured, in IPv6 a
// link-local one, the configured one if the interface has it, else the lowest. The
// other addresses are secondary. The MTU is the interface's.
VrfConfig presentConfig( VrfConfig config, Vantu::AddressFamily family,
                         const HostLinkTable& links );

// A message for people where the kernel drops packets that a router needs: its reverse
// path filter is on. Empty without cause.
std::string reversePathProblem();

}
