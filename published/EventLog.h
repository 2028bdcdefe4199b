// The event log: what the newest events of a process were, in shared memory. It
// outlives the process, and the next one goes on with it. A multicast agent's is
// agentLog, a forwarding process's mfibLog; both serve all VRFs and families.
// Event-loop thread only.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

#include "platform/entity/EventCounter.h"
#include "platform/loop/Clock.h"
#include "platform/mount/EntityManager.h"
#include "platform/shm/RingReader.h"
#include "platform/shm/RingWriter.h"
#include "published/Event.h"

namespace Published {

inline constexpr const char* agentLog = "routing/pim/log/agent";
inline constexpr const char* mfibLog = "routing/pim/log/mfib";

// An agent writes its events by this. The process's event counters of owner
// "agent/events", or "mfib/events", count them by kind, with those that the log only
// counts.
class PIMSM_API EventLog {
 public:
   static constexpr uint32_t defaultEntries = 65536;
   // The same refusal, and packets by the same wrong interface, are counted, not told
   // again, within this time of the last one.
   static constexpr double sameRefusal = 600.0;  // s
   // Of new refusals a burst of so many is told, then one a second; the others by reason
   // and interface alone.
   static constexpr double refusalBurst = 100;
   // No more of them are counted at a time.
   static constexpr size_t maxTold = 4096;

   // Opens the log at the path below the manager's root. The clock is that of the
   // events' times; both outlive the log. Throws what RingWriter does.
   EventLog( const Corvex::EntityManager& manager, Mox::StringView path,
             Mox::Clock& clock, uint32_t entries = defaultEntries );

   // Writes the event, whose time is now unless it has one. REQUIRES: a kind.
   void add( const Event& event );

   // Tells readers, once a turn of the loop, and makes files anew that have been
   // removed.
   void flush();

   // The number of events ever written to this log.
   uint64_t written() const { return ring_.newest(); }
   // Why a former log was not continued; empty if it was, or there was none.
   const Mox::String& problem() const { return ring_.problem(); }

 private:
   // What makes two refusals the same.
   struct Same {
      explicit Same( const Event& event );
      bool operator==( const Same& ) const = default;
      EventKind kind;
      Refusal refusal;
      MessageKind message;
      uint32_t value;
      uint32_t ipVersion;
      Mox::String vrf;
      Vantu::IntfId intf;
      Vantu::IpGenAddr group, source, address;
   };
   struct HashOfSame {
      size_t operator()( const Same& same ) const;
   };
   struct Told {
      uint64_t sequence = 0;
      double last = 0.0;
   };
   static constexpr double checkInterval = 1.0;  // s

   void addRepeated( Event event );
   bool count( const Event& event );
   uint64_t write( const Event& event );

   const Corvex::EntityManager& manager_;
   Mox::String path_;
   Mox::Clock& clock_;
   Brane::RingWriter ring_;
   std::deque<Mox::EventCounter> counts_;  // by kind, without noEvent
   std::unordered_map<Same, Told, HashOfSame> told_;
   double room_ = refusalBurst;  // for new refusals
   double counted_ = 0.0;        // when that was reckoned
   double checked_ = 0.0;
   bool changed_ = false;
};

// Reads a log of this or another process.
class PIMSM_API EventReader {
 public:
   struct Entry {
      uint64_t sequence = 0;
      uint64_t count = 1;  // how often it came
      double last = 0.0;   // when it came last
      Event event;
   };

   // Throws what RingReader does. The log need not exist yet.
   EventReader( const Mox::String& root, Mox::StringView path );

   // Looks whether there is a log, or another one; true if so. Reading then begins
   // anew.
   bool poll();
   const Brane::RingReader& ring() const { return ring_; }
   // The file of the log; its bell is this and ".bell".
   const Mox::String& path() const { return path_; }

   // The next event after the last one returned, from the oldest on; nothing at the
   // end. Damaged ones are left out and counted.
   std::optional<Entry> next();
   // The refusals and wrong interfaces that next() has returned and that were counted
   // again since the last call, as they are now; in order.
   std::vector<Entry> repeated();
   // Events that newer ones had replaced before they were read.
   uint64_t missed() const { return missed_; }
   uint64_t damaged() const { return damaged_; }

 private:
   Brane::Lookup read( uint64_t sequence, Entry& out ) const;

   Mox::String path_;
   Brane::RingReader ring_;
   uint64_t instance_ = 0;
   uint64_t next_ = 1;
   std::map<uint64_t, uint64_t> counts_;  // told of those that may come again
   uint64_t missed_ = 0;
   uint64_t damaged_ = 0;
};

}
