// The interfaces between which the kernel forwards, in one VRF and family: the
// number of each, and whether the kernel has it.
//
// Numbers are kept by name in the table `vif`, so that a restarted process gives
// each interface its number in the kernel's entries. The record is written before
// the kernel's vif: a record without a vif can be mended, a vif without a record
// would have an unknown interface.
#pragma once

#include <array>

#include "apps/mfib/KernelTable.h"
#include "apps/mfib/Links.h"
#include "published/MfibStatus.h"

namespace Forwarding {

class Vifs {
 public:
   // `trouble` gets lines for people. The kernel's table outlives this.
   using Trouble = std::function<void( const std::string& )>;
   Vifs( KernelTable& kernel, Mox::Ptr<Published::MfibStatus> tables,
         Trouble trouble );

   // Takes over the kernel's vifs as far as table and links agree with them.
   // Returns false when one does not agree: then entries may hold meaningless
   // numbers.
   bool adopt( const LinkTable& links );

   // Sets the wanted interfaces; the others go. At most 32: those beyond are
   // reported and left out.
   void namesIs( const std::vector<Vantu::IntfId>& names );

   // Asks for the register vif; once asked for, it stays. Its name here is the one that
   // routes use. Returns whether it has just come. Without it where 32 interfaces leave
   // no room.
   bool registersIs();
   bool registers() const { return isRegister( kRegisterVif ); }

   struct Changes {
      // They include vifs that the kernel removed and has again: it forgot them in
      // entries written meanwhile.
      VifSet numbers;
      bool up = false;  // some interface came up or went down
      bool any() const { return up || numbers.any(); }
   };
   // Gives the kernel the interfaces that exist and removes those that do not.
   Changes update( const LinkTable& links );

   // Can packets come in by it? True for the register vif.
   bool up( Vantu::IntfId name ) const;

   // Nothing for an interface that the kernel does not have.
   std::optional<unsigned> vif( Vantu::IntfId name ) const;
   std::optional<unsigned> vifOfIndex( uint32_t ifIndex ) const;
   // Empty for a number without an interface.
   Vantu::IntfId name( unsigned vif ) const;

   // Publishes the kernel's counters.
   void publishCounters();

 private:
   struct Slot {
      Vantu::IntfId name;
      uint32_t ifIndex = 0;  // 0: not in the kernel
      bool up = true;
      bool told = false;  // the missing interface was reported
   };

   bool isRegister( unsigned vif ) const;
   bool updateSlot( unsigned vif, uint32_t ifIndex );
   void publish( unsigned vif, const VifCounters& counters );
   void publish( const Published::MfibVif& record );

   KernelTable& kernel_;
   Mox::Ptr<Published::MfibStatus> tables_;
   Trouble trouble_;
   bool registersRefused_ = false;
   std::array<Slot, kMaxVifs> slots_;
};

}
