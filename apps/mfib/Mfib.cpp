#include "apps/mfib/Mfib.h"

#include <cerrno>
#include <cstring>

#include "engine/Routes.h"
#include "platform/trace/Trace.h"

namespace Forwarding {

MOX_TRACE_FACILITY( trace, "Pimsm::Mfib" )

namespace Sm = Routing::Pim::SparseMode;

namespace {

// No interface has this number, so such an entry never equals a wanted one.
constexpr unsigned kUnsure = kMaxVifs;

// Does somebody on a link of this router listen to the whole group?
bool hasMembers( const Sm::Route& route ) {
   for ( const Sm::Intf& intf : route.routeIntf() )
      if ( intf.localReceiverInclude() ) return true;
   return false;
}

// Does the route send or take registers, or ask for the copy of a source's first packet?
bool usesRegisters( const Sm::Route& route, bool copies ) {
   if ( route.oifRegister() || route.incomingIntf() == Router::registerIntf() )
      return true;
   return copies && route.wildCard() && hasMembers( route );
}

// The fast-reroute path takes over as soon as the main one's link is down; the routes
// follow.
bool comesByBackup( const Sm::Route& route, const Vifs& vifs ) {
   return route.umhFrr() != nullptr && vifs.vif( route.incomingIntf() ) &&
          !vifs.up( route.incomingIntf() ) && vifs.up( route.iifFrr() );
}

}

std::optional<Entry> wantedEntry( const Sm::Route& route, const Vifs& vifs,
                                  bool copies ) {
   const Routing::Pim::RouteKey& key = route.key();
   if ( !key.group.isMulticast() || key.group.isLinkLocalMulticast() )
      return std::nullopt;
   const bool byBackup = comesByBackup( route, vifs );
   std::optional<unsigned> incoming =
      vifs.vif( byBackup ? route.iifFrr() : route.incomingIntf() );
   if ( !incoming ) return std::nullopt;
   Entry entry{ key, *incoming, {} };
   for ( const Sm::Intf& intf : route.routeIntf() ) {
      if ( !( byBackup ? intf.fastForward() : intf.forward() ) ) continue;
      if ( auto vif = vifs.vif( intf.intfId() ) ) entry.outgoing.set( *vif );
   }
   // The kernel finds a (*,G) entry only by one of its outgoing interfaces, and
   // does not send a packet back by the one that it came in by. With an (S,G) entry
   // it would send it back.
   entry.outgoing.set( *incoming, key.source.isUnspecified() );
   if ( vifs.registers() && usesRegisters( route, copies ) &&
        *incoming != kRegisterVif )
      entry.outgoing.set( kRegisterVif );
   return entry;
}

Mfib::Mfib( const std::string& owner, Model model, Tables tables, const Vifs& vifs,
            KernelTable& kernel, Mox::Clock& clock,
            std::function<void( const StandingEntry& )> flows )
   : Mox::Clock::Notifiee( &clock ),
     model_( std::move( model ) ),
     tables_( std::move( tables ) ),
     vifs_( vifs ),
     kernel_( kernel ),
     writes_( owner, "written" ),
     removals_( owner, "removed" ),
     refusals_( owner, "refused" ),
     renewals_( owner, "renewed" ),
     look_(
        kernel, clock, [this]( const RouteKey& key ) { renew( key ); },
        std::move( flows ) ) {
   notifierIs( tables_.get() );
}

void Mfib::start( const std::vector<StandingEntry>& standing, bool unsure ) {
   for ( const StandingEntry& told : standing ) {
      std::optional<unsigned> incoming = vifs_.vifOfIndex( told.incomingIndex );
      Entry entry{ told.key, incoming.value_or( 0 ), {} };
      for ( uint32_t index : told.outgoingIndexes ) {
         if ( auto vif = vifs_.vifOfIndex( index ) ) entry.outgoing.set( *vif );
      }
      if ( unsure || !incoming ) entry.incoming = kUnsure;
      standing_.emplace( told.key, entry );
   }
   started_ = true;
   markAll();
}

void Mfib::handleVifs( const VifSet& changed ) {
   if ( !started_ ) return;
   for ( auto& [key, entry] : standing_ ) {
      if ( ( entry.outgoing & changed ).any() ) entry.incoming = kUnsure;
   }
   markAll();
}

void Mfib::markAll() {
   const double settled = clock()->now() - settleTime;
   for ( const Sm::Route& route : model_->route() ) {
      routes_.insert( route.key() );
      markAt( route.key(), settled );
   }
   for ( const auto& [key, entry] : standing_ ) markAt( key, settled );
}

// An (S,G) route comes in along the shared tree until it is on the source tree.
void Mfib::mark( const RouteKey& key ) {
   if ( !started_ ) return;
   const double now = clock()->now();
   if ( model_->route( key ) != nullptr ) {
      routes_.insert( key );
   } else {
      routes_.erase( key );
   }
   markAt( key, now );
   const auto standIn = standIns_.find( key );
   if ( standIn != standIns_.end() && model_->route( key ) != nullptr &&
        standIn->second.kind != StandIn::barred )
      standIns_.erase( standIn );
   if ( !key.source.isUnspecified() ) return;
   for ( auto it = standIns_.upper_bound( key );
         it != standIns_.end() && it->first.group == key.group; ++it )
      markAt( it->first, now );
   for ( auto it = routes_.upper_bound( key );
         it != routes_.end() && it->group == key.group; ++it )
      markAt( *it, now );
}

void Mfib::markAt( const RouteKey& key, double time ) {
   marked_.try_emplace( key, Marked{ time, time } ).first->second.last = time;
}

std::optional<Entry> Mfib::wanted( const RouteKey& key ) const {
   std::optional<Entry> entry;
   if ( Mox::Ptr<const Sm::Route> route = model_->route( key ) ) {
      needsRegisters_ |= usesRegisters( *route, copies_ );
      entry = wantedEntry( *route, vifs_, copies_ );
      const auto found = standIns_.find( key );
      const bool barred =
         found != standIns_.end() && found->second.kind == StandIn::barred;
      if ( barred && entry && entry->incoming == kRegisterVif )
         entry->outgoing.reset();
   } else {
      entry = standIn( key );
   }
   if ( entry && permits_ ) bound( *entry );
   return entry;
}

// A (*,G) entry lists its incoming interface only to be found.
void Mfib::bound( Entry& entry ) const {
   const VifSet all = entry.outgoing;
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif ) {
      if ( !all[vif] || permits_( vifs_.name( vif ), entry.key ) ) continue;
      entry.outgoing.reset( vif );
   }
   if ( permits_( vifs_.name( entry.incoming ), entry.key ) ) return;
   entry.outgoing.reset();
   entry.outgoing.set( entry.incoming, entry.key.source.isUnspecified() );
}

std::optional<Entry> Mfib::sharedEntry( const RouteKey& key ) const {
   const RouteKey any{ Vantu::IpGenAddr::unspecified( key.group.family() ),
                       key.group };
   const Mox::Ptr<const Sm::Route> shared = model_->route( any );
   if ( shared == nullptr ) return std::nullopt;
   return wantedEntry( *shared, vifs_ );
}

std::optional<Entry> Mfib::standIn( const RouteKey& key ) const {
   const auto found = standIns_.find( key );
   if ( found == standIns_.end() ) return std::nullopt;
   const StandIn& what = found->second;
   if ( what.kind == StandIn::barred ) return Entry{ key, kRegisterVif, {} };
   std::optional<Entry> entry = sharedEntry( key );
   if ( what.kind == StandIn::provisional ) {
      if ( !entry ) entry = Entry{};
      if ( entry->incoming != what.vif ) entry->outgoing.reset( entry->incoming );
      entry->incoming = what.vif;
      entry->outgoing.set( kRegisterVif, what.registers && vifs_.registers() );
   }
   if ( !entry ) return std::nullopt;
   entry->key = key;
   entry->outgoing.reset( entry->incoming );
   return entry;
}

void Mfib::permitsIs( Permits permits ) {
   permits_ = std::move( permits );
   if ( started_ ) markAll();
}

void Mfib::copiesIs( bool copies ) {
   if ( std::exchange( copies_, copies ) != copies && started_ ) markAll();
}

bool Mfib::isProvisional( const RouteKey& key ) const {
   const auto found = standIns_.find( key );
   return found != standIns_.end() && found->second.kind == StandIn::provisional;
}

Vantu::IntfId Mfib::follow( const RouteKey& key ) {
   const RouteKey any{ Vantu::IpGenAddr::unspecified( key.group.family() ),
                       key.group };
   const Mox::Ptr<const Sm::Route> shared = model_->route( any );
   const bool here =
      started_ && shared != nullptr && model_->route( key ) == nullptr;
   if ( !here || standIns_.size() >= maxStandIns_ ) return {};
   if ( standIns_.try_emplace( key ).second ) markAt( key, clock()->now() );
   write();
   return shared->incomingIntf();
}

bool Mfib::first( const RouteKey& key, unsigned vif, bool registers ) {
   const bool here = started_ && model_->route( key ) == nullptr;
   if ( !here || standIns_.size() >= maxStandIns_ ) return false;
   const double now = clock()->now();
   const StandIn made{ StandIn::provisional, vif, registers, now };
   if ( !standIns_.try_emplace( key, made ).second ) return false;
   provisional_.emplace_back( now + provisionalTime, key );
   markAt( key, now );
   write();
   return true;
}

void Mfib::bar( const RouteKey& key ) {
   if ( !started_ || standIns_.size() >= maxStandIns_ ) return;
   const StandIn barred{ StandIn::barred };
   if ( !standIns_.try_emplace( key, barred ).second ) return;
   markAt( key, clock()->now() );
   write();
}

void Mfib::endStandIn( const RouteKey& key ) {
   if ( standIns_.erase( key ) != 0 ) markAt( key, clock()->now() );
}

void Mfib::endProvisional( double now ) {
   while ( !provisional_.empty() && provisional_.front().first <= now ) {
      const auto [end, key] = provisional_.front();
      provisional_.pop_front();
      // It may be another one, made since.
      const auto found = standIns_.find( key );
      if ( isProvisional( key ) && found->second.since + provisionalTime <= now )
         endStandIn( key );
   }
}

// The interfaces to which packets of the key go now: those of its own entry,
// otherwise of the (*,G) one. A (*,G) entry lists its incoming interface only to be
// found.
VifSet Mfib::reached( const RouteKey& key ) const {
   auto entry = standing_.find( key );
   if ( entry == standing_.end() ) {
      entry = standing_.find(
         { Vantu::IpGenAddr::unspecified( key.group.family() ), key.group } );
   }
   if ( entry == standing_.end() ) return VifSet();
   VifSet out = entry->second.outgoing;
   bool shared = entry->first.source.isUnspecified();
   if ( shared && entry->second.incoming != kUnsure )
      out.reset( entry->second.incoming );
   return out;
}

bool Mfib::takesAway( const RouteKey& key,
                      const std::optional<Entry>& wanted ) const {
   VifSet left = reached( key );
   left.reset( kRegisterVif );
   if ( wanted ) {
      left &= ~wanted->outgoing;
      left.reset( wanted->incoming );
   }
   for ( unsigned vif = 0; vif < kMaxVifs; ++vif )
      if ( left[vif] && !lostAssert( key, vif ) ) return true;
   return false;
}

// Another router has taken over the link: each packet more comes twice there.
bool Mfib::lostAssert( const RouteKey& key, unsigned vif ) const {
   const Mox::Ptr<const Sm::Route> route = model_->route( key );
   const Sm::Intf* intf =
      route == nullptr ? nullptr : route->routeIntf( vifs_.name( vif ) );
   return intf != nullptr && !intf->forward() &&
          intf->assertInfo().assertState == Sm::iAmAssertLoser;
}

int Mfib::bring( const RouteKey& key, const std::optional<Entry>& wanted ) {
   if ( wanted ) {
      if ( int error = kernel_.entryIs( *wanted ) ) return error;
      const auto [found, isNew] = standing_.try_emplace( key );
      const bool turned = isNew || found->second.incoming != wanted->incoming;
      found->second = *wanted;
      writes_.inc();
      told_( Published::entryWritten, key, &*wanted );
      look_.forget( key );
      if ( turned && !key.source.isUnspecified() ) look_.made( key );
      return 0;
   }
   int error = kernel_.entryDel( key );
   if ( error != 0 && error != ENOENT ) return error;
   look_.forget( key );
   standing_.erase( key );
   removals_.inc();
   told_( Published::entryRemoved, key, nullptr );
   return 0;
}

void Mfib::handleWrong( const RouteKey& key, unsigned vif ) {
   const auto entry = standing_.find( key );
   if ( entry != standing_.end() && vif < kMaxVifs && entry->second.outgoing[vif] )
      look_.doubled( key );
}

// A packet that comes between the two calls waits in the kernel for the new entry.
void Mfib::renew( const RouteKey& key ) {
   const auto entry = standing_.find( key );
   if ( entry == standing_.end() || kernel_.entryDel( key ) != 0 ) return;
   renewals_.inc();
   if ( kernel_.entryIs( entry->second ) == 0 ) return;
   standing_.erase( entry );
   markAt( key, clock()->now() );
   wakeupTimeIs( clock()->now() );
}

void Mfib::write() {
   const double now = clock()->now();
   endProvisional( now );
   double next =
      provisional_.empty() ? Mox::Clock::never : provisional_.front().first;
   if ( marked_.empty() ) return wakeupTimeIs( next );
   unsigned writes = 0;
   for ( auto it = marked_.begin(); it != marked_.end(); ) {
      const RouteKey key = it->first;
      std::optional<Entry> entry = wanted( key );
      auto standing = standing_.find( key );
      bool same = entry ? standing != standing_.end() && standing->second == *entry
                        : standing == standing_.end();
      double due = now;
      if ( !same && takesAway( key, entry ) )
         due = std::min( it->second.last + settleTime,
                         it->second.first + maxSettleTime );
      auto refused = refused_.find( key );
      if ( !same && refused != refused_.end() )
         due = std::max( due, refused->second );
      if ( due <= now && !same ) {
         if ( writes++ == maxWrites ) {
            next = now;
            break;
         }
         if ( int error = bring( key, entry ) ) {
            MOX_TRACE( trace, 0,
                       "the kernel refuses "
                          << key << ": " << std::strerror( error )
                          << Mox::traceField( "VRF", model_->vrfName().name() ) );
            refusals_.inc();
            told_( Published::entryRefused, key, entry ? &*entry : nullptr );
            due = refused_[key] = now + retryTime;
         } else {
            same = true;
         }
      }
      if ( !same ) {
         next = std::min( next, due );
         ++it;
         continue;
      }
      if ( refused != refused_.end() ) refused_.erase( refused );
      it = marked_.erase( it );
   }
   wakeupTimeIs( next );
}

}
