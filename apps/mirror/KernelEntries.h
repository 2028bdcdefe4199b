// The kernel's multicast entries, compared with the tables that the forwarding process
// makes them from. Event-loop thread only.
//
// Not compared: what the forwarding process adds by itself, and interfaces that it does
// not forward by. A change of the tables reaches the kernel within two seconds: what
// differs once may be on its way.
#pragma once

#include <unordered_map>

#include "apps/mirror/Host.h"

namespace Show {

// What the kernel's entry does by an interface, and the route in the tables does not, or
// the reverse.
struct EntryDifference {
   enum Kind {
      sends,  // the kernel sends out by it, the table does not
      lacks,  // the table does, the kernel does not
      takes   // the kernel takes packets from it; the table from another
   };
   Kind kind;
   Vantu::IntfId intfId;  // empty: one that has gone
   // The configuration has a boundary there, which may bar the route.
   bool bounded = false;
};

// What is read of the mirror, interfaces and settings, is a copy of the moment.
class KernelEntries {
 public:
   // Both outlive this.
   KernelEntries( const Mirror& mirror, const Host::Entries& entries );

   // The entry of the mirror's VRF; null: there is none or, without the table's number,
   // the interfaces that tell whose it is are not known.
   const Host::Entry* find( const Routing::Pim::RouteKey& key ) const;
   // Is there one of any VRF, which may be this mirror's?
   bool mayHave( const Routing::Pim::RouteKey& key ) const;

   // In order of interface.
   std::vector<EntryDifference> differences(
      const Routing::Pim::SparseMode::Route& route,
      const Host::Entry& entry ) const;

   // "in eth0, out eth1, eth3", without what the forwarding process adds.
   std::string text( const Routing::Pim::SparseMode::Route& route,
                     const Host::Entry& entry ) const;

 private:
   using Indexes = std::set<uint32_t>;

   uint32_t indexOf( Vantu::IntfId intfId ) const;
   Vantu::IntfId nameOf( uint32_t index ) const;
   bool isOurs( const Host::Entry& entry ) const;
   bool isBounded( Vantu::IntfId intfId ) const;
   Indexes outgoing( const Routing::Pim::SparseMode::Route& route,
                     const Host::Entry& entry ) const;
   Indexes wanted( const Routing::Pim::SparseMode::Route& route,
                   bool byBackup ) const;

   const Host::Entries& entries_;
   std::optional<uint32_t> table_;  // the kernel's; nothing: not known
   std::unordered_map<Vantu::IntfId, uint32_t> indexes_;
   std::unordered_map<uint32_t, Vantu::IntfId> names_;
   std::string boundaries_;  // names between blanks
};

}
