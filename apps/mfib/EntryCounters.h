// The kernel's counters of its entries, in the table `cache`. Event-loop thread only.
#pragma once

#include <functional>

#include "apps/mfib/KernelTable.h"
#include "published/MfibStatus.h"

namespace Forwarding {

// Publishes the changes since the table was written. Leaves out entries for which
// `wanted` returns false; removes records without an entry. `now`: s on
// CLOCK_MONOTONIC. Throws std::system_error.
void publishEntryCounters(
   const KernelTable& kernel, Published::MfibStatus& tables,
   const std::function<bool( const Routing::Pim::RouteKey& )>& wanted, double now );

// As above, for one entry.
void publishEntryCounters( const StandingEntry& entry,
                           Published::MfibStatus& tables, double now );

}
