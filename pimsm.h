// The headers that most programs need: one complete VRF to write or to follow, its
// model, and the derivations of the protocol macros. The other headers are included from
// their folders. doc/names.md lists the namespaces, and the names that need a prefix when
// several are opened together.
#pragma once

#include "assembly/VrfMirror.h"
#include "assembly/VrfWriter.h"
#include "model/Derivation.h"
#include "model/IntfCollection.h"
#include "model/StatusColl.h"
#include "platform/loop/RealClock.h"
