#include "engine/ForwardingEngine.h"

#include <algorithm>
#include <tuple>

#include "engine/RecordState.h"
#include "model/ForwardingDesired.h"

namespace Router {

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::RouteKey;
using Sm::Intf;
using Vantu::IntfId;

namespace {

// Calls `changed` for the interfaces whose fastForward differs, `forwards` for those
// whose forward does.
template <class Changed, class Forwards>
void updateForwarding( Sm::Route& route, Changed changed, Forwards forwards ) {
   const Mox::Ptr<Sm::Route> shared = route.wc();
   for ( Intf& intf : route.routeIntf() ) {
      const Sm::ForwardingDesired desired =
         Sm::forwardingDesired( intf, shared.get() );
      if ( desired.forward != intf.forward() ) {
         intf.forwardIs( desired.forward );
         forwards( intf.intfId(), desired.forward );
      }
      if ( desired.fastForward == intf.fastForward() ) continue;
      intf.fastForwardIs( desired.fastForward );
      changed( intf.intfId() );
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
      if ( isBare( intf, shared ) ) gone.push_back( intf.intfId() );
   }
   for ( IntfId intfId : gone ) route.routeIntfDel( intfId );
}

// By group, a (*,G) route before its group's (S,G) routes.
bool before( const RouteKey& a, const RouteKey& b ) {
   return std::tie( a.group, a.source ) < std::tie( b.group, b.source );
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
      mark();
   }

   const RouteKey& key() const { return key_; }

   void onRouteFlags() override { mark(); }
   void onIifSwitchState() override {
      mark();
      changed();
   }
   // Watched on (*,G) routes only: other routes' macros do not read it.
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
   void onRouteIntf( const IntfId& ) override { mark(); }

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
   void changed( IntfId intfId = {} ) { engine_.hooks_.changed( key_, intfId ); }
   void mark() { engine_.handleRecord( key_ ); }

   ForwardingEngine& engine_;
   RouteKey key_;
   MoxUmh umh_;
   MoxUmh umhFrr_;
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

template <class A, class B>
bool ForwardingEngine::ByGroup::operator()( const A& a, const B& b ) const {
   const auto keyOf = []( const auto& x ) -> const RouteKey& {
      if constexpr ( std::is_same_v<std::decay_t<decltype( x )>, RouteKey> ) {
         return x;
      } else {
         return x->key();
      }
   };
   return before( keyOf( a ), keyOf( b ) );
}

ForwardingEngine::ForwardingEngine( Mox::Ptr<Sm::Status> model, Hooks hooks )
   : model_( std::move( model ) ),
     hooks_( std::move( hooks ) ),
     moxStatus_( std::make_unique<MoxStatus>( *this, *model_ ) ) {
   for ( const RouteKey& key : Mox::keysOf( model_->route() ) ) handleRoute( key );
}

ForwardingEngine::~ForwardingEngine() = default;

void ForwardingEngine::mark( const RouteKey& key ) {
   marked_.insert( key );
}

void ForwardingEngine::markGroup( const Group& group ) {
   const RouteKey first{ Vantu::IpGenAddr::unspecified( group.family() ), group };
   mark( first );
   for ( auto each = routes_.lower_bound( first );
         each != routes_.end() && ( *each )->key().group == group; ++each )
      mark( ( *each )->key() );
}

void ForwardingEngine::markAll() {
   for ( const auto& reactor : routes_ ) mark( reactor->key() );
}

// The group's (S,G) routes read the (*,G) route, so they are marked as well.
void ForwardingEngine::handleRecord( const RouteKey& key ) {
   if ( key.source.isUnspecified() ) return markGroup( key.group );
   mark( key );
}

void ForwardingEngine::handleRoute( const RouteKey& key ) {
   const Sm::Route* route = model_->route( key );
   const auto former = routes_.find( key );
   if ( former != routes_.end() ) routes_.erase( former );
   if ( route == nullptr ) return handleRecord( key );
   routes_.insert( std::make_unique<MoxRoute>( *this, *route ) );
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

// A round takes the routes marked at its beginning.
std::optional<RouteKey> ForwardingEngine::next() {
   if ( round_.empty() ) {
      round_.assign( marked_.begin(), marked_.end() );
      marked_.clear();
      std::sort(
         round_.begin(), round_.end(),
         []( const RouteKey& a, const RouteKey& b ) { return before( b, a ); } );
   }
   if ( round_.empty() ) return std::nullopt;
   const RouteKey key = round_.back();
   round_.pop_back();
   if ( round_.empty() ) round_ = {};  // a VRF may be idle for long
   return key;
}

// A review's own writes may mark its route again; the next review then changes
// nothing.
bool ForwardingEngine::review( const std::function<bool()>& over ) {
   do {
      const std::optional<RouteKey> key = next();
      if ( !key ) return true;
      hooks_.reviewed( *key );
      Mox::Ptr<Sm::Route> route = model_->route( *key );
      if ( route == nullptr ) {
         hooks_.decided( *key );
         continue;
      }
      if ( !route->wildCard() )
         inheritRecords( *route, std::as_const( *route ).wc() );
      updateUpstream( *route );
      hooks_.decided( *key );
      updateForwarding(
         *route, [&]( const IntfId& intfId ) { hooks_.changed( *key, intfId ); },
         [&]( const IntfId& intfId, bool forward ) {
            hooks_.forwards( *key, intfId, forward );
         } );
   } while ( !over() );
   return !pending();
}

}
