// The interfaces between which the kernel forwards, of one VRF and family: which number
// each has, and whether the kernel knows it.
//
// Numbers are kept by name in the table `vif`, so that a process that starts again gives
// each interface the number that it has in the kernel's entries. The record is written
// before the kernel is told: a record without a vif is mended, a vif without a record
// would have an unknown interface.
#pragma once

#include <array>

#include "apps/mfib/KernelTable.h"
#include "apps/mfib/Links.h"
#include "published/MfibStatus.h"

namespace Forwarding {

class Vifs {
 public:
   // `trouble` takes lines for people. The kernel's table outlives this.
   using Trouble = std::function<void( const std::string& )>;
   Vifs( KernelTable& kernel, Mox::Ptr<Published::MfibStatus> tables,
         Trouble trouble );

   // Takes up what the kernel already has, as far as table and links agree with it.
   // False: something did not agree, and entries may name numbers that mean nothing.
   bool adopt( const LinkTable& links );

   // The interfaces to have; the others go. At most 32: those beyond are told of and
   // left out.
   void namesIs( const std::vector<Vantu::IntfId>& names );

   // Gives the kernel those that exist and takes back those that do not. The numbers that
   // changed, also those that the kernel took back and has again: it forgot them in
   // entries that were written meanwhile.
   VifSet update( const LinkTable& links );

   // Nothing for an interface that the kernel does not forward with.
   std::optional<unsigned> vif( Vantu::IntfId name ) const;
   std::optional<unsigned> vifOfIndex( uint32_t ifIndex ) const;
   // The empty name for a number without one.
   Vantu::IntfId name( unsigned vif ) const;

   // Publishes the kernel's counters.
   void publishCounters();

 private:
   struct Slot {
      Vantu::IntfId name;
      uint32_t ifIndex = 0;  // 0: not in the kernel
      bool told = false;     // that there is no such interface
   };

   bool updateSlot( unsigned vif, uint32_t ifIndex );
   void publish( unsigned vif, const VifCounters& counters );
   void publish( const Published::MfibVif& record );

   KernelTable& kernel_;
   Mox::Ptr<Published::MfibStatus> tables_;
   Trouble trouble_;
   std::array<Slot, kMaxVifs> slots_;
};

}
