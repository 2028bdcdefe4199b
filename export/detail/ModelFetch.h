// Fetches the part of a model that interface records are about to change.
//
// A record may find its route and that route's interfaces in cold memory. A caller that
// knows the coming keys names them here in their order, some 32 before their turn. Each
// step is done for `kBatch` keys at once, since address translations overlap only where
// nothing else is done between them. Changes nothing.
#pragma once

#include <array>

#include "model/Status.h"

namespace Routing::Pim::SparseMode::Brane {

class ModelFetch {
 public:
   explicit ModelFetch( const SparseMode::Status& model ) : model_( model ) {}

   void soon( const RouteIntfKey& key ) {
      keys_[told_++] = key;
      if ( told_ < kBatch ) return;
      told_ = 0;
      std::array<const SparseMode::Route*, kBatch> routes;
      for ( size_t i = 0; i < kBatch; ++i ) {
         // Interfaces of one route mostly come together.
         const bool same = i > 0 && keys_[i].routeKey == keys_[i - 1].routeKey;
         routes[i] =
            same ? routes[i - 1] : model_.route().likely( keys_[i].routeKey );
         if ( !same ) fetch( routes[i] );
      }
      for ( size_t i = 0; i < kBatch; ++i ) {
         if ( routes[i] ) routes[i]->routeIntf().prefetch( keys_[i].intfId );
      }
      for ( size_t i = 0; i < kBatch; ++i ) {
         if ( routes[i] ) fetch( routes[i]->routeIntf().likely( keys_[i].intfId ) );
      }
   }

 private:
   static constexpr size_t kBatch = 16;

   static void fetch( const SparseMode::Route* route ) {
      if ( route == nullptr ) return;
      Mox::prefetch( route, sizeof( Mox::Entity ) + sizeof( RouteKey ) );
      Mox::prefetch( &route->routeIntf(), sizeof( RouteIntfMap ) );
   }
   static void fetch( const SparseMode::Intf* intf ) {
      if ( intf != nullptr ) Mox::prefetch( intf, sizeof *intf );
   }

   const SparseMode::Status& model_;
   std::array<RouteIntfKey, kBatch> keys_;
   size_t told_ = 0;
};

}
