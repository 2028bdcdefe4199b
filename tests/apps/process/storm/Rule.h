// The rule for the storm's agent: every field of a route follows from its group's
// number, so that a torn or foreign record shows.
//
//    number  0 .. standing-1   joined once, never pruned
//            standing .. all   joined and pruned all the time
//    every fourth              (*,G), the others (S,G)
//    by number modulo 3        on eth1, on eth2, on both
//    by its source's net k     neighbour and metric of the RPF
//    by number / 4 modulo 4    how long a timed join or prune of the latter is held
//
// A timed link also prunes a source of net 1 from the shared trees that come and go.
#pragma once

#include <fmt/format.h>

#include <map>
#include <set>
#include <string>

#include "export/Conversion.h"

namespace Agent::Storm {

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::RouteIntfKey;
using Routing::Pim::RouteKey;
using Vantu::AddressFamily;

constexpr unsigned standing = 200;
constexpr unsigned all = 400;

constexpr AddressFamily families[] = { AddressFamily::ipv4, AddressFamily::ipv6 };

inline bool isWildcard( unsigned number ) {
   return number % 4 == 0;
}
inline bool isOn( unsigned number, unsigned interface ) {
   return number % 3 == 2 || number % 3 == interface - 1;
}
inline std::string groupOf( bool ipv4, unsigned number ) {
   return ipv4 ? fmt::format( "233.252.{}.{}", 1 + number / 250, 1 + number % 250 )
               : fmt::format( "ff0e::db8:{:x}", 1 + number );
}
// The source, or of a wildcard the RP, on net 0.
inline std::string sourceOf( bool ipv4, unsigned number ) {
   unsigned net = number % 4;
   unsigned host = net == 0 ? 1 : 1 + number % 200;
   return ipv4 ? fmt::format( "198.18.{}.{}", net, host )
               : fmt::format( "2001:db8:5:{}::{:x}", net, host );
}
inline std::string neighborOf( bool ipv4, unsigned net ) {
   return ( ipv4 ? "192.0.2." : "fe80::" ) + std::to_string( 130 + net );
}
inline RouteKey keyOf( bool ipv4, unsigned number ) {
   Vantu::IpGenAddr group( groupOf( ipv4, number ) );
   if ( isWildcard( number ) )
      return { Vantu::IpGenAddr::unspecified( group.family() ), group };
   return { Vantu::IpGenAddr( sourceOf( ipv4, number ) ), group };
}

inline RouteKey rptKeyOf( bool ipv4, unsigned wildcard ) {
   return { Vantu::IpGenAddr( sourceOf( ipv4, wildcard + 1 ) ),
            Vantu::IpGenAddr( groupOf( ipv4, wildcard ) ) };
}
inline unsigned holdtimeOf( unsigned number ) {
   constexpr unsigned kTimes[] = { 30, 210, 3600, 0xffff };
   return number < standing ? 0xffff : kTimes[number / 4 % 4];
}

// The number that makes this key; `all` without one.
inline unsigned numberOf( const RouteKey& key ) {
   static const auto numbers = [] {
      std::map<RouteKey, unsigned> out;
      for ( unsigned number = 0; number < all; ++number ) {
         for ( bool ipv4 : { true, false } ) {
            out[keyOf( ipv4, number )] = number;
            if ( isWildcard( number ) ) out[rptKeyOf( ipv4, number )] = number;
         }
      }
      return out;
   }();
   auto found = numbers.find( key );
   return found == numbers.end() ? all : found->second;
}
inline bool isStanding( const RouteKey& key ) {
   return numberOf( key ) < standing;
}

inline bool keepsRule( const Sm::Brane::Route& record ) {
   unsigned number = numberOf( record.key );
   if ( number == all ) return false;
   bool rpt = isWildcard( number ) && !record.key.source.isUnspecified();
   unsigned net = rpt ? 1 : number % 4;
   bool ipv4 = record.key.group.family() == AddressFamily::ipv4;
   Routing::Pim::Rpf rpf{ Vantu::IntfId( "eth0" ),
                          Vantu::IpGenAddr( neighborOf( ipv4, net ) ),
                          110,
                          { 20 + net } };
   return record.rpf == rpf && record.creationTime > 0;
}
inline bool keepsRule( const Sm::Brane::Intf& record ) {
   unsigned number = numberOf( record.key.routeKey );
   if ( number == all ) return false;
   for ( unsigned interface : { 1, 2 } ) {
      if ( record.key.intfId == Vantu::IntfId( fmt::format( "eth{}", interface ) ) )
         return isOn( number, interface );
   }
   return false;
}

// Without a fast-reroute RPF a mirror has no record with the "attached" flag.
inline std::string textOf( Sm::Brane::Route record ) {
   if ( record.rpfFrr == Routing::Pim::Rpf() ) record.rpfFrrAttached = false;
   return valueToStrep( record );
}

// A short text that two equal sets of records share.
inline std::string digestOf( const std::set<std::string>& records ) {
   uint64_t hash = 14695981039346656037U;
   for ( const std::string& record : records ) {
      for ( unsigned char byte : record ) hash = ( hash ^ byte ) * 1099511628211U;
   }
   return fmt::format( "{} records {:x}", records.size(), hash );
}

}
