// One multicast routing table of the kernel, as the forwarding process uses it.
// Tests replace it with a table of their own.
//
// A vif is the kernel's number, 0 to 31, of an interface in this table. The register
// vif is no interface: what goes out by it is handed up whole, and registers come in by
// it, decapsulated by the kernel. Failures are errno values; 0: done.
#pragma once

#include <algorithm>
#include <bitset>
#include <functional>
#include <optional>

#include "published/MfibRecords.h"

namespace Forwarding {

constexpr unsigned kMaxVifs = 32;
constexpr unsigned kRegisterVif = 31;

using VifSet = std::bitset<kMaxVifs>;

// The kernel's forwarding of an (S,G), or of the group's packets without an (S,G)
// entry.
struct Entry {
   Routing::Pim::RouteKey key;
   unsigned incoming = 0;
   VifSet outgoing;

   bool operator==( const Entry& ) const = default;
};

// An entry in the kernel, in the kernel's terms.
struct StandingEntry {
   Routing::Pim::RouteKey key;
   uint32_t incomingIndex = 0;  // of the interface; 0: the interface has gone
   std::vector<uint32_t> outgoingIndexes;
   uint64_t packets = 0;  // all, including those of wrong interfaces
   uint64_t bytes = 0;
   uint64_t wrongIf = 0;
   double idle = 0.0;  // s since the last packet; meaningless before the first

   uint64_t expected() const { return packets - std::min( wrongIf, packets ); }
};

struct VifCounters {
   uint64_t packetsIn = 0, bytesIn = 0, packetsOut = 0, bytesOut = 0;
};

struct Upcall {
   Routing::Pim::RouteKey key;
   unsigned vif = 0;
   Published::UpcallKind kind = Published::noCacheUpcall;
   // A packet that went out by the register vif; else empty. `kind` means nothing then.
   std::vector<uint8_t> packet = {};
};

class KernelTable {
 public:
   virtual ~KernelTable() = default;

   virtual int vifIs( unsigned vif, uint32_t ifIndex ) = 0;
   virtual int vifDel( unsigned vif ) = 0;
   // Makes the register vif.
   virtual int registerVifIs() = 0;
   // The index of its interface; 0 without it.
   virtual uint32_t registerIndex() const = 0;
   // Nothing if the kernel has no such vif.
   virtual std::optional<VifCounters> vif( unsigned vif ) const = 0;

   // Makes the entry, or replaces the key's former one.
   virtual int entryIs( const Entry& entry ) = 0;
   virtual int entryDel( const Routing::Pim::RouteKey& key ) = 0;
   // The present counters of an (S,G) entry, without its interfaces; nothing if there is
   // none.
   virtual std::optional<StandingEntry> counters(
      const Routing::Pim::RouteKey& key ) const = 0;
   // Returns false when the table changed meanwhile, so that entries may be
   // missing. Throws std::system_error.
   virtual bool visit(
      const std::function<void( const StandingEntry& )>& visitor ) const = 0;

   // The next waiting upcall. Nothing when there is none, or after too many other
   // packets: call again when the socket is readable.
   virtual std::optional<Upcall> nextUpcall() = 0;
};

}
