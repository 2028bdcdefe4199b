// One VRF and family of a process that follows an agent: the model that mirrors its
// routes, and the reactors that keep the model in step with the tables.
//
//    VrfMirror::Observer observer;
//    observer.route = []( const auto& key, const auto* before, const auto* now ) { ... };
//    VrfMirror vrf( manager, clock, Vantu::AddressFamily::ipv4, name, observer );
//    Mox::Loop::TurnEnd turnEnd( loop, [&] { vrf.handleTurnEnd(); } );
//
// The tables may come later, and the agent may go and come back: the routes stay
// meanwhile, and the differences are reported afterwards. Event-loop thread.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "export/RouteBraneRestartSm.h"
#include "platform/base/Hook.h"
#include "published/PimMirror.h"

namespace Routing::Pim::SparseMode {

class PIMSM_API VrfMirror : private Brane::Status::NotifieeConst {
 public:
   // The hooks are called at the end of a turn; an empty hook is not. A null
   // `before` means a new record, a null `now` a removed one. Values between two
   // turns are left out, and equal values are no change. A hook may look at the
   // model, and must not destroy the mirror.
   struct Observer {
      Mox::Hook<void( const RouteKey& key, const Brane::Route* before,
                      const Brane::Route* now )>
         route;
      Mox::Hook<void( const RouteIntfKey& key, const Brane::Intf* before,
                      const Brane::Intf* now )>
         routeIntf;
      // An agent has come or gone. The first call is for a present agent.
      Mox::Hook<void( bool alive )> writer;
   };

   // Manager and clock outlive it. Without `interfaces` the model has no PIM
   // interfaces, which is enough for stored states. Throws the exceptions of
   // mounting (Brane::CreateError).
   VrfMirror( Corvex::EntityManager& manager, Mox::Clock& clock,
              Vantu::AddressFamily family, const L3::VrfName& vrf,
              Observer observer = {}, bool interfaces = true );
   ~VrfMirror() override;

   // The state at the agent's last write; macros answer as they did in the agent.
   const Mox::Ptr<Status>& model() const { return model_; }
   const Mox::Ptr<Brane::Status>& tables() const { return tables_; }
   // The agent's tables beside the routes; null without interfaces.
   const Mox::Ptr<Published::FamilyStatus>& published() const { return published_; }

   // Has the model been filled once? Missing tables fill it with nothing.
   bool initialized() const { return model_->initialized(); }
   // Are the tables there, and does the model hold all their records?
   bool loaded() const;
   bool writerAlive() const { return tables_->route().writerAlive(); }

   // Call it at the end of each turn of the loop: calls the observer.
   void handleTurnEnd();

 private:
   // Keys without a hook are not noted: they would stay for ever.
   void onRoute( const RouteKey& key ) override {
      if ( observer_.route ) routes_.changed.insert( key );
   }
   void onRouteIntf( const RouteIntfKey& key ) override {
      if ( observer_.routeIntf ) intfs_.changed.insert( key );
   }

   // The records of one table as last reported.
   template <class Record>
   struct Known {
      using Key = decltype( Record::key );
      std::unordered_map<Key, Record> records;
      std::unordered_set<Key> changed;
      bool loaded = false;
   };
   template <class Record, class Table, class Tell>
   void tell( Known<Record>& known, const Table& table, const Tell& tell );
   void tellWriter();

   Observer observer_;
   Mox::Ptr<Status> model_;
   Mox::Ptr<Brane::Status> tables_;
   Mox::Ptr<Brane::RouteBraneReaderSm> reader_;
   Mox::Ptr<Brane::RouteBraneRestartSm> restart_;
   Mox::Ptr<Published::FamilyStatus> published_;
   std::unique_ptr<Published::PimMirror> pim_;
   Known<Brane::Route> routes_;
   Known<Brane::Intf> intfs_;
   bool writerAlive_ = false;
};

}
