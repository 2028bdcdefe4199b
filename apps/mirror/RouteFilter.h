// The routes and interfaces that the user asks for.
#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "apps/mirror/Mirrors.h"
#include "platform/net/IpGenPrefix.h"

namespace Show {

// The order in which routes are shown.
struct ByGroup {
   bool operator()( const Routing::Pim::RouteKey& a,
                    const Routing::Pim::RouteKey& b ) const {
      return std::tie( a.group, a.source ) < std::tie( b.group, b.source );
   }
};

// Everything passes a default filter; all criteria given must match.
struct RouteFilter {
   std::optional<Vantu::IpGenPrefix> group;
   std::optional<Vantu::IpGenPrefix> source;  // never matches a (*,G) route
   std::string iface;  // routes with this interface, and only it
   std::string iif;    // routes with this incoming interface
   std::string kind;   // "wc", "sg", or any
   std::optional<bool>
      forwarding;  // interfaces that do, or do not; and their routes

   bool active() const;
   // Checks group and source only.
   bool matches( const Routing::Pim::RouteKey& key ) const;
   // Checks the interface only.
   bool matches( Vantu::IntfId intfId ) const {
      return iface.empty() || intfId.name() == iface;
   }
   bool matches( const Routing::Pim::SparseMode::Route& route ) const;
   bool matches( const Routing::Pim::SparseMode::Intf& intf ) const;
};

// A prefix, or an address that stands for itself. Throws ParseError or RangeError.
Vantu::IpGenPrefix prefixArgument( const std::string& text );

// The matching routes of a mirror by group, then source.
std::vector<const Routing::Pim::SparseMode::Route*> selectRoutes(
   const Mirror& mirror, const RouteFilter& filter );

// The matching interfaces of a route in order of name.
std::vector<const Routing::Pim::SparseMode::Intf*> selectIntfs(
   const Routing::Pim::SparseMode::Route& route, const RouteFilter& filter );

}
