#include "engine/Links.h"

#include <set>
#include <utility>

namespace Router {

using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// The interface's addresses of the family; none while it is not up.
std::vector<InterfaceAddress> addressesOf( const InterfaceConfig& interface,
                                           Vantu::AddressFamily family ) {
   if ( !interface.up ) return {};
   std::vector<InterfaceAddress> addresses = interface.addresses;
   std::erase_if( addresses, [family]( const InterfaceAddress& each ) {
      return each.address.family() != family;
   } );
   return addresses;
}

}

Links::Links( Vantu::AddressFamily family, const VrfConfig& config,
              Mox::Ptr<Routing::Pim::Status> pimStatus, Mox::Clock& clock,
              Sender& sender, Observer observer )
   : family_( family ),
     config_( config ),
     pimStatus_( std::move( pimStatus ) ),
     clock_( clock ),
     sender_( sender ),
     observer_( std::move( observer ) ) {}

void Links::start( const Kept& kept ) {
   update( kept );
}

Link* Links::find( IntfId intfId ) {
   auto found = byId_.find( intfId );
   return found == byId_.end() ? nullptr : found->second;
}
const Link* Links::find( IntfId intfId ) const {
   return const_cast<Links*>( this )->find( intfId );
}

void Links::update( const Kept& kept ) {
   std::set<IntfId> gone;
   for ( const auto& [intfId, link] : links_ ) gone.insert( intfId );
   for ( const InterfaceConfig& interface : config_.interfaces ) {
      const std::vector<InterfaceAddress> addresses =
         addressesOf( interface, family_ );
      if ( addresses.empty() ) continue;
      gone.erase( interface.name );
      updateLink( interface, addresses, kept );
   }
   for ( IntfId intfId : gone ) remove( intfId );
}

// PIM uses the first address.
void Links::updateLink( const InterfaceConfig& interface,
                        const std::vector<InterfaceAddress>& addresses,
                        const Kept& kept ) {
   const IntfId name = interface.name;
   std::vector<IpGenAddr> own;
   own.reserve( addresses.size() );
   for ( const InterfaceAddress& each : addresses ) own.push_back( each.address );
   // Who was its neighbour need not be any more, and does not know the new one.
   const Link* former = find( name );
   if ( former != nullptr && former->config().index != interface.index )
      forget( name );
   pimStatus_->intfIs( name )->addrIs(
      { own.front(), static_cast<uint8_t>( addresses.front().subnet.length() ) } );
   if ( Link* link = find( name ) ) return link->configIs( interface, own );
   NeighborsObserver observer;
   observer.changed = [this, name] { updateDr( name ); };
   observer.event = [this, name]( const IpGenAddr& address, NeighborEvent event ) {
      HelloMachine& hello = links_.at( name ).hello();
      if ( event == NeighborEvent::gone ) {
         hello.handleGone( address );
      } else if ( event != NeighborEvent::moved ) {
         hello.handleNew( address );
      }
      observer_.neighbor( name, address, event );
   };
   const auto made = links_.try_emplace( name, clock_, sender_, interface, own,
                                         std::move( observer ),
                                         kept ? kept( name ) : std::nullopt );
   byId_.emplace( name, &made.first->second );
   observer_.came( name );
   updateDr( name );
}

void Links::remove( IntfId intfId ) {
   links_.at( intfId ).hello().sayGoodbye();
   forget( intfId );
}

void Links::forget( IntfId intfId ) {
   std::vector<IpGenAddr> neighbors;
   for ( const auto& [address, neighbor] : links_.at( intfId ).neighbors().all() )
      neighbors.push_back( address );
   byId_.erase( intfId );
   links_.erase( intfId );
   observer_.gone( intfId, neighbors );
   drs_.erase( intfId );
   pimStatus_->intfDel( intfId );
}

void Links::updateDr( IntfId intfId ) {
   const Neighbors& neighbors = links_.at( intfId ).neighbors();
   pimStatus_->intfIs( intfId )->iAmDrIs( neighbors.iAmDr() );
   const IpGenAddr former = std::exchange( drs_[intfId], neighbors.dr() );
   if ( former != neighbors.dr() ) observer_.dr( intfId, former, neighbors.dr() );
   observer_.changed();
}

void Links::sayGoodbye() {
   for ( auto& [intfId, link] : links_ ) link.hello().sayGoodbye();
}

}
