// One VRF and family of an agent: the model, the tables that publish it, and what keeps
// the second in step with the first.
//
//    VrfWriter vrf( manager, clock, Vantu::AddressFamily::ipv4, L3::VrfName( "default" ) );
//    Mox::Loop::TurnEnd turnEnd( loop, [&] { vrf.handleTurnEnd(); } );
//    while ( !vrf.ready() ) loop.dispatch();   // what a former process left
//    vrf.model()->routeIs( ... )
//
// The tables are mounted as writer, a file that is there is taken over, and the model is
// reloaded in slices as the loop turns; only then are changes published. Event-loop thread.
#pragma once

#include <vector>

#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"
#include "published/Status.h"
#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"

namespace Routing::Pim::SparseMode {

struct VrfWriterOptions {
   // What the tables have room for.
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // Whose wake-ups the reviews of changes wait for; null: the clock itself. Outlives the
   // VRF.
   Mox::Clock* reviewClock = nullptr;
};

class PIMSM_API VrfWriter {
 public:
   // Manager and clock outlive it. Throws what mounting throws (Brane::SecondWriterError,
   // Brane::CreateError).
   VrfWriter( Corvex::EntityManager& manager, Mox::Clock& clock,
              Vantu::AddressFamily family, const L3::VrfName& vrf,
              const VrfWriterOptions& options = {} );
   ~VrfWriter();
   VrfWriter( const VrfWriter& ) = delete;
   VrfWriter& operator=( const VrfWriter& ) = delete;

   // What the engines write. Nothing before ready(): what was reloaded comes first.
   const Mox::Ptr<Status>& model() const { return model_; }
   // What they publish beside the routes, by mutators of the tables.
   const Mox::Ptr<RegisterStatus>& registers() const { return registers_; }
   const Mox::Ptr<AdvertisedSgStatus>& advertised() const { return advertised_; }
   const Mox::Ptr<Published::FamilyStatus>& published() const { return published_; }
   // The routes as they are published, written by the route writer alone.
   const Mox::Ptr<Brane::Status>& tables() const { return tables_; }
   Brane::RouteBraneWriterSm& writer() const { return *writer_; }

   // Has the reload ended?
   bool ready() const { return model_->initialized(); }

   // At the end of each turn of the loop: what changed is published 10 to 50 ms later, a
   // change of an interface alone, too, and of states that the writer does not mark by
   // itself where somebody marked them in its change set.
   void handleTurnEnd() { writer_->doMaybeUpdateReviewTimer(); }
   // Is everything that is marked in the tables?
   bool idle() const;

   // In the order in which they are mounted.
   std::vector<const MoxBrane::MountedEntity*> entities() const;

   // The VRF goes: readers see its tables go. Nothing is published any more.
   void retire();
   // The same of a VRF that nobody writes, as a former process left it. What has a writer
   // stays.
   static void removeTables( const Mox::String& root, Vantu::AddressFamily family,
                             const L3::VrfName& vrf );

 private:
   Corvex::EntityManager& manager_;
   Mox::Ptr<Status> model_;
   Mox::Ptr<Brane::Status> tables_;
   Mox::Ptr<RegisterStatus> registers_;
   Mox::Ptr<AdvertisedSgStatus> advertised_;
   Mox::Ptr<Published::FamilyStatus> published_;
   Mox::Ptr<Brane::RouteBraneRestartSm> restart_;
   Mox::Ptr<Brane::RouteBraneWriterSm> writer_;
};

}
