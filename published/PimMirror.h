// Keeps the PIM interfaces of a mirrored model as the agent publishes them, so that
// the protocol macros answer as in the agent.
//
//   watches  table interface key by key
//   writes   the model's pimStatus: null, for unknown, while the agent publishes no
//            table
//
// Goes before the entities it was given. Event-loop thread only.
#pragma once

#include "model/Status.h"
#include "published/Status.h"

namespace Published {

class PIMSM_API PimMirror : public FamilyStatus::NotifieeConst {
 public:
   PimMirror( Mox::Ptr<Routing::Pim::SparseMode::Status> model,
              Mox::Ptr<const FamilyStatus> tables );

   using NotifieeConst::onInterface;
   void onInterface( const Vantu::IntfId& intfId ) override;
   void onInterface() override;

 private:
   void take( const Interface& record );

   Mox::Ptr<Routing::Pim::SparseMode::Status> model_;
   Mox::Ptr<const FamilyStatus> tables_;
   Mox::Ptr<Routing::Pim::Status> pim_;
};

}
