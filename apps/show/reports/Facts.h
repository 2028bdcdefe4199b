// What every question to one mirror asks for, read once for all of them: a copy of the
// moment. Event-loop thread only.
#pragma once

#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "apps/mirror/KernelEntries.h"
#include "apps/mirror/Rps.h"
#include "apps/show/reports/Why.h"

namespace Show {

class Facts {
 public:
   // Both outlive this.
   Facts( const Mirror& mirror, const Evidence& evidence );

   const Mirror& mirror() const { return mirror_; }
   const Evidence& evidence() const { return evidence_; }
   const Rps& rps() const { return rps_; }
   // Is the agent a router, not only a listener? Passive interfaces say no hello.
   bool speaks() const { return speaks_; }
   // How often the kernel's counters are published; see counterInterval().
   std::optional<double> counterInterval() const { return counterInterval_; }

   // Of the agent's host; nothing: this is another one, or it does not tell.
   const Host::Link* link( Vantu::IntfId intfId ) const;
   bool knowsLinks() const { return here_ && evidence_.host.links; }
   const KernelEntries* kernel() const { return kernel_ ? &*kernel_ : nullptr; }

   // The neighbor that has the address, as its first or another one. False: none has.
   bool neighbor( Vantu::IntfId intfId, const Vantu::IpGenAddr& address,
                  Published::Neighbor& out ) const;

   // The event of the group and interface that `wanted` accepts and that came last; null:
   // none. Without a group, what was refused as a whole; without an interface, of any.
   const Logged* newest(
      const Vantu::IpGenAddr& group, Vantu::IntfId intfId,
      const std::function<bool( const Published::Event& )>& wanted ) const;

   // Of the kernel: its counters of the group's entries, and the packets of the group that
   // it told of.
   const std::vector<Published::MfibCache>& counters(
      const Vantu::IpGenAddr& group ) const;
   const std::vector<Published::MfibUpcall>& upcalls(
      const Vantu::IpGenAddr& group ) const;

 private:
   template <class Value>
   using ByGroup = std::unordered_map<Vantu::IpGenAddr, std::vector<Value>>;
   using Events =
      std::unordered_map<Routing::Pim::RouteIntfKey, std::vector<const Logged*>>;

   Events eventsOf() const;

   const Mirror& mirror_;
   const Evidence& evidence_;
   const Rps rps_;
   const std::optional<double> counterInterval_;
   bool speaks_ = false;
   bool here_ = false;  // is the agent's host the evidence's?
   std::optional<KernelEntries> kernel_;
   std::map<std::pair<Vantu::IntfId, Vantu::IpGenAddr>, Vantu::IpGenAddr>
      secondary_;
   // Made when they are asked for.
   mutable std::optional<Events> events_;
   mutable std::optional<ByGroup<Published::MfibCache>> counters_;
   mutable std::optional<ByGroup<Published::MfibUpcall>> upcalls_;
};

}
