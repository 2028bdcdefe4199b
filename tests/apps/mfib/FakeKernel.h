// A kernel's table in memory, which refuses what it is told to refuse.
#pragma once

#include <cerrno>
#include <deque>
#include <map>
#include <set>

#include "apps/mfib/KernelTable.h"

namespace Forwarding {

class FakeKernel : public KernelTable {
 public:
   int vifIs( unsigned vif, uint32_t ifIndex ) override {
      return vifs.emplace( vif, ifIndex ).second ? 0 : EADDRINUSE;
   }
   int vifDel( unsigned vif ) override {
      return vifs.erase( vif ) == 1 ? 0 : EADDRNOTAVAIL;
   }
   std::optional<VifCounters> vif( unsigned vif ) const override {
      if ( vifs.count( vif ) == 0 ) return std::nullopt;
      return VifCounters{ 1, 2, 3, 4 };
   }
   int entryIs( const Entry& entry ) override {
      if ( refused.count( entry.key ) != 0 ) return ENOMEM;
      ++writes;
      // Silently drops interfaces that it does not have.
      Entry& kept = entries[entry.key] = entry;
      for ( unsigned vif = 0; vif < kMaxVifs; ++vif )
         kept.outgoing[vif] = kept.outgoing[vif] && vifs.count( vif ) != 0;
      return 0;
   }
   int entryDel( const Routing::Pim::RouteKey& key ) override {
      ++writes;
      return entries.erase( key ) == 1 ? 0 : ENOENT;
   }
   std::optional<StandingEntry> counters(
      const Routing::Pim::RouteKey& key ) const override {
      if ( entries.count( key ) == 0 ) return std::nullopt;
      StandingEntry told = stats.count( key ) ? stats.at( key ) : StandingEntry();
      told.key = key;
      return told;
   }
   bool visit(
      const std::function<void( const StandingEntry& )>& visitor ) const override {
      for ( const auto& [key, entry] : entries ) {
         StandingEntry told =
            stats.count( key ) ? stats.at( key ) : StandingEntry();
         told.key = key;
         // Like the kernel, does not list interfaces that it does not have.
         auto incoming = vifs.find( entry.incoming );
         if ( incoming != vifs.end() ) told.incomingIndex = incoming->second;
         for ( const auto& [vif, index] : vifs )
            if ( entry.outgoing[vif] ) told.outgoingIndexes.push_back( index );
         visitor( told );
      }
      return true;
   }
   int registerVifIs() override { return vifIs( kRegisterVif, registerIndex() ); }
   uint32_t registerIndex() const override { return 99; }
   std::optional<Upcall> nextUpcall() override {
      if ( upcalls.empty() ) return std::nullopt;
      Upcall next = upcalls.front();
      upcalls.pop_front();
      return next;
   }

   std::map<unsigned, uint32_t> vifs;  // interface indexes by number
   std::map<Routing::Pim::RouteKey, Entry> entries;
   std::map<Routing::Pim::RouteKey, StandingEntry> stats;
   std::set<Routing::Pim::RouteKey> refused;
   std::deque<Upcall> upcalls;
   int writes = 0;
};

}
