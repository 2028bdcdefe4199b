// Follows the routes of the VRF "default" in an agent's tables, on any loop that
// turns `loop`. Prints a line for each route that changes, and says when the agent
// goes and comes back.
#pragma once

#include <iostream>
#include <set>

#include <pimsm/pimsm.h>

namespace Sm = Routing::Pim::SparseMode;

class Following {
 public:
   // `loop` outlives this.
   // [mount]
   Following( Mox::Loop& loop, const std::string& root )
      : clock_( loop ),
        manager_( clock_, &loop, root ),
        vrf_( manager_, clock_, Vantu::AddressFamily::ipv4,
              L3::VrfName( "default" ), observer() ),
        turnEnd_( loop, [this] { handleTurnEnd(); } ) {}
   // [mount]

 private:
   // [observer]
   Sm::VrfMirror::Observer observer() {
      Sm::VrfMirror::Observer observer;
      observer.route = [this]( const auto& key, const auto*, const auto* ) {
         changed_.insert( key );
      };
      observer.routeIntf = [this]( const auto& key, const auto*, const auto* ) {
         changed_.insert( key.routeKey );
      };
      // The routes stay while the agent is away.
      observer.writer = []( bool alive ) {
         std::cout << ( alive ? "the agent runs" : "the agent has gone" )
                   << std::endl;
      };
      return observer;
   }

   void handleTurnEnd() {
      vrf_.handleTurnEnd();
      for ( const auto& key : std::exchange( changed_, {} ) ) tellRoute( key );
      std::cout.flush();
   }
   // [observer]

   void tellRoute( const Routing::Pim::RouteKey& key ) const {
      const Sm::Route* route = vrf_.model()->route( key );
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

   // The last one is destroyed first.
   Mox::RealClock clock_;
   Corvex::EntityManager manager_;
   std::set<Routing::Pim::RouteKey> changed_;
   Sm::VrfMirror vrf_;
   Mox::Loop::TurnEnd turnEnd_;
};
