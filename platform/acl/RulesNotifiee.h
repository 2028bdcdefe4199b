// Observes the rules of one access list, whichever sub-configuration holds them.
#pragma once

#include "platform/acl/AclConfig.h"

namespace Acl {

// Derive and override onRules(). May be destroyed inside it. Event-loop thread only.
class RulesNotifiee : public AclConfig::NotifieeConst {
 protected:
   // Does not notify of the rules in force.
   explicit RulesNotifiee( const AclConfig& list ) : current_( *this ) {
      notifierIs( &list );
      current_.notifierIs( list.currCfg() );
   }

   // Called when the list has other rules, or another sub-configuration with any.
   // The list may have no rules, or be gone: see notifier().
   virtual void onRules() = 0;

 private:
   class Current : public AclSubConfig::NotifieeConst {
    public:
      explicit Current( RulesNotifiee& list ) : list_( list ) {}
      void onRules() override { list_.onRules(); }

    private:
      RulesNotifiee& list_;
   };

   void onCurrCfg() override {
      current_.notifierIs( notifier()->currCfg() );
      onRules();
   }

   Current current_;
};

}
