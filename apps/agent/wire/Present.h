// A VRF's configuration, completed by what this host's interfaces are at present: for
// a router that sends.
#pragma once

#include <string>

#include "apps/agent/wire/HostLinks.h"
#include "apps/config/AgentConfig.h"

namespace Agent {

// The configuration for that family. An interface that is missing or down is not up; in
// IPv6, one without a link-local address neither. In IPv6 PIM uses the interface's
// link-local address: the configured one if the interface has it, else the lowest; the
// other addresses are secondary. The MTU is the interface's.
VrfConfig presentConfig( VrfConfig config, Vantu::AddressFamily family,
                         const HostLinkTable& links );

// A message for people where the kernel drops packets that a router needs: its reverse
// path filter is on. Empty without cause.
std::string reversePathProblem();

}
