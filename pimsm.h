// The library in one: a VRF put together whole, to write and to follow, the model that it
// holds, and how its macros come to their answers. What more there is stands in its own
// folder; doc/names.md lists the namespaces, and what to write where two are opened together.
#pragma once

#include "assembly/VrfMirror.h"
#include "assembly/VrfWriter.h"
#include "model/Derivation.h"
#include "model/IntfCollection.h"
#include "model/StatusColl.h"
#include "platform/loop/RealClock.h"
