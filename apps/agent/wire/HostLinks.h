// This host's network interfaces as the kernel has them, followed as they change:
// what a sending router has to know of them. Event-loop thread only.
#pragma once

#include <map>
#include <set>
#include <string>

#include "apps/netlink/Notifications.h"

namespace Agent {

struct HostLink {
   std::string name;
   uint32_t mtu = 0;  // bytes of an IP packet
   bool up = false;   // by the administrator
   // Those of which it is sure; IPv4 first.
   std::set<Vantu::IpGenAddr> addresses = {};
   bool carrier = false;
   bool operator==( const HostLink& ) const = default;
};

// The known interfaces; a plain class, so that tests can fill it.
class HostLinkTable {
 public:
   // The kernel's index of the interface of that name; 0 without one.
   uint32_t index( const std::string& name ) const;
   // Null without an interface of that name.
   const HostLink* find( const std::string& name ) const;

   // The interface with that index, made if there is none.
   HostLink& link( uint32_t index ) { return links_[index]; }
   // Takes a message of an interface or an address. Returns whether something has
   // changed.
   bool take( const Netlink::Message& message );

 private:
   bool takeLink( const Netlink::Message& message );
   bool takeAddress( const Netlink::Message& message );

   std::map<uint32_t, HostLink> links_;  // by index
};

class HostLinks {
 public:
   // `changed` is called after each change. The loop outlives it. Throws
   // std::system_error.
   HostLinks( Mox::Loop& loop, Mox::Loop::Function changed );

   const HostLinkTable& table() const { return table_; }

 private:
   void reload();
   void recover();

   HostLinkTable table_;
   Mox::Loop::Function changed_;
   Netlink::Notifications notifications_;
};

}
