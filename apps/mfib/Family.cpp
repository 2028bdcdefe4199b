#include "apps/mfib/Family.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/mfib/EntryCounters.h"
#include "engine/Refusal.h"
#include "packet/Numbers.h"
#include "packet/Pim.h"

namespace Forwarding {

using Published::MfibStatus;

std::string nameOf( const FamilyConfig& config ) {
   return fmt::format( "vrf {} {}", config.vrf.name(),
                       Vantu::valueToStrep( config.family ) );
}

std::string counterOwner( const FamilyConfig& config, const char* kind ) {
   return fmt::format( "mfib/{}/{}/{}", kind, Vantu::valueToStrep( config.family ),
                       config.vrf.name() );
}

Family::Family( FamilyConfig config, std::unique_ptr<KernelTable> kernel,
                RegisterWays ways, const LinkTable& links,
                Corvex::EntityManager& manager, Mox::Clock& clock, const Say& say )
   : config_( std::move( config ) ),
     topology_( config_.router ),
     policy_( config_.family, config_.router ),
     filters_( config_.family, config_.router ),
     kernel_( std::move( kernel ) ),
     registers_( std::move( ways.registers ) ),
     tooBig_( std::move( ways.tooBig ) ),
     links_( links ),
     clock_( clock ),
     say_( [name = nameOf( config_ ), say]( const std::string& text ) {
        say( name + ": " + text );
     } ),
     published_( MfibStatus::mount(
        manager, MfibStatus::mountPath( config_.family, config_.vrf ),
        Brane::tableWriter, config_.maxRoutes ) ),
     vifs_( *kernel_, published_, say_ ),
     unsure_( !vifs_.adopt( links ) ),
     upcalls_( counterOwner( config_, "upcalls" ), published_ ),
     mirror_( manager, clock, config_.family, config_.vrf, {}, false ),
     agent_( Published::FamilyStatus::mount(
        manager, Published::FamilyStatus::mountPath( config_.family, config_.vrf ),
        Brane::tableReader ) ),
     registered_( counterOwner( config_, "registers" ), "sent" ),
     unregistered_( counterOwner( config_, "registers" ), "dropped" ),
     passedOn_( counterOwner( config_, "registers" ), "passedOn" ),
     limited_( counterOwner( config_, "registers" ), "beyondLimit" ),
     tooBigs_( counterOwner( config_, "registers" ), "tooBig" ),
     mfib_( std::make_unique<Mfib>(
        counterOwner( config_, "entries" ), mirror_.model(), mirror_.tables(),
        vifs_, *kernel_, clock, [this]( const StandingEntry& entry ) {
           publishEntryCounters( entry, *published_, clock_.now() );
        } ) ) {
   vifs_.namesIs( config_.interfaces );
   vifs_.update( links );
   settingIs( MfibStatus::tableSetting, std::to_string( config_.table ) );
   takeConfig();
}

// The filters of interfaces without a boundary permit all, and cost nothing.
void Family::takeConfig() {
   const auto& interfaces = config_.router.interfaces;
   const bool bounds = std::any_of(
      interfaces.begin(), interfaces.end(), [this]( const auto& interface ) {
         return !filters_.of( interface.name ).boundary.all();
      } );
   Mfib::Permits permits;
   if ( bounds )
      permits = [this]( Vantu::IntfId name, const Routing::Pim::RouteKey& key ) {
         return this->permits( name, key );
      };
   mfib_->permitsIs( std::move( permits ) );
   mfib_->standInLimitIs( config_.newSourceLimit );
   newSources_.rateIs( config_.newSourceRate );
   hearRegisters();
}

bool Family::permits( Vantu::IntfId name,
                      const Routing::Pim::RouteKey& key ) const {
   return filters_.of( name ).boundary.permits( key.source, key.group );
}

void Family::configIs( FamilyConfig config ) {
   config_ = std::move( config );
   topology_.configIs( config_.router );
   policy_.configIs( config_.router );
   filters_.configIs( config_.router );
   takeConfig();
   vifs_.namesIs( config_.interfaces );
   mfib_->handleVifs( vifs_.update( links_ ).numbers );
}

void Family::handleLinks() {
   const Vifs::Changes changed = vifs_.update( links_ );
   if ( changed.any() ) mfib_->handleVifs( changed.numbers );
}

void Family::logIs( Published::EventLog* log ) {
   log_ = log;
   mfib_->toldIs( [this]( Published::EventKind kind,
                          const Routing::Pim::RouteKey& key, const Entry* entry ) {
      Published::Event event{ .kind = kind };
      event.group = key.group;
      event.source = key.source;
      if ( entry != nullptr ) {
         event.intf = vifs_.name( entry->incoming );
         event.value = static_cast<uint32_t>( entry->outgoing.count() );
      }
      tell( event );
   } );
}

void Family::tell( Published::Event event ) const {
   if ( log_ == nullptr ) return;
   event.vrf = Published::Text<104>( config_.vrf.name() );
   event.ipVersion = config_.family == Vantu::AddressFamily::ipv4 ? 4 : 6;
   log_->add( event );
}

void Family::takeUpcalls() {
   for ( unsigned count = 0; count < maxUpcallsATurn; ++count ) {
      std::optional<Upcall> upcall = kernel_->nextUpcall();
      if ( !upcall ) return;
      if ( !upcall->packet.empty() ) {
         takePacket( *upcall );
         continue;
      }
      Vantu::IntfId name = vifs_.name( upcall->vif );
      if ( name.empty() ) continue;
      serveFirst( *upcall, name );
      if ( upcall->kind == Published::wrongVifUpcall ) {
         Published::Event event{ .kind = Published::wrongInterface,
                                 .cause = Published::byData };
         event.group = upcall->key.group;
         event.source = upcall->key.source;
         event.intf = name;
         tell( event );
         mfib_->handleWrong( upcall->key, upcall->vif );
      }
      upcalls_.add( { upcall->key, name }, upcall->kind, clock_.now() );
   }
}

// Is the source on that link, and this router the link's DR?
bool Family::onDrsLink( const Routing::Pim::RouteKey& key,
                        Vantu::IntfId name ) const {
   Published::Interface record;
   if ( agent_->interface().find( name, record ) != Brane::lookupFound ||
        !record.speaks || !record.iAmDr )
      return false;
   bool found = false;
   agent_->ownAddress().visit( [&]( const Published::OwnAddress& own ) {
      found = own.key.intfId == name && own.subnet.contains( key.source );
      return !found;
   } );
   return found;
}

// Until the agent has made its route, a source's packets go where the group's do, and
// come here to be registered. Those that reach the kernel before that are dropped.
void Family::serveFirst( const Upcall& upcall, Vantu::IntfId name ) {
   const auto& key = upcall.key;
   const Vantu::IpGenAddr rp = topology_.rpOf( key.group );
   if ( rp.isUnspecified() || mfib_->has( key ) ||
        key.group.isLinkLocalMulticast() || policy_.sourceSpecific( key.group ) ||
        !permits( name, key ) || !onDrsLink( key, name ) )
      return;
   const double now = clock_.now();
   if ( !newSources_.mayCome( upcall.vif, now ) ) return;
   const bool registers = !isOwn( config_.router, rp );
   if ( registers && vifs_.registersIs() )
      mfib_->handleVifs( VifSet().set( kRegisterVif ) );
   mfib_->first( key, upcall.vif, registers );
}

// A packet that went out by the register vif: of a source on a link of this router, or
// the first one of a source on the shared tree, which has been forwarded, too.
void Family::takePacket( Upcall& upcall ) {
   const auto& model = mirror_.model();
   if ( std::as_const( *model ).route( upcall.key ) != nullptr ) {
      releaseKept();
      return encapsulate( upcall.key, upcall.packet );
   }
   if ( mfib_->isProvisional( upcall.key ) ) {
      if ( !newSources_.keep( upcall.key, std::move( upcall.packet ),
                              clock_.now() ) )
         unregistered_.inc();
      return;
   }
   const Vantu::IntfId incoming = mfib_->follow( upcall.key );
   if ( incoming.empty() ) return;
   upcalls_.add( { upcall.key, incoming }, Published::sharedTreeUpcall,
                 clock_.now() );
}

void Family::releaseKept() {
   if ( !newSources_.waiting() ) return;
   newSources_.release(
      clock_.now(),
      [this]( const auto& key ) {
         const auto* route = std::as_const( *mirror_.model() ).route( key );
         return route != nullptr && route->oifRegister();
      },
      [this]( const auto& key, NewSources::Packet& packet, bool registers ) {
         if ( registers ) return encapsulate( key, packet );
         unregistered_.inc();
      } );
}

// Without an RP, or while the RP wants none, nothing is sent.
void Family::encapsulate( const Routing::Pim::RouteKey& key,
                          Router::Bytes packet ) {
   const auto* route = std::as_const( *mirror_.model() ).route( key );
   const Vantu::IpGenAddr rp = topology_.rpOf( key.group );
   const Vantu::IpGenAddr source = Router::registerSource(
      config_.router, route->incomingIntf(), config_.family );
   const bool wanted = route->oifRegister() && registers_ != nullptr &&
                       !rp.isUnspecified() && !source.isUnspecified();
   if ( wanted && !withinRate() ) return limited_.inc();
   if ( wanted && tooBig_ != nullptr &&
        tooBig_->check( key, packet,
                        Router::globalAddress(
                           config_.router, route->incomingIntf(), config_.family ),
                        rp, clock_.now() ) )
      tooBigs_.inc();
   const bool sent = wanted && registers_->send( packet, source, rp ) == 0;
   ( sent ? registered_ : unregistered_ ).inc();
}

bool Family::withinRate() {
   constexpr double kInterval = 1.0;
   const uint32_t limit = config_.router.registerRateLimit;
   if ( limit == 0 ) return true;
   const double now = clock_.now();
   if ( now >= rateSince_ + kInterval ) {
      rateSince_ = now;
      rateCount_ = 0;
   }
   return rateCount_++ < limit;
}

void Family::hearRegisters() {
   if ( registers_ == nullptr ) return;
   const auto& sets = config_.router.anycastRps;
   const bool passesOn =
      std::any_of( sets.begin(), sets.end(), [this]( const auto& set ) {
         return set.address.family() == config_.family;
      } );
   const bool hears = passesOn || !filters_.registers().all();
   registers_->hearing().wantedIs( hears ? Registers::Wanted::data
                                         : Registers::Wanted::nothing );
}

void Family::takeRegisters() {
   for ( unsigned count = 0; count < maxUpcallsATurn; ++count ) {
      const auto packet = registers_->hearing().next();
      if ( !packet ) return;
      takeRegister( *packet );
   }
}

// The kernel itself forwards what is in it, whoever sent it.
void Family::takeRegister( const Router::IpPacket& packet ) {
   Router::PimMessage message;
   if ( decodePim( packet, message ) != Router::notDropped ) return;
   const auto* data = std::get_if<Router::PimRegister>( &message.body );
   if ( data == nullptr || !isOwn( config_.router, packet.destination ) ||
        isOwn( config_.router, packet.source ) ||
        !isOwn( config_.router, topology_.rpOf( data->group ) ) ||
        Router::refusalOfRoute( data->source, data->group ) )
      return;
   if ( filters_.registers().permits( data->source, data->group ) )
      return passOn( packet, *data );
   // Into the kernel's (*,G) entry anybody's packets would fit.
   mfib_->bar( { data->source, data->group } );
}

// The others of an anycast RP get it once, from whom it reached first (RFC 4610).
void Family::passOn( const Router::IpPacket& packet,
                     const Router::PimRegister& data ) {
   const auto* set = Router::anycastRp( config_.router, packet.destination );
   if ( set == nullptr || set->has( packet.source ) ||
        topology_.rpOf( data.group ) != packet.destination )
      return;
   const Router::Bytes inner = packet.payload.subspan( Router::registerHeader );
   for ( const Vantu::IpGenAddr& peer : set->peers )
      ( registers_->pass( inner, set->local, peer ) == 0 ? passedOn_
                                                         : unregistered_ )
         .inc();
}

bool Family::agentSends() const {
   bool sends = false;
   agent_->interface().visit( [&]( const Published::Interface& record ) {
      sends = record.speaks;
      return !sends;
   } );
   return sends;
}

// Entries of sources that have no route and are silent.
void Family::endSilent() {
   if ( !mfib_->hasStandIns() ) return;
   kernel_->visit( [&]( const StandingEntry& entry ) {
      if ( entry.idle > Mfib::idleTime ) mfib_->endStandIn( entry.key );
   } );
}

void Family::counterIntervalIs( double seconds ) {
   settingIs( MfibStatus::countersSetting, fmt::format( "{}", seconds ) );
}

void Family::settingIs( const char* name, const std::string& value ) {
   published_->settingIs(
      { Published::Text<32>( name ), Published::Text<224>( value ) } );
}

void Family::publishCounters() {
   vifs_.publishCounters();
   if ( !mfib_->started() ) return;
   mfib_->copiesIs( filters_.leavesSharedTrees() && agentSends() );
   endSilent();
   publishEntryCounters(
      *kernel_, *published_,
      [this]( const Routing::Pim::RouteKey& key ) { return mfib_->has( key ); },
      clock_.now() );
}

void Family::start() {
   constexpr int kTries = 3;
   std::vector<StandingEntry> standing;
   for ( int i = 0; i < kTries; ++i ) {
      standing.clear();
      if ( kernel_->visit(
              [&]( const StandingEntry& entry ) { standing.push_back( entry ); } ) )
         break;
   }
   mfib_->start( standing, unsure_ );
}

// Reports a lasting problem once. Both tables mostly have the same, one after the
// other: behind the path their texts are equal.
void Family::tellProblem() {
   std::string problem = mirror_.tables()->route().control()->problem();
   if ( problem.empty() )
      problem = mirror_.tables()->routeIntf().control()->problem();
   const std::string kind = problem.substr( problem.find( ": " ) + 1 );
   if ( kind == problem_ ) return;
   problem_ = kind;
   if ( !problem.empty() ) say_( problem );
}

void Family::handleTurnEnd() {
   tellProblem();
   // Missing tables load as empty ones, which would remove the kernel's entries.
   if ( !mfib_->started() && mirror_.loaded() ) start();
   if ( !mfib_->started() ) return;
   mfib_->write();
   releaseKept();
   if ( mfib_->needsRegisters() && vifs_.registersIs() ) {
      mfib_->handleVifs( VifSet().set( kRegisterVif ) );
      mfib_->write();
   }
   if ( told_ || !mfib_->idle() ) return;
   told_ = true;
   say_( fmt::format( "in step: {} entries, {} written, {} removed", mfib_->size(),
                      mfib_->written(), mfib_->removed() ) );
}

}
