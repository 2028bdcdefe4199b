// A logged event in words.
#pragma once

#include "apps/mirror/Events.h"

namespace Show {

// "join of 10.0.1.7 expired": what happened, to whom and why, without the route.
std::string eventText( const Published::Event& event );
// Why something was refused: "its sender has said no hello".
std::string refusalText( Published::Refusal refusal );
// With its route and interface in front: "(*, 239.1.2.3)  eth2  joined by 10.0.2.9".
std::string eventWords( const Published::Event& event );
// A whole line without its newline, with the time in UTC. `now`: seconds,
// CLOCK_MONOTONIC.
std::string eventLine( const Logged& logged, double now );

}
