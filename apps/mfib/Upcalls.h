// The table of the kernel's upcalls: bounded, a new one replaces the oldest.
// Event-loop thread only.
#pragma once

#include <list>
#include <unordered_map>

#include "platform/entity/EventCounter.h"
#include "published/MfibStatus.h"

namespace Forwarding {

class Upcalls {
 public:
   // Continues with the table's records. `owner` is that of its counters.
   // REQUIRES: capacity of at least one.
   Upcalls( const std::string& owner, Mox::Ptr<Published::MfibStatus> tables,
            size_t capacity = Published::MfibStatus::maxUpcalls );

   // Adds an upcall of `time`, s on CLOCK_MONOTONIC.
   void add( const Routing::Pim::RouteIntfKey& key, Published::UpcallKind kind,
             double time );

   uint64_t dropped() const { return dropped_.value(); }

 private:
   using Order = std::list<Routing::Pim::RouteIntfKey>;  // oldest first

   Mox::Ptr<Published::MfibStatus> tables_;
   size_t capacity_;
   Order order_;
   std::unordered_map<Routing::Pim::RouteIntfKey, Order::iterator> known_;
   Mox::EventCounter noCache_, wrongVif_, sharedTree_;
   Mox::EventCounter dropped_;  // records, for want of room
};

}
