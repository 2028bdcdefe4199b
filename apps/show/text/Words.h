// The tool's words for what it shows.
#pragma once

#include <string>

#include "apps/mirror/Mirrors.h"

namespace Show {

std::string text( const Vantu::IpGenAddr& address );

// Names made printable: other agents may use any characters.
std::string nameText( Vantu::IntfId intfId );
std::string vrfText( const Mirror& mirror );
// "vrf default ipv4"
std::string mirrorText( const Mirror& mirror );

// "vrf default ipv4: 2 routes, agent running", a line; `told` is the part about the
// routes.
std::string headingText( const Mirror& mirror, const std::string& told );

// "1 route", "3 routes".
std::string countText( size_t count, const char* what );

// The line without trailing blanks, with its newline.
std::string lineText( std::string text );

// "(S, G)", "(*, G)".
std::string keyText( const Routing::Pim::RouteKey& key );

// A span of seconds in one or two units: "12s", "3m5s", "2h10m", "4d3h"; "0s" when
// negative, if the clock was read before the time was written.
std::string spanText( double seconds );

// "812 bit/s", "11.2 Mbit/s"; "1000.0 packets/s".
std::string bitsText( double rate );
std::string packetsText( double rate );

// "0x01020304".
std::string generationText( uint32_t id );

// "12s ago"; "never" for the time 0.
std::string agoText( double time, double now );

// "the agent publishes no interfaces": the reason why addresses and DR roles are
// unknown.
std::string noInterfacesText( const Mirror& mirror );

// "As of the agent's last write, 12s ago.", a line.
std::string lastWriteText( const Mirror& mirror );

// "eth0 via 192.0.2.1", "eth0, attached", "unresolved".
std::string rpfText( const Rpf& rpf, bool attached );

// "source tree", "shared tree", "no tree".
std::string treeText( const Route& route );

// "forwards", "does not forward": the agent's own value.
std::string forwardText( const Intf& intf );

// Further state of an interface: last join and prune, members, assert, or the (*,G)
// record that it stands for.
std::string intfReason( const Intf& intf, double now );

}
