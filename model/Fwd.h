// Forward declarations of the route model.
#pragma once

namespace Routing::Pim::SparseMode {

class StatusColl;
class Status;
class Source;
class IntfCollection;
class Route;
class UpstreamInfo;
class Intf;

}
