// Keeps the kernel's entries in step with the exported routes of one VRF and
// family.
//
//   watches  tables route and routeIntf key by key; created after the reader that keeps
//            the model, so that it is called after it
//   writes   the kernel's entries, by difference: equal entries are not written again
//   wakes    to write delayed changes, see below; a second after a refusal by the kernel
//   ignores  everything until started(): the kernel's entries go on forwarding
//
// A change that takes traffic from an interface waits until its route has been
// quiet for a moment, but not for long. The records of a route and of its
// interfaces come one by one, and a route seen without its interfaces must neither
// cut off a stream nor hide the shared tree. A change that only adds is written at
// once.
//
// Destroyed before its constructor's arguments. Event-loop thread only.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <set>

#include "apps/mfib/CloseLook.h"
#include "apps/mfib/Vifs.h"
#include "export/Status.h"
#include "model/Status.h"
#include "platform/entity/EventCounter.h"
#include "platform/loop/Clock.h"
#include "published/Event.h"

namespace Forwarding {

// The entry that the route asks for. Nothing for a route whose incoming interface
// is not the kernel's, and for groups that are never routed. `copies`: a (*,G) entry
// with members has the register vif, too, so that new sources are told of.
std::optional<Entry> wantedEntry( const Routing::Pim::SparseMode::Route& route,
                                  const Vifs& vifs, bool copies = false );

class Mfib : public Routing::Pim::SparseMode::Brane::Status::NotifieeConst,
             private Mox::Clock::Notifiee {
 public:
   // s; above the longest delay of the writer's reviews, 50 ms.
   static constexpr double settleTime = 0.1;
   // s; a route of many interfaces is never quiet: each join is published.
   static constexpr double maxSettleTime = 1.0;
   static constexpr double retryTime = 1.0;  // s
   static constexpr unsigned maxWrites =
      1000;  // a call of write(); the rest follows

   using RouteKey = Routing::Pim::RouteKey;
   using Model = Mox::Ptr<const Routing::Pim::SparseMode::Status>;
   using Tables = Mox::Ptr<const Routing::Pim::SparseMode::Brane::Status>;

   // `vifs`, `kernel` and `clock` outlive it. `owner` is that of its counters.
   // `flows` gets the counters of a new entry soon after its first packet.
   Mfib( const std::string& owner, Model model, Tables tables, const Vifs& vifs,
         KernelTable& kernel, Mox::Clock& clock,
         std::function<void( const StandingEntry& )> flows );

   // Call it when the model holds all the tables' records: from here on the kernel
   // follows. Existing entries are taken over. With `unsure` each is written once
   // more, since it may differ in ways that the kernel does not show.
   void start( const std::vector<StandingEntry>& standing, bool unsure );
   bool started() const { return started_; }

   // Interfaces changed, came up or went down: every route is checked again, and the
   // entries with one of those numbers are written anew, whatever the kernel has.
   void handleVifs( const VifSet& changed );

   // Writes the differences that are due. Call it at the end of a turn.
   void write();

   // Does the key's traffic pass by the interface? Empty: all does.
   using Permits = std::function<bool( Vantu::IntfId, const RouteKey& )>;
   void permitsIs( Permits permits );

   // Called when the kernel has taken, refused or removed an entry; null: removed.
   using Told =
      std::function<void( Published::EventKind, const RouteKey&, const Entry* )>;
   void toldIs( Told told ) { told_ = std::move( told ); }

   // New sources of (*,G) entries with members are to be told of.
   void copiesIs( bool copies );

   // What serves sources that have no route yet.
   static constexpr double idleTime = 210.0;  // s; then a silent one's entry goes
   static constexpr double provisionalTime = 10.0;  // s, of first()
   void standInLimitIs( size_t limit ) { maxStandIns_ = limit; }
   bool hasStandIns() const { return !standIns_.empty(); }
   bool isProvisional( const RouteKey& key ) const;
   // A source of the group has been told of: until it has a route, an entry like the
   // (*,G) one serves it, without the register vif. Returns the (*,G) entry's incoming
   // interface; empty where there is no such entry, or too many are served so.
   Vantu::IntfId follow( const RouteKey& key );
   // A source on the link of that number sends: its packets go where the group's do, and
   // with `registers` out by the register vif, for provisionalTime at most. Returns false
   // where the source has an entry already, or too many are served so.
   bool first( const RouteKey& key, unsigned vif, bool registers );
   // What comes in by the register vif goes nowhere.
   void bar( const RouteKey& key );
   // The source has been silent: its entry goes.
   void endStandIn( const RouteKey& key );

   // The kernel has told of packets by the wrong interface of that number.
   void handleWrong( const RouteKey& key, unsigned vif );

   // Does some route need the register vif?
   bool needsRegisters() const { return needsRegisters_; }

   // Is nothing left to write?
   bool idle() const { return marked_.empty(); }
   size_t size() const { return standing_.size(); }
   bool has( const RouteKey& key ) const { return standing_.count( key ) != 0; }
   uint64_t written() const { return writes_.value(); }
   uint64_t removed() const { return removals_.value(); }
   uint64_t refused() const { return refusals_.value(); }

   using NotifieeConst::onRoute;
   using NotifieeConst::onRouteIntf;
   void onRoute( const RouteKey& key ) override { mark( key ); }
   void onRouteIntf( const Routing::Pim::RouteIntfKey& key ) override {
      mark( key.routeKey );
   }

 private:
   // Sorts the (*,G) entry before the group's others.
   struct ByGroup {
      bool operator()( const RouteKey& a, const RouteKey& b ) const {
         return a.group != b.group ? a.group < b.group : a.source < b.source;
      }
   };

   void onTime() override { write(); }
   void markAll();
   void mark( const RouteKey& key );
   void markAt( const RouteKey& key, double time );
   std::optional<Entry> wanted( const RouteKey& key ) const;
   bool takesAway( const RouteKey& key, const std::optional<Entry>& wanted ) const;
   std::optional<Entry> standIn( const RouteKey& key ) const;
   std::optional<Entry> sharedEntry( const RouteKey& key ) const;
   void endProvisional( double now );
   void bound( Entry& entry ) const;
   int bring( const RouteKey& key, const std::optional<Entry>& wanted );
   void renew( const RouteKey& key );
   bool lostAssert( const RouteKey& key, unsigned vif ) const;
   VifSet reached( const RouteKey& key ) const;

   Model model_;
   Tables tables_;
   const Vifs& vifs_;
   KernelTable& kernel_;
   bool started_ = false;
   std::set<RouteKey, ByGroup> routes_;           // the model's
   std::map<RouteKey, Entry, ByGroup> standing_;  // the kernel's
   struct Marked {
      double first, last;  // s
   };
   std::map<RouteKey, Marked, ByGroup> marked_;
   std::map<RouteKey, double, ByGroup> refused_;  // until when
   struct StandIn {
      enum Kind { follows, provisional, barred } kind = follows;
      unsigned vif = kRegisterVif;  // of provisional ones
      bool registers = false;
      double since = 0.0;  // s
   };
   std::map<RouteKey, StandIn, ByGroup> standIns_;
   std::deque<std::pair<double, RouteKey>> provisional_;  // when they end, in order
   size_t maxStandIns_ = 10000;
   Permits permits_;
   Told told_ = []( auto, const RouteKey&, const Entry* ) {};
   bool copies_ = false;
   mutable bool needsRegisters_ = false;
   Mox::EventCounter writes_, removals_, refusals_, renewals_;
   CloseLook look_;
};

}
