// Tells the process that started this one how it is: systemd, or the forwarding process's
// keeper (sd_notify(3)). Without such a parent nothing happens.
#pragma once

#include <string>

namespace Programs {

// The process has all that it needs, and does its work.
void tellParentReady();

// Its state in a line for people, as `systemctl status` shows it.
void tellParentState( const std::string& text );

}
