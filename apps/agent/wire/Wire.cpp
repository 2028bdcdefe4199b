#include "apps/agent/wire/Wire.h"

#include <fmt/format.h>

#include <system_error>

namespace Agent {

Wire::Wire( Mox::Loop& loop, Mox::Clock& clock,
            std::function<void( const std::string& )> note,
            Mox::Loop::Function linksChanged )
   : loop_( loop ),
     clock_( clock ),
     note_( std::move( note ) ),
     links_( loop, [this, linksChanged = std::move( linksChanged )] {
        closeGone();
        linksChanged();
     } ) {}

void Wire::hear( Vantu::AddressFamily family, const UnicastHearing::Heard& heard ) {
   if ( hearing_.count( family ) != 0 ) return;
   try {
      hearing_.try_emplace( family, loop_, family, heard );
   } catch ( const std::system_error& e ) {
      note_( fmt::format( "registers are not heard in {}: {}",
                          Vantu::valueToStrep( family ), e.what() ) );
   }
}

bool Wire::send( const L3::VrfName& vrf, const std::string& device,
                 const Router::Outgoing& message ) {
   const Way way{ device, message.destination.family() };
   uint32_t index = 0;
   if ( !device.empty() ) {
      const HostLink* link = links().find( device );
      if ( link == nullptr || !link->up ) return false;
      index = links().index( device );
   }
   try {
      sockets( way, index ).send( message );
      counters_.sent( vrf, message );
      return true;
   } catch ( const std::system_error& e ) {
      note( way, e.what() );
      return false;
   }
}

// An interface that was made anew has another index.
LinkSockets& Wire::sockets( const Way& way, uint32_t index ) {
   const auto found = sockets_.find( way );
   if ( found != sockets_.end() && found->second.index() == index )
      return found->second;
   if ( found != sockets_.end() ) sockets_.erase( found );
   return sockets_.try_emplace( way, way.family, way.device, index ).first->second;
}

void Wire::closeGone() {
   std::erase_if( sockets_, [this]( const auto& each ) {
      return each.second.index() != links().index( each.first.device );
   } );
}

void Wire::note( const Way& way, const std::string& why ) {
   const auto [at, isFirst] = noted_.try_emplace( way, clock_.now() );
   if ( !isFirst && clock_.now() - at->second < noteInterval ) return;
   at->second = clock_.now();
   note_( fmt::format( "{}: cannot send in {}: {}",
                       way.device.empty() ? "unicast" : way.device,
                       Vantu::valueToStrep( way.family ), why ) );
}

}
