// Follows the routes of the VRF "default" in an agent's tables, on whatever loop turns
// `loop`: prints a line for each route that changes, and says when the agent has gone
// and when one is back.
#pragma once

#include <iostream>
#include <set>

#include "export/RouteBraneRestartSm.h"
#include "platform/loop/RealClock.h"

namespace Sm = Routing::Pim::SparseMode;

class Following : public Sm::Brane::Status::NotifieeConst {
 public:
   // `loop` outlives this.
   // [mount]
   Following( Mox::Loop& loop, const std::string& root )
      : clock_( loop ),
        manager_( clock_, &loop, root ),
        model_( Sm::statusFactory( L3::VrfName( "default" ) ) ),
        tables_( Sm::Brane::Status::mountInDependencyOrder(
           manager_,
           Sm::Brane::Status::mountPath( Vantu::AddressFamily::ipv4,
                                         model_->vrfName() ),
           Brane::tableReader, nullptr ) ),
        // This one keeps the model in step, the next loads what is there now.
        reader_( Sm::Brane::routeBraneReaderSmFactory( model_, tables_ ) ),
        restart_( Sm::Brane::routeBraneRestartSmFactory(
           model_, tables_, Brane::tableReader, &clock_ ) ),
        turnEnd_( loop, [this] { tell(); } ) {
      notifierIs( tables_.get() );
   }
   // [mount]

   // [hooks]
   // A hook only notes the key: at the end of the turn everything is in its place.
   void onRoute( const Routing::Pim::RouteKey& key ) override {
      changed_.insert( key );
   }
   void onRouteIntf( const Routing::Pim::RouteIntfKey& key ) override {
      changed_.insert( key.routeKey );
   }
   // [hooks]
   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;

 private:
   // [tell]
   void tell() {
      tellAgent();
      if ( !model_->initialized() ) return;
      if ( !std::exchange( loaded_, true ) ) {
         for ( const Sm::Route& route : model_->route() )
            changed_.insert( route.key() );
      }
      for ( const auto& key : std::exchange( changed_, {} ) ) tellRoute( key );
      std::cout.flush();
   }

   // The routes stay while the agent is away.
   void tellAgent() {
      const bool runs = tables_->route().writerAlive();
      if ( runs == agentRuns_ ) return;
      agentRuns_ = runs;
      std::cout << ( runs ? "the agent runs" : "the agent has gone" ) << std::endl;
   }
   // [tell]

   void tellRoute( const Routing::Pim::RouteKey& key ) const {
      const Sm::Route* route = model_->route( key );
      if ( route == nullptr ) {
         std::cout << key << " removed\n";
         return;
      }
      std::set<Vantu::IntfId> out;
      for ( const Sm::Intf& intf : route->routeIntf() ) {
         if ( intf.forward() ) out.insert( intf.intfId() );
      }
      std::cout << key << " from " << route->rpf() << " to";
      for ( const Vantu::IntfId& id : out ) std::cout << " " << id.name();
      std::cout << ( out.empty() ? " none\n" : "\n" );
   }

   // In this order: what is made last goes first.
   Mox::RealClock clock_;
   Corvex::EntityManager manager_;
   Mox::Ptr<Sm::Status> model_;
   Mox::Ptr<Sm::Brane::Status> tables_;
   Mox::Ptr<Sm::Brane::RouteBraneReaderSm> reader_;
   Mox::Ptr<Sm::Brane::RouteBraneRestartSm> restart_;
   std::set<Routing::Pim::RouteKey> changed_;
   bool loaded_ = false;
   bool agentRuns_ = false;
   Mox::Loop::TurnEnd turnEnd_;
};
