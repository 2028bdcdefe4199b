// What a router has put into its store, as typed facts. The functions read a value of a
// store: untrusted JSON, of which unknown members are ignored and members left out have
// their default. They throw Mox::ParseError with a sentence if it is too large or too deep,
// no JSON, or a known member has another type or a word that nobody knows. Pure functions;
// any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/net/IpGenPrefix.h"
#include "platform/pim/RouteKey.h"

namespace Fleet {

using Routing::Pim::RouteKey;
using Vantu::IpGenAddr;
using Vantu::IpGenPrefix;

// Times are ms since 1970, UTC; 0: not told. Addresses not told are unspecified.
using Time = int64_t;

struct RecorderFacts {
   uint64_t format = 0;
   std::string instance = {};  // its run
   bool complete = false;  // false: what stands is not yet, or no longer, the truth
};
RecorderFacts recorderFacts( std::string_view value );

struct TableFacts {
   bool writerGone = false;
   Time since = 0;  // that it runs, or is gone
   bool forwarderGone = false;
};
TableFacts tableFacts( std::string_view value );

// An interface of PIM. In IPv6 the address is link-local, and others are secondary.
struct Interface {
   enum State : uint8_t { unknown, up, down, withoutCarrier };
   std::string name = {};
   IpGenAddr address = {};
   std::vector<IpGenAddr> secondary = {};
   std::vector<IpGenPrefix> networks = {};  // without the link-local ones
   State state = unknown;
   bool isDr = false;
   IpGenAddr dr = {};
   std::optional<uint32_t> genId = {};

   bool has( const IpGenAddr& any ) const;
   bool isDown() const { return state == down || state == withoutCarrier; }
};

struct Neighbor {
   std::string interface = {};
   IpGenAddr address = {};
   std::vector<IpGenAddr> secondary = {};
   std::optional<uint32_t> genId = {};
   std::optional<bool> lanPruneDelay = {};  // does its hello have that option?
   bool tracks = false;                     // its T bit

   bool has( const IpGenAddr& any ) const;
};

struct Links {
   std::vector<Interface> interfaces = {};
   std::vector<Neighbor> neighbors = {};
};
Links linkFacts( std::string_view value );

struct RpRange {
   enum Rule : uint8_t { configured, sourceSpecific, embedded };
   std::string text = {};    // of its groups: a prefix, "list NAME" or "ff3x::/32"
   IpGenPrefix groups = {};  // none: the text is no prefix
   Rule rule = configured;
   IpGenAddr rp = {};
   bool own = false;  // the RP is this router
   // What a list permits, where that is told.
   std::optional<std::vector<IpGenPrefix>> permitted = {};
   auto operator<=>( const RpRange& ) const = default;
};
std::vector<RpRange> rpFacts( std::string_view value );

// Why an interface does not forward, by the macro that keeps it out.
enum class Reason : uint8_t {
   none,
   incomingInterface,
   noReceivers,
   prunesSgRpt,
   excludeSg,
   lostAssertWc,
   lostAssertSgRpt,
   lostAssertSg,
   other
};
const char* reasonText( Reason reason );

// An interface of a route.
struct RouteIntf {
   enum Assert : uint8_t { noInfo, winner, loser };
   std::string name = {};
   bool forwards = false;
   bool joined = false;   // or its prune is pending
   bool pruning = false;  // that it is
   bool member = false;
   bool excludes = false;  // its hosts do not want this source
   Assert assertState = noInfo;
   IpGenAddr assertWinner = {};
   Reason reason = Reason::none;
};

// A route's entry: of (*,G), of (S,G), or the (S,G,rpt) state.
struct Entry {
   bool spt = false;
   std::string incoming = {};
   IpGenAddr neighbor = {};        // the RPF neighbour there
   std::string rpfInterface = {};  // of the way to the source or RP itself
   IpGenAddr rpfNeighbor = {};
   bool attached = false;  // the source is on that interface
   bool sourceSpecific = false;
   IpGenAddr rp = {};
   bool joined = false;  // upstream
   Time created = 0;
   std::vector<RouteIntf> interfaces = {};

   const RouteIntf* find( std::string_view name ) const;
};

struct Route {
   Entry entry = {};
   std::optional<Entry> rpt = {};  // the (S,G,rpt) state of an (S,G) route
};
// Also throws where the value is of another route.
Route routeFacts( std::string_view value, const RouteKey& key );

struct Registering {
   bool registers = false;  // in the register olist
   bool stopped = false;
   bool firstHop = false;  // found as DR
   bool fromPeer = false;  // found by anycast-RP
};
Registering registerFacts( std::string_view value );

// The counters of a stream.
struct Rate {
   RouteKey stream = {};
   std::optional<uint64_t> packets = {};
   std::optional<double> packetsPerSecond = {};
   std::optional<double> bitsPerSecond = {};
   std::vector<uint64_t> samples = {};  // packets of each, the newest first
};
struct Rates {
   Time at = 0;
   std::vector<Rate> streams = {};
};
Rates rateFacts( std::string_view value );

// "2026-11-22T18:00:00.000Z". Throws Mox::ParseError.
Time timeOf( std::string_view text );

}
