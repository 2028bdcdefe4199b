// Forward declarations of the shared-memory route export.
#pragma once

namespace Routing::Pim::SparseMode::Brane {

struct Route;
struct Intf;
struct RouteCounter;
class Status;
class RouteChangeSet;
class RouteBraneWriterSm;
class RouteBraneReaderSm;
class RouteBraneRestartSm;

}
