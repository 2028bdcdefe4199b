// Keeps published tables as the publishing process wants them: unchanged records
// are not written again, records not named any more are removed.
#pragma once

#include <functional>
#include <vector>

#include "platform/loop/Clock.h"
#include "published/Status.h"

namespace Published {

// The whole tables as they should be. A former process's records go, too. A full
// table keeps its records. Of two records of one key the first counts. All return false
// when a table refused something: it is worth another attempt later.
PIMSM_API bool publishInterfaces( FamilyStatus& tables,
                                  const std::vector<Interface>& all );
PIMSM_API bool publishOwnAddresses( FamilyStatus& tables,
                                    const std::vector<OwnAddress>& all );
PIMSM_API bool publishNeighbors( FamilyStatus& tables,
                                 const std::vector<Neighbor>& all );
PIMSM_API bool publishNeighborAddresses( FamilyStatus& tables,
                                         const std::vector<NeighborAddress>& all );
// Publishes one record, or removes it when no timer runs.
PIMSM_API bool publishDownstream( FamilyStatus& tables, const Downstream& record );
// Publishes one record, or removes it when no time runs.
PIMSM_API bool publishRegistering( FamilyStatus& tables,
                                   const Registering& record );
PIMSM_API bool publishRps( FamilyStatus& tables, const std::vector<Rp>& all );
PIMSM_API bool publishAccessRules( FamilyStatus& tables,
                                   const std::vector<AccessRule>& all );
PIMSM_API bool publishSettings( FamilyStatus& tables,
                                const std::vector<Setting>& all );

// Publishes the process's event counters, each second while they change. The clock
// outlives it.
class PIMSM_API CounterPublisher : public Mox::Clock::Notifiee {
 public:
   static constexpr double interval = 1.0;  // s

   CounterPublisher( Mox::Clock& clock, Mox::Ptr<ProcessStatus> tables );

   // Counters may have changed: publishes those that have within the interval.
   void touch();
   // Publishes at once.
   void publish();

 private:
   void onTime() override { publish(); }

   Mox::Ptr<ProcessStatus> tables_;
   double last_;
   bool started_ = false;
};

}
