// The writer's reactor on one model route: marks the keys that the route's changes
// concern. Private to the writer; its owner's change set outlives it.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "export/RouteBraneWriterSm.h"

namespace Routing::Pim::SparseMode::Brane {

class RouteBraneWriterSm::MoxRoute final : public SparseMode::Route::NotifieeConst {
 public:
   // Marks the route and all its interfaces.
   MoxRoute( RouteBraneWriterSm& writer, const SparseMode::Route& route )
      : writer_( writer ), key_( route.key() ), umh_( *this ), umhFrr_( *this ) {
      notifierIs( &route );
      umh_.notifierIs( route.umh() );
      umhFrr_.notifierIs( route.umhFrr() );
      mark();
      for ( const SparseMode::Intf& intf : route.routeIntf() ) {
         onRouteIntf( intf.intfId() );
      }
   }

   // The model has dropped the route.
   void handleRemoved() {
      mark();
      for ( const auto& each : intf_ ) markIntf( each.intfId );
   }

   void onRouteFlags() override { mark(); }
   void onUmh() override {
      umh_.notifierIs( notifier()->umh() );
      mark();
   }
   void onUmhFrr() override {
      umhFrr_.notifierIs( notifier()->umhFrr() );
      mark();
   }
   void onRouteIntf( const Vantu::IntfId& intfId ) override {
      const SparseMode::Intf* intf = notifier()->routeIntf( intfId );
      auto at = std::lower_bound(
         intf_.begin(), intf_.end(), intfId.hash(),
         []( const Reactor& a, size_t hash ) { return a.intfId.hash() < hash; } );
      const bool known = at != intf_.end() && at->intfId == intfId;
      if ( intf == nullptr ) {
         if ( known ) intf_.erase( at );
      } else {
         if ( !known )
            at = intf_.insert(
               at, { intfId, std::make_unique<MoxIntf>( *this, intfId ) } );
         at->intf->notifierIs( intf );
      }
      markIntf( intfId );
   }

 private:
   // umh and umhFrr differ in the values whose changes are marked.
   class MoxUmhFrr : public UpstreamInfo::NotifieeConst {
    public:
      explicit MoxUmhFrr( MoxRoute& route ) : route_( route ) {}
      void onRpf() override { route_.mark(); }
      void onRpfAttached() override { route_.mark(); }

    protected:
      MoxRoute& route_;
   };
   class MoxUmh : public MoxUmhFrr {
    public:
      using MoxUmhFrr::MoxUmhFrr;
      void onMbrIif() override { route_.mark(); }
      void onUpRptState() override { route_.mark(); }
   };
   class MoxIntf : public SparseMode::Intf::NotifieeConst {
    public:
      MoxIntf( MoxRoute& route, Vantu::IntfId intfId )
         : route_( route ), intfId_( intfId ) {}
      void onForward() override { route_.markIntf( intfId_ ); }

    private:
      MoxRoute& route_;
      Vantu::IntfId intfId_;
   };

   void mark() { writer_.changeSet_->routeIs( key_, true ); }
   void markIntf( Vantu::IntfId intfId ) {
      writer_.changeSet_->routeIntfIs( { key_, intfId }, true );
   }

   RouteBraneWriterSm& writer_;
   RouteKey key_;
   MoxUmh umh_;
   MoxUmhFrr umhFrr_;
   // In order of the interfaces' hashes: most routes have few, for which a table is
   // large.
   struct Reactor {
      Vantu::IntfId intfId;
      std::unique_ptr<MoxIntf> intf;
   };
   std::vector<Reactor> intf_;
};

}
