// Detaches the controls when the entity's last reference goes: a control may be
// held by others, and must not use an entity that is about to go.
#pragma once

#include "register/AdvertisedSgStatus.h"
#include "register/RegisterStatus.h"

namespace Routing::Pim::SparseMode {

class RegisterStatusZeroReferencesNotifiee : public RegisterStatus::NotifieeConst {
 public:
   explicit RegisterStatusZeroReferencesNotifiee( const RegisterStatus* status ) {
      notifierIs( status );
   }

   void handleZeroReferences() {
      const RegisterStatus& status = *notifier();
      status.anycastDiscoveredSgControl()->entityIs( nullptr );
      status.drDiscoveredSgControl()->entityIs( nullptr );
      status.noRegisterOifControl()->entityIs( nullptr );
      status.registerOifControl()->entityIs( nullptr );
      notifierIs( nullptr );
   }
};

class AdvertisedSgStatusZeroReferencesNotifiee
   : public AdvertisedSgStatus::NotifieeConst {
 public:
   explicit AdvertisedSgStatusZeroReferencesNotifiee(
      const AdvertisedSgStatus* status ) {
      notifierIs( status );
   }

   void handleZeroReferences() {
      notifier()->collControl()->entityIs( nullptr );
      notifierIs( nullptr );
   }
};

}
