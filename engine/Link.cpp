#include "engine/Link.h"

#include <algorithm>

namespace Router {

using Vantu::IpGenAddr;

OwnHello Link::ownHello( const InterfaceConfig& config,
                         const std::vector<IpGenAddr>& own ) {
   return { own.front(), config.drPriority, config.propagationDelay,
            config.overrideInterval, config.joinSuppression };
}

Link::Link( Mox::Clock& clock, Sender& sender, const InterfaceConfig& config,
            const std::vector<IpGenAddr>& own, NeighborsObserver observer,
            const std::optional<HelloMachine::Kept>& kept )
   : sender_( sender ),
     config_( config ),
     own_( own ),
     neighbors_( clock, ownHello( config, own ), std::move( observer ) ),
     hello_( clock, sender, config.name ) {
   if ( kept ) hello_.adopt( *kept );
   hello_.configIs( config, own );
}

void Link::configIs( const InterfaceConfig& config,
                     const std::vector<IpGenAddr>& own ) {
   config_ = config;
   own_ = own;
   neighbors_.ownIs( ownHello( config, own ) );
   hello_.configIs( config, own );
}

bool Link::isOwn( const IpGenAddr& address ) const {
   return std::find( own_.begin(), own_.end(), address ) != own_.end();
}

bool Link::isOnLink( const IpGenAddr& address ) const {
   return std::any_of( config_.addresses.begin(), config_.addresses.end(),
                       [&]( const InterfaceAddress& each ) {
                          return each.subnet.contains( address );
                       } );
}

bool Link::send( const IpGenAddr& to, PimMessage::Body body ) {
   if ( !sender_.speaks() || config_.passive ) return true;
   hello_.handleSending( to );
   return sender_.send( { intfId(), address(), allPimRouters( address().family() ),
                          pimMessage( std::move( body ) ) } );
}

}
