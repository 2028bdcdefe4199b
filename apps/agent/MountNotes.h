// What became of the tables that the agent found at its start, for people.
#pragma once

#include <string>
#include <vector>

#include "platform/mount/MountedEntity.h"

namespace Agent {

// A line for each of the entities' tables that was not simply taken up, and what was done
// with it; one for all that are from before a reboot. `where` names the entities.
// REQUIRES: mounted as writer.
std::vector<std::string> mountNotes(
   const std::string& where,
   const std::vector<const MoxBrane::MountedEntity*>& entities );

}
