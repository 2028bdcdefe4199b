// An agent with one engine: the downstream (*,G) state of joins and prunes (RFC
// 7761, 4.5.1), which come as lines of text instead of packets:
//
//    join GROUP INTERFACE HOLDTIME        prune GROUP INTERFACE
//
// Every RP is behind eth0. Ends with its input; its tables stay, and the next run
// continues with them. usage: agent-skeleton [DIRECTORY OF THE TABLES]
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <sstream>

#include <pimsm/pimsm.h>

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;
using Vantu::IntfId;

// [engine]
// Writes the model's routes and join states; keeps only their expiry times to
// itself.
class JoinEngine : public Mox::Clock::Notifiee {
 public:
   static constexpr double defaultHoldTime = 210;  // s; RFC 7761, 4.11

   JoinEngine( Mox::Clock* clock, Mox::Ptr<Sm::Status> model )
      : Notifiee( clock ), model_( std::move( model ) ) {}

   // A reloaded state has no remaining time: its hold time starts anew.
   void adopt() {
      for ( const Sm::Route& route : model_->route() ) {
         for ( const Sm::Intf& intf : route.routeIntf() )
            expiresIs( { route.key(), intf.intfId() }, defaultHoldTime );
      }
   }

   void join( const RouteIntfKey& key, double holdTime ) {
      Mox::Ptr<Sm::Route> route = model_->route( key.routeKey );
      if ( route == nullptr ) route = newRoute( key.routeKey );
      Mox::Ptr<Sm::Intf> intf = route->routeIntfIs( key.intfId );
      intf->joinStateIs( Sm::Intf::joined );
      intf->lastJoinReceivedIs( clock()->now() );
      intf->initializedIs( true );
      expiresIs( key, holdTime );
      review( *route );
   }

   void prune( const RouteIntfKey& key ) {
      expires_.erase( key );
      Mox::Ptr<Sm::Route> route = model_->route( key.routeKey );
      if ( route == nullptr ) return;
      route->routeIntfDel( key.intfId );
      review( *route );
      if ( route->routeIntf().size() == 0 ) model_->routeDel( key.routeKey );
   }

   void onTime() override {
      std::vector<RouteIntfKey> due;
      for ( const auto& [key, time] : expires_ ) {
         if ( time <= clock()->now() ) due.push_back( key );
      }
      for ( const RouteIntfKey& key : due ) prune( key );
      wakeUp();
   }
   // [engine]

 private:
   // [review]
   Mox::Ptr<Sm::Route> newRoute( const RouteKey& key ) {
      Mox::Ptr<Sm::Route> route = model_->routeIs( key );
      route->wildCardIs( true );
      route->rpTreeIs( true );
      route->creationTimeIs( clock()->now() );
      route->umhIs()->rpfIs(
         { IntfId( "eth0" ), Vantu::IpGenAddr( "192.0.2.1" ), 110, { 20 } } );
      route->initializedIs( true );
      return route;
   }

   // The protocol's macros decide; the engine only calls them.
   static void review( Sm::Route& route ) {
      for ( Sm::Intf& intf : route.routeIntf() )
         intf.forwardIs( intf.forwardDesired() );
      route.upJoinStateIs( route.joinDesiredWc() ? Sm::upJoined : Sm::upNotJoined );
   }
   // [review]

   void expiresIs( const RouteIntfKey& key, double holdTime ) {
      expires_[key] = clock()->now() + holdTime;
      wakeUp();
   }
   void wakeUp() {
      double next = Mox::Clock::never;
      for ( const auto& [key, time] : expires_ ) next = std::min( next, time );
      wakeupTimeIs( next );
   }

   Mox::Ptr<Sm::Status> model_;
   std::map<RouteIntfKey, double> expires_;
};

// Throws Mox::Error for an invalid address.
void receive( JoinEngine& engine, const std::string& line ) {
   std::istringstream words( line );
   std::string what, group, intf;
   words >> what >> group >> intf;
   RouteIntfKey key{ { Vantu::IpGenAddr( "0.0.0.0" ), Vantu::IpGenAddr( group ) },
                     IntfId( intf ) };
   double holdTime = 0;
   const bool sound = key.routeKey.group.isMulticast() && !intf.empty() &&
                      key.routeKey.group.family() == Vantu::AddressFamily::ipv4;
   if ( sound && what == "join" && words >> holdTime )
      return engine.join( key, holdTime );
   if ( sound && what == "prune" ) return engine.prune( key );
   std::cerr << "agent-skeleton: not understood: " << line << '\n';
}

// Handles the whole lines that have arrived; returns false at the end of input.
bool readLines( JoinEngine& engine, std::string& rest ) {
   char buffer[4096];
   ssize_t count = read( STDIN_FILENO, buffer, sizeof buffer );
   if ( count <= 0 ) return false;
   rest.append( buffer, static_cast<size_t>( count ) );
   for ( size_t end; ( end = rest.find( '\n' ) ) != std::string::npos; ) {
      try {
         receive( engine, rest.substr( 0, end ) );
      } catch ( const Mox::Error& e ) {
         std::cerr << "agent-skeleton: " << e.what() << '\n';
      }
      rest.erase( 0, end + 1 );
   }
   return true;
}

int main( int argc, char** argv ) try {
   // [start]
   Mox::Loop loop;
   Mox::RealClock clock( loop );
   Corvex::EntityManager manager(
      clock, &loop, argc > 1 ? argv[1] : Corvex::EntityManager::defaultRoot );
   // The model, its tables with this capacity, and the reactors that keep the
   // tables in step with the model.
   Sm::VrfWriter vrf( manager, clock, Vantu::AddressFamily::ipv4,
                      L3::VrfName( "default" ), { 1000, 10000 } );
   JoinEngine engine( &clock, vrf.model() );

   // Packets are handled only after the reload.
   while ( !vrf.ready() ) loop.dispatch();
   engine.adopt();
   std::cout << "ready with " << vrf.model()->route().size() << " routes"
             << std::endl;
   // [start]

   // [run]
   bool ending = false;
   std::string rest;
   Mox::Loop::FdWatcher input( loop, STDIN_FILENO, [&] {
      ending = !readLines( engine, rest );
      if ( ending ) input.readWantedIs( false );
   } );
   // Publishes the turn's changes. At the end the loop stops once all are
   // published.
   Mox::Loop::TurnEnd turnEnd( loop, [&] {
      vrf.handleTurnEnd();
      if ( ending && vrf.idle() ) loop.stop();
   } );
   loop.run();
   // [run]
} catch ( const std::exception& e ) {
   std::cerr << "agent-skeleton: " << e.what() << '\n';
   return 1;
}
