// Turns the words of a scenario into a packet on a link, sent by another router or
// a host.
#pragma once

#include <functional>

#include "packet/Message.h"
#include "tests/scenario/Names.h"
#include "tests/scenario/Words.h"

namespace Scenario {

// The defaults, until a scenario says otherwise.
struct Habits {
   std::string intf;
   std::string from;  // a name or an address
   uint16_t holdtime = 210;
};

// Another router's knowledge of the one under test.
struct Link {
   Vantu::IpGenAddr own;  // its address on the link
   // The configured RP of a group, or the unspecified address.
   std::function<Vantu::IpGenAddr( const Vantu::IpGenAddr& )> rpOf;
};

// A packet, and the bytes that it carries.
struct Sent {
   Router::IpPacket packet;
   std::vector<uint8_t> payload;
};

// Uses all words. Throws ScriptError, and Mox::ParseError for an address.
Sent readMessage( Words& words, const Names& names, const Habits& habits,
                  const Link& link );

}
