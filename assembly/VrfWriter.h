// One VRF and family of an agent: the model, the tables that publish it, and the
// reactors that keep the tables in step with the model.
//
//    VrfWriter vrf( manager, clock, Vantu::AddressFamily::ipv4, L3::VrfName( "default" ) );
//    Mox::Loop::TurnEnd turnEnd( loop, [&] { vrf.handleTurnEnd(); } );
//    while ( !vrf.ready() ) loop.dispatch();   // what a former process left
//    vrf.model()->routeIs( ... )
//
// The tables are mounted as writer, and existing files are taken over. The model is
// reloaded in slices as the loop turns; only then are changes published. Event-loop
// thread.
#pragma once

#include <vector>

#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"
#include "published/Status.h"
#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"

namespace Routing::Pim::SparseMode {

struct VrfWriterOptions {
   // The capacity of the tables.
   uint32_t maxRoutes = 10000;
   uint32_t maxRouteIntfs = 600000;
   // The clock that paces the reviews of changes; null: the clock itself. Outlives
   // the VRF.
   Mox::Clock* reviewClock = nullptr;
};

class PIMSM_API VrfWriter {
 public:
   // Manager and clock outlive it. Throws the exceptions of mounting
   // (Brane::SecondWriterError, Brane::CreateError). A second one of the VRF in this
   // process is a second writer, too.
   VrfWriter( Corvex::EntityManager& manager, Mox::Clock& clock,
              Vantu::AddressFamily family, const L3::VrfName& vrf,
              const VrfWriterOptions& options = {} );
   ~VrfWriter();
   VrfWriter( const VrfWriter& ) = delete;
   VrfWriter& operator=( const VrfWriter& ) = delete;

   // The engines write it, but not before ready(): the reload comes first.
   const Mox::Ptr<Status>& model() const { return model_; }
   // The engines publish these beside the routes, by the tables' mutators.
   const Mox::Ptr<RegisterStatus>& registers() const { return registers_; }
   const Mox::Ptr<AdvertisedSgStatus>& advertised() const { return advertised_; }
   const Mox::Ptr<Published::FamilyStatus>& published() const { return published_; }
   // The published routes; only the route writer writes them.
   const Mox::Ptr<Brane::Status>& tables() const { return tables_; }
   Brane::RouteBraneWriterSm& writer() const { return *writer_; }

   // Has the reload ended?
   bool ready() const { return model_->initialized(); }

   // Call it at the end of each turn of the loop. Changes are published 10 to 50 ms
   // later: also a change of an interface alone, and states that the writer does
   // not mark by itself if they are marked in its change set.
   void handleTurnEnd() { writer_->doMaybeUpdateReviewTimer(); }
   // Are all marked changes in the tables?
   bool idle() const;

   // In the order in which they are mounted.
   std::vector<const MoxBrane::MountedEntity*> entities() const;

   // Removes the VRF: readers see its tables go. Nothing is published any more.
   void retire();
   // Removes the tables that a former process left of a VRF. Tables with a writer
   // stay.
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
