// Where the packets of a source, or of a shared tree, go through the routers of a fleet,
// and at which hop they stop: one verdict, and the chain that it rests on.
//
// Nothing is read but exact keys: of all routers their links, and of the stream what the
// routers on the way hold; of a whole tree, of all of them. Blocks while it reads.
#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "apps/fleet/path/Facts.h"
#include "apps/fleet/path/Verdict.h"
#include "apps/store/Store.h"

namespace Fleet {

// A value of a store that could not be used.
struct Problem {
   std::string router = {};
   std::string text = {};
   bool format = false;  // this program is too old for it
};

struct PathQuestion {
   Scope scope = {};
   RouteKey stream = {};                    // source unspecified: the (*,G) tree
   std::optional<IpGenAddr> receiver = {};  // nothing: all of them
   std::string from = {};  // a router: only what is below it; empty: from the root
   Time now = 0;
   // Waits before what failed is read once more, since values are of slightly different
   // times; empty: it is told as it is.
   std::function<void()> pause = {};
};

struct PathAnswer {
   struct Node {
      std::string router;
      std::string interface;  // where the packets come in; empty: nowhere
      enum Tree : uint8_t { none, source, shared } tree = none;
      Time asOf = 0;  // of the counters, or of the agent's end; 0: not told
      bool stale = false;
      bool agentGone = false;
   };
   // From the upper router to the lower one.
   struct Edge {
      size_t from = 0, to = 0;  // nodes
      std::string fromInterface = {}, toInterface = {};
      bool registers = false;  // in registers to the RP, by no interface
      bool forwards = false;
      Judgement judgement = {};
      std::optional<double> fromBits = {}, toBits = {};  // per second
   };
   struct Root {
      size_t node = 0;
      // Where the source is, the RP, a first hop that registers, the router that was
      // asked for, and where the way up ends too early.
      enum Kind : uint8_t { attached, rp, registers, asked, cut } kind = attached;
      std::string interface = {};
      Judgement judgement = {};
   };
   struct Receiver {
      size_t node = 0;
      std::string interface = {};
      bool known = false;  // false: it forwards there, and nobody known asks for it
      bool member = false;
      bool dr = false;
      Judgement judgement = {};
   };

   RouteKey stream = {};
   Scope scope = {};
   std::optional<IpGenAddr> receiver = {};
   Judgement judgement = {};
   std::string verdict =
      {};  // a sentence: what is wrong and what to do, or that it flows
   bool broken = false;
   bool stale = false;  // a router that was asked is stale or incomplete
   std::vector<Root> roots = {};
   std::vector<Node> nodes = {};
   std::vector<Edge> edges = {};
   std::vector<Receiver> receivers = {};
   std::vector<Problem> problems = {};
};

// Throws what the store's reader throws where it concerns the whole store. What concerns
// one router is a problem of the answer.
PathAnswer findPath( Reader& reader, const PathQuestion& question );

// Lines for people, safe for a terminal.
std::string pathText( const PathAnswer& answer );
// What the upper end of an edge does: "forwards", "does NOT forward".
const char* edgeWord( const PathAnswer::Edge& edge );
nlohmann::ordered_json pathJson( const PathAnswer& answer );

}
