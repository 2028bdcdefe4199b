// Keeps published tables as the publishing process says: what has not changed is not
// written again, what is not named any more goes.
#pragma once

#include <functional>
#include <vector>

#include "platform/loop/Clock.h"
#include "published/Status.h"

namespace Published {

// The tables whole, as they should be. What a former process left goes, too. A table
// that is full keeps what is in it. Of two records of one key the first counts.
PIMSM_API void publishInterfaces( FamilyStatus& tables,
                                  const std::vector<Interface>& all );
PIMSM_API void publishNeighbors( FamilyStatus& tables,
                                 const std::vector<Neighbor>& all );
// One record; where no timer runs it goes.
PIMSM_API void publishDownstream( FamilyStatus& tables, const Downstream& record );
PIMSM_API void publishRps( FamilyStatus& tables, const std::vector<Rp>& all );
PIMSM_API void publishAccessRules( FamilyStatus& tables,
                                   const std::vector<AccessRule>& all );
PIMSM_API void publishSettings( FamilyStatus& tables,
                                const std::vector<Setting>& all );

// Publishes the process's event counters, each second while they change. The clock
// outlives it.
class PIMSM_API CounterPublisher : public Mox::Clock::Notifiee {
 public:
   static constexpr double interval = 1.0;  // s

   CounterPublisher( Mox::Clock& clock, Mox::Ptr<ProcessStatus> tables );

   // Something may have been counted: publishes within the interval.
   void touch();
   // At once.
   void publish();

 private:
   void onTime() override { publish(); }

   Mox::Ptr<ProcessStatus> tables_;
   double last_;
};

}
