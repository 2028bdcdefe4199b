// The keys of a router's state in a store. Pure functions; any thread.
//
//    recorder                   who records, and whether the state is whole
//    table.VRF.FAMILY           the agent and its tables
//    links.VRF.FAMILY           interfaces and neighbours
//    rps.VRF.FAMILY             ranges of groups, and their RPs
//    route.VRF.FAMILY.GROUP.SOURCE
//    register.VRF.FAMILY.GROUP.SOURCE
//    rates.VRF.FAMILY.PAGE      counters and rates of a part of the streams
//    top.VRF.FAMILY             the fastest streams
//
// FAMILY is 4 or 6, the SOURCE of a (*,G) route "any", a PAGE two hex digits; the other
// parts are tokens (Names.h).
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/pim/RouteKey.h"

namespace Fleet {

using Routing::Pim::RouteKey;
using Vantu::AddressFamily;

// A VRF and family of a router.
struct Scope {
   std::string vrf = {};
   AddressFamily family = AddressFamily::ipv4;
   auto operator<=>( const Scope& ) const = default;
};

struct Key {
   enum Kind : uint8_t {
      recorder,
      table,
      links,
      rps,
      route,
      registers,
      rates,
      top
   };
   static constexpr uint32_t pages = 64;

   Kind kind = recorder;
   Scope scope = {};      // none of these for the recorder
   RouteKey stream = {};  // of route and registers
   uint32_t page = 0;     // of rates

   auto operator<=>( const Key& ) const = default;
};

std::string keyText( const Key& key );
// Nothing if keyText() does not make this text.
std::optional<Key> parseKey( std::string_view text );

// What all keys of the kind begin with, in one scope or in all of them: "route.red.4.".
std::string keyPrefix( Key::Kind kind );
std::string keyPrefix( Key::Kind kind, const Scope& scope );
// Those of a group.
std::string keyPrefix( Key::Kind kind, const Scope& scope,
                       const Vantu::IpGenAddr& group );

// The page that holds a stream's counters, the same on every host.
uint32_t pageOf( const RouteKey& stream );

// Text of 64 bits as 16 hex digits, and back; the hash of a value by which two values
// are compared, the same on every host.
std::string hexText( uint64_t number );
std::optional<uint64_t> hexOf( std::string_view text );
uint64_t digestOf( std::string_view value );

}
