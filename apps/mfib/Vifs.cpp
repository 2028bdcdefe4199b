#include "apps/mfib/Vifs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "engine/Routes.h"

namespace Forwarding {

using Published::MfibVif;
using Vantu::IntfId;

Vifs::Vifs( KernelTable& kernel, Mox::Ptr<Published::MfibStatus> tables,
            Trouble trouble )
   : kernel_( kernel ),
     tables_( std::move( tables ) ),
     trouble_( std::move( trouble ) ) {}

bool Vifs::adopt( const LinkTable& links ) {
   bool agrees = true;
   std::vector<MfibVif> records;
   tables_->vif().visit( [&]( const MfibVif& record ) {
      records.push_back( record );
      return true;
   } );
   for ( const MfibVif& record : records ) {
      if ( record.vif >= kMaxVifs || !slots_[record.vif].name.empty() ) {
         tables_->vifDel( record.key );
         continue;
      }
      Slot& slot = slots_[record.vif];
      slot.name = record.key;
      // Entries may still name a vif that went, if the update of entries was cut
      // short.
      const uint32_t index = isRegister( record.vif ) ? kernel_.registerIndex()
                                                      : links.index( record.key );
      bool stands = record.ifIndex != 0 && kernel_.vif( record.vif ).has_value() &&
                    index == record.ifIndex;
      if ( stands ) slot.ifIndex = record.ifIndex;
      agrees = agrees && stands;
   }
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      if ( slots_[vif].ifIndex != 0 || !kernel_.vif( vif ) ) continue;
      kernel_.vifDel( vif );
      agrees = false;
   }
   return agrees;
}

void Vifs::namesIs( const std::vector<IntfId>& names ) {
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      Slot& slot = slots_[vif];
      if ( slot.name.empty() || isRegister( vif ) ||
           std::find( names.begin(), names.end(), slot.name ) != names.end() )
         continue;
      if ( slot.ifIndex != 0 ) kernel_.vifDel( vif );
      tables_->vifDel( slot.name );
      slot = {};
   }
   for ( IntfId name : names ) {
      auto is = [&]( IntfId wanted ) {
         return [=]( const Slot& slot ) { return slot.name == wanted; };
      };
      if ( std::any_of( slots_.begin(), slots_.end(), is( name ) ) ) continue;
      auto free = std::find_if( slots_.begin(), slots_.end(), is( IntfId() ) );
      if ( free == slots_.end() ) {
         trouble_(
            fmt::format( "{} is left out: the kernel forwards between {} "
                         "interfaces of a table at most",
                         name.name(), kMaxVifs ) );
         continue;
      }
      free->name = name;
   }
}

bool Vifs::isRegister( unsigned vif ) const {
   return vif == kRegisterVif && slots_[vif].name == Router::registerIntf();
}

bool Vifs::registersIs() {
   Slot& slot = slots_[kRegisterVif];
   if ( registers() && slot.ifIndex != 0 ) return false;
   if ( registersRefused_ ) return false;
   int error = ENOSPC;
   if ( slot.name.empty() || registers() ) {
      slot.name = Router::registerIntf();
      error = kernel_.registerVifIs();
   }
   if ( error == 0 ) slot.ifIndex = kernel_.registerIndex();
   registersRefused_ = slot.ifIndex == 0;
   if ( registersRefused_ )
      trouble_( fmt::format( "cannot send or take registers: {}",
                             std::strerror( error ) ) );
   if ( registers() ) publish( kRegisterVif, {} );
   return !registersRefused_;
}

Vifs::Changes Vifs::update( const LinkTable& links ) {
   Changes changed;
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      Slot& slot = slots_[vif];
      if ( slot.name.empty() || isRegister( vif ) ) continue;
      const uint32_t index = links.index( slot.name );
      const bool up = links.up( index );
      changed.up |= std::exchange( slot.up, up ) != up;
      changed.numbers[vif] = updateSlot( vif, index );
   }
   return changed;
}

bool Vifs::updateSlot( unsigned vif, uint32_t ifIndex ) {
   Slot& slot = slots_[vif];
   if ( ifIndex == 0 && !slot.told )
      trouble_( fmt::format( "there is no interface {} yet", slot.name.name() ) );
   slot.told = ifIndex == 0;
   // The kernel removes a vif by itself when its interface goes, and some of those
   // events may be missed. It does not when another interface takes the name.
   const bool stands = ifIndex == 0 || kernel_.vif( vif ).has_value();
   if ( slot.ifIndex == ifIndex && stands ) return false;
   if ( slot.ifIndex != 0 ) kernel_.vifDel( vif );
   slot.ifIndex = ifIndex;
   publish( vif, {} );
   if ( ifIndex == 0 ) return true;
   if ( int error = kernel_.vifIs( vif, ifIndex ) ) {
      trouble_( fmt::format( "cannot forward with {}: {}", slot.name.name(),
                             std::strerror( error ) ) );
      slot.ifIndex = 0;
      publish( vif, {} );
   }
   return true;
}

bool Vifs::up( IntfId name ) const {
   const std::optional<unsigned> found = vif( name );
   return found && slots_[*found].up;
}

std::optional<unsigned> Vifs::vif( IntfId name ) const {
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      if ( slots_[vif].ifIndex != 0 && slots_[vif].name == name ) return vif;
   }
   return std::nullopt;
}

std::optional<unsigned> Vifs::vifOfIndex( uint32_t ifIndex ) const {
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      if ( ifIndex != 0 && slots_[vif].ifIndex == ifIndex ) return vif;
   }
   return std::nullopt;
}

IntfId Vifs::name( unsigned vif ) const {
   return vif < kMaxVifs ? slots_[vif].name : IntfId();
}

void Vifs::publishCounters() {
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      if ( slots_[vif].ifIndex == 0 ) continue;
      if ( auto counters = kernel_.vif( vif ) ) publish( vif, *counters );
   }
}

void Vifs::publish( unsigned vif, const VifCounters& counters ) {
   const Slot& slot = slots_[vif];
   publish( { slot.name, vif, slot.ifIndex, counters.packetsIn, counters.bytesIn,
              counters.packetsOut, counters.bytesOut } );
}

void Vifs::publish( const MfibVif& record ) {
   MfibVif standing;
   if ( tables_->vif().find( record.key, standing ) != Brane::lookupFound ||
        !( standing == record ) )
      tables_->vifIs( record );
}

}
