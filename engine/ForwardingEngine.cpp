#include "engine/ForwardingEngine.h"

#include <unordered_map>

#include "engine/RecordState.h"

namespace Router {

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::RouteKey;
using Sm::Intf;
using Vantu::IntfId;

namespace {

void updateForwarding( Sm::Route& route ) {
   for ( Intf& intf : route.routeIntf() ) {
      intf.forwardIs( intf.forwardDesired() );
      intf.fastForwardIs( intf.fastForwardDesired() );
   }
}

Sm::UpRptState upRptState( const Sm::Route& route ) {
   const Sm::Route* shared = route.wc();
   if ( shared == nullptr || !shared->rptJoinDesiredWc() )
      return Sm::upRptNotJoined;
   return route.pruneDesiredSgRpt() ? Sm::upRptPruned : Sm::upRptNotPruned;
}

void updateUpstream( Sm::Route& route ) {
   bool wanted = route.wildCard() ? route.joinDesiredWc() : route.joinDesiredSg();
   route.upJoinStateIs( wanted ? Sm::upJoined : Sm::upNotJoined );
   if ( route.wildCard() || route.umh() == nullptr ) return;
   Sm::UpRptState state = upRptState( route );
   if ( state != route.upRptState() ) route.umh()->doUpdateRptState( state );
}

// Gives an (S,G) route records for the (*,G) route's interfaces, and removes
// records of interfaces that left it.
void inheritRecords( Sm::Route& route, const Sm::Route* shared ) {
   if ( shared != nullptr ) {
      for ( const Intf& theirs : shared->routeIntf() ) {
         if ( holdsState( theirs ) )
            route.routeIntfIs( theirs.intfId() )->initializedIs( true );
      }
   }
   std::vector<IntfId> gone;
   for ( const Intf& intf : route.routeIntf() ) {
      if ( !holdsState( intf ) && !inherits( intf, shared ) )
         gone.push_back( intf.intfId() );
   }
   for ( IntfId intfId : gone ) route.routeIntfDel( intfId );
}

}

// Observes the macros' inputs in one route.
class ForwardingEngine::MoxRoute final : public Sm::Route::NotifieeConst {
 public:
   MoxRoute( ForwardingEngine& engine, const Sm::Route& route )
      : engine_( engine ), key_( route.key() ), umh_( *this ), umhFrr_( *this ) {
      notifierIs( &route );
      umh_.notifierIs( route.umh() );
      umhFrr_.notifierIs( route.umhFrr() );
      for ( const Intf& intf : route.routeIntf() ) onRouteIntf( intf.intfId() );
      mark();
   }

   void onRouteFlags() override { mark(); }
   void onIifSwitchState() override {
      mark();
      changed();
   }
   // Only (*,G) routes: other routes' macros do not read it.
   void onUpJoinState() override {
      engine_.mark( key_ );
      changed();
   }
   void onCreationTime() override { changed(); }
   void onIifSwitchPending() override { changed(); }
   void onUmh() override {
      umh_.notifierIs( notifier()->umh() );
      mark();
   }
   void onUmhFrr() override {
      umhFrr_.notifierIs( notifier()->umhFrr() );
      mark();
   }
   void onRouteIntf( const IntfId& intfId ) override {
      const Intf* intf = notifier()->routeIntf( intfId );
      if ( intf == nullptr ) {
         intfs_.erase( intfId );
      } else {
         auto& reactor = intfs_[intfId];
         if ( reactor == nullptr ) reactor = std::make_unique<MoxIntf>( *this );
         reactor->notifierIs( intf );
      }
      mark();
   }

 private:
   class MoxUmh : public Sm::UpstreamInfo::NotifieeConst {
    public:
      explicit MoxUmh( MoxRoute& route ) : route_( route ) {}
      void onRpf() override { route_.mark(); }
      void onRpfAttached() override { route_.mark(); }
      void onPrevRpf() override {
         route_.mark();
         route_.changed();
      }
      void onMbrIif() override { route_.mark(); }
      void onFrr() override { route_.mark(); }
      void onRoute() override { route_.mark(); }

    private:
      MoxRoute& route_;
   };
   class MoxIntf : public Intf::NotifieeConst {
    public:
      explicit MoxIntf( MoxRoute& route ) : route_( route ) {}
      void onJoinState() override { mark(); }
      void onRptState() override { mark(); }
      void onAssertInfo() override { mark(); }
      void onLocalReceiverInclude() override { mark(); }
      void onLocalReceiverExclude() override { mark(); }
      // No macro reads these times.
      void onLastJoinReceived() override { changed(); }
      void onLastRptPruneReceived() override { changed(); }
      void onLastAssertAction() override { changed(); }
      void onFastForward() override { changed(); }
      void onToBeDeleted() override { changed(); }
      void onAllowRpInUse() override { changed(); }

    private:
      void changed() { route_.changed( notifier()->intfId() ); }
      void mark() {
         route_.mark();
         changed();
      }

      MoxRoute& route_;
   };

   void changed( IntfId intfId = {} ) { engine_.hooks_.changed( key_, intfId ); }
   // The group's (S,G) routes read the (*,G) route, so they are marked as well.
   void mark() {
      if ( key_.source.isUnspecified() ) return engine_.markGroup( key_.group );
      engine_.mark( key_ );
   }

   ForwardingEngine& engine_;
   RouteKey key_;
   MoxUmh umh_;
   MoxUmh umhFrr_;
   std::unordered_map<IntfId, std::unique_ptr<MoxIntf>> intfs_;
};

class ForwardingEngine::MoxPimIntf final
   : public Routing::Pim::Intf::NotifieeConst {
 public:
   explicit MoxPimIntf( ForwardingEngine& engine ) : engine_( engine ) {}
   void onAddr() override { engine_.markAll(); }
   void onIAmDr() override { engine_.markAll(); }

 private:
   ForwardingEngine& engine_;
};

class ForwardingEngine::MoxStatus final : public Sm::Status::NotifieeConst {
 public:
   MoxStatus( ForwardingEngine& engine, const Sm::Status& model )
      : engine_( engine ), pim_( engine ) {
      notifierIs( &model );
      onPimStatus();
   }
   void onRoute( const RouteKey& key ) override { engine_.handleRoute( key ); }
   void onPimStatus() override {
      pim_.notifierIs( notifier()->pimStatus() );
      engine_.pimIntfs_.clear();
      engine_.markAll();
      if ( notifier()->pimStatus() == nullptr ) return;
      for ( const auto& intf : notifier()->pimStatus()->intf() )
         engine_.handlePimIntf( intf.intfId() );
   }

 private:
   class MoxPim : public Routing::Pim::Status::NotifieeConst {
    public:
      explicit MoxPim( ForwardingEngine& engine ) : engine_( engine ) {}
      void onIntf( const IntfId& intfId ) override {
         engine_.handlePimIntf( intfId );
      }

    private:
      ForwardingEngine& engine_;
   };

   ForwardingEngine& engine_;
   MoxPim pim_;
};

ForwardingEngine::ForwardingEngine( Mox::Ptr<Sm::Status> model, Hooks hooks )
   : model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     moxStatus_( std::make_unique<MoxStatus>( *this, *model_ ) ) {
   for ( const RouteKey& key : Mox::keysOf( model_->route() ) ) handleRoute( key );
}

ForwardingEngine::~ForwardingEngine() = default;

void ForwardingEngine::markGroup( const Group& group ) {
   mark( { Vantu::IpGenAddr::unspecified( group.family() ), group } );
   auto found = groups_.find( group );
   if ( found == groups_.end() ) return;
   for ( const auto& [source, reactor] : found->second )
      marked_.emplace( group, source );
}

void ForwardingEngine::markAll() {
   for ( const auto& [group, routes] : groups_ ) markGroup( group );
}

void ForwardingEngine::handleRoute( const RouteKey& key ) {
   const Sm::Route* route = model_->route( key );
   if ( route != nullptr ) {
      groups_[key.group][key.source] = std::make_unique<MoxRoute>( *this, *route );
      return;
   }
   auto group = groups_.find( key.group );
   if ( group == groups_.end() ) return;
   group->second.erase( key.source );
   if ( group->second.empty() ) {
      groups_.erase( group );
   } else if ( key.source.isUnspecified() ) {
      markGroup( key.group );
   }
}

void ForwardingEngine::handlePimIntf( const IntfId& intfId ) {
   const Routing::Pim::Intf* intf = model_->pimStatus()->intf( intfId );
   if ( intf == nullptr ) {
      pimIntfs_.erase( intfId );
   } else {
      auto& reactor = pimIntfs_[intfId];
      if ( reactor == nullptr ) reactor = std::make_unique<MoxPimIntf>( *this );
      reactor->notifierIs( intf );
   }
   markAll();
}

// A review's own writes may mark its route again; the next review then changes
// nothing.
bool ForwardingEngine::review( const std::function<bool()>& over ) {
   do {
      if ( round_.empty() ) round_.swap( marked_ );
      if ( round_.empty() ) return true;
      auto [group, source] = *round_.begin();
      round_.erase( round_.begin() );
      hooks_.reviewed( { source, group } );
      Mox::Ptr<Sm::Route> route = model_->route( { source, group } );
      if ( route == nullptr ) continue;
      if ( !route->wildCard() )
         inheritRecords( *route, std::as_const( *route ).wc() );
      updateUpstream( *route );
      updateForwarding( *route );
   } while ( !over() );
   return !pending();
}

}
