// The links of a fleet: whose interface it is that a router calls its neighbour, and who
// else is on that link. Built from what the routers tell of themselves; a router that
// tells nothing has no interfaces here.
//
// Link-local addresses repeat, so an address alone names nobody: of the interfaces that
// have it, those count whose generation ID the neighbour's hello carried, that share a
// network, and that name the asker as neighbour in turn. Any thread, one at a time.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "apps/fleet/path/Facts.h"

namespace Fleet {

// A router of one scope.
struct RouterFacts {
   std::string name = {};
   bool lives = false;  // a recorder keeps it up to date
   std::optional<RecorderFacts> recorder = {};
   std::optional<TableFacts> table = {};
   Links links = {};
   std::vector<RpRange> rps = {};

   bool incomplete() const { return !recorder || !recorder->complete; }
   bool stale() const { return !lives || incomplete(); }
   bool agentGone() const { return table && table->writerGone; }
   bool forwarderGone() const { return table && table->forwarderGone; }
   std::optional<uint32_t> interface( const std::string& name ) const;
   // The longest range with the group; null: none.
   const RpRange* range( const IpGenAddr& group ) const;
   // The group's RP; unspecified: none is told.
   IpGenAddr rp( const IpGenAddr& group ) const;
   // Is the address an interface's, or that of an RP that it says to be?
   bool ownsRp( const IpGenAddr& rp ) const;
};

// An interface: indices of its router, and of it there.
struct Place {
   uint32_t router = 0;
   uint32_t interface = 0;
   auto operator<=>( const Place& ) const = default;
};

struct Owner {
   std::optional<Place> place = {};
   std::vector<Place> rivals =
      {};  // with the place missing: they cannot be told apart
};

class Fabric {
 public:
   explicit Fabric( std::vector<RouterFacts> routers );
   Fabric( const Fabric& ) = delete;
   Fabric& operator=( const Fabric& ) = delete;

   const std::vector<RouterFacts>& routers() const { return routers_; }
   const RouterFacts& router( const Place& place ) const {
      return routers_[place.router];
   }
   const Interface& interface( const Place& place ) const {
      return router( place ).links.interfaces[place.interface];
   }
   std::optional<uint32_t> find( const std::string& router ) const;
   std::optional<Place> place( uint32_t router,
                               const std::string& interface ) const;

   // What the router says of a neighbour with that address there; null: nothing.
   const Neighbor* neighbor( const Place& at, const IpGenAddr& address ) const;
   // Does the first name the second as its neighbour there?
   bool names( const Place& at, const Place& other ) const;
   // Whose the address is that is told at that place.
   Owner owner( const Place& at, const IpGenAddr& address ) const;

   // All that are on the place's link, itself included, in order.
   std::vector<Place> link( const Place& place ) const;
   // Those with the longest network that has the host's address.
   std::vector<Place> attached( const IpGenAddr& host ) const;
   // Do two of them have the same address, as only interfaces on different links do?
   bool clash( const std::vector<Place>& places ) const;
   // Who says to own the RP.
   std::vector<uint32_t> ownersOfRp( const IpGenAddr& rp ) const;

 private:
   void add( const Place& place, const Interface& interface );
   std::vector<Place> candidates( const Place& at, const IpGenAddr& address ) const;
   bool shareNetwork( const Place& a, const Place& b ) const;
   // Could that interface be the neighbour, by its address alone?
   bool believable( const Place& at, const Place& other,
                    const Neighbor* told ) const;

   std::vector<RouterFacts> routers_;
   std::unordered_map<IpGenAddr, std::vector<Place>> byAddress_;
   std::unordered_map<uint32_t, std::vector<Place>> byGenId_;
   // Of each router, its neighbours by any address.
   std::vector<std::unordered_multimap<IpGenAddr, const Neighbor*>> neighbors_;
   struct Hash {
      size_t operator()( const IpGenPrefix& prefix ) const { return prefix.hash(); }
   };
   std::unordered_map<IpGenPrefix, std::vector<Place>, Hash> byNetwork_;
   std::set<unsigned, std::greater<>> lengths_;  // of the networks
};

}
