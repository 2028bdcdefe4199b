// Messages about the tables that the agent found at its start.
#pragma once

#include <string>
#include <vector>

#include "platform/mount/MountedEntity.h"

namespace Agent {

// A line for each of the entities' tables that was not simply taken over, and what
// was done with it; one line for all tables from before a reboot. `where` names the
// entities. REQUIRES: mounted as writer.
std::vector<std::string> mountNotes(
   const std::string& where,
   const std::vector<const MoxBrane::MountedEntity*>& entities );

}
