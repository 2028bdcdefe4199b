// What this host's kernel says of its interfaces and multicast entries, for
// comparison with the tables.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

struct Host {
   struct Link {
      bool up = false;
      bool ipv4 = false;  // has an address of the family
      bool ipv6 = false;
      bool linkLocal = false;  // of IPv6
   };
   // By name; nothing: not known, as when the agent runs elsewhere.
   std::optional<std::map<std::string, Link>> links = std::nullopt;
   std::set<Vantu::IpGenAddr> addresses = {};  // of all links
   // A multicast entry: the kernel's table, and the indexes of its interfaces.
   struct Entry {
      uint32_t table = 0;
      uint32_t incoming = 0;
      std::set<uint32_t> outgoing = {};
   };
   // The kernel's multicast entries, of all its tables; nothing: not known.
   using Entries = std::multimap<Routing::Pim::RouteKey, Entry>;
   std::optional<Entries> entries = std::nullopt;
};

// Does the mirror's agent run on that host? It has one of the agent's addresses.
bool isOf( const Host& host, const Mirror& mirror );

// This host's, in the network namespace of this process.
Host thisHost();

}
