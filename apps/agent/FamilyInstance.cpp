#include "apps/agent/FamilyInstance.h"

#include <algorithm>
#include <set>

#include "apps/agent/MountNotes.h"
#include "engine/Advertised.h"
#include "published/Vrfs.h"

namespace Agent {

namespace Sm = Routing::Pim::SparseMode;

namespace {

constexpr double kReviewSlice = 0.01;  // s

}

FamilyInstance::FamilyInstance( Vantu::AddressFamily family,
                                const VrfConfig& config,
                                Corvex::EntityManager& manager, Mox::Clock& real,
                                AgentClock& clock, RouterCounters& counters,
                                const KernelRoutes* kernelRoutes )
   : family_( family ),
     config_( config ),
     clock_( clock ),
     counters_( counters ),
     writerClock_( real, [this] { return mayWrite(); } ),
     vrf_( manager, real, family, config.name,
           { config.maxRoutes, config.maxRouteIntfs, &writerClock_ } ),
     counting_( vrf_.model() ),
     pimStatus_( Mox::newEntity<Routing::Pim::Status>() ),
     protocol_(
        family, config_, vrf_.model(), pimStatus_, vrf_.registers(), clock,
        counters,
        [this, kernelRoutes]( const Vantu::IpGenAddr& address ) {
           return hostRoute( kernelRoutes, address );
        },
        [this] { publishDue_ = true; },
        [this]( const auto& key, Vantu::IntfId intfId ) {
           markExport( key, intfId );
        } ),
     mfib_( Published::MfibStatus::mount(
               manager, Published::MfibStatus::mountPath( family, config.name ),
               ::Brane::tableReader ),
            vrf_.model(), protocol_, real ),
     tally_( real, vrf_.model(), vrf_.tables(),
             [this]( const auto& rp ) { return isOwn( config_, rp ); } ),
     real_( real ),
     resume_( &real ),
     familyCounters_( vrf_.tables()->name(), real.now() ) {
   vrf_.model()->pimStatusIs( pimStatus_ );
   adoptNeighbors();
}

// Where the VRF's reverse paths come from the kernel's routes, too.
std::optional<HostRoute> FamilyInstance::hostRoute(
   const KernelRoutes* routes, const Vantu::IpGenAddr& address ) const {
   if ( routes == nullptr || !config_.kernelRpf ) return std::nullopt;
   auto found = routes->find( config_.routeTable, address );
   if ( !found ) return std::nullopt;
   const KernelRoute& route = found->route;
   return HostRoute{ found->length, route.interface, route.neighbor,
                     route.connected, route.metric };
}

FamilyInstance::~FamilyInstance() = default;

std::vector<std::string> FamilyInstance::mountNotes() const {
   return Agent::mountNotes(
      "vrf " + config_.name.name() + ' ' + Vantu::valueToStrep( family_ ),
      vrf_.entities() );
}

void FamilyInstance::adopt() {
   adopted_ = true;
   familyCounters_.reloaded( vrf_.model()->route().size(), real_.now() );
   protocol_.adopt( [this]( const Routing::Pim::RouteIntfKey& key ) {
      Published::Downstream kept{ key };
      vrf_.published()->downstream().find( key, kept );
      return kept;
   } );
   markAllTimers();
   mfib_.adopted();
   tally_.touch();
   publishAdvertised( *vrf_.advertised(), config_, family_, counters_ );
   for ( auto& receive : std::exchange( waiting_, {} ) ) receive();
}

void FamilyInstance::configIs( const VrfConfig& config ) {
   config_ = config;
   publishDue_ = true;
   protocol_.configChanged();
   if ( !adopted_ ) return;
   publishAdvertised( *vrf_.advertised(), config_, family_, counters_ );
}

void FamilyInstance::retire() {
   vrf_.retire();
}

void FamilyInstance::removeTables( const std::string& root,
                                   Vantu::AddressFamily family,
                                   const L3::VrfName& vrf ) {
   Sm::VrfWriter::removeTables( root, family, vrf );
}

// Before anything is published: the DR of a link is the one it was.
void FamilyInstance::adoptNeighbors() {
   for ( const Published::NeighborKey& key : vrf_.published()->neighbor().keys() ) {
      Published::Neighbor record;
      if ( vrf_.published()->neighbor().find( key, record ) !=
           ::Brane::lookupFound )
         continue;
      PimHello hello;
      if ( record.hasDrPriority ) hello.drPriority = record.drPriority;
      if ( record.hasGenerationId ) hello.generationId = record.generationId;
      if ( record.hasLanPruneDelay )
         hello.lanPruneDelay = { record.trackingSupport,
                                 static_cast<uint16_t>( record.propagationDelay ),
                                 static_cast<uint16_t>( record.overrideInterval ) };
      std::optional<double> until;
      if ( record.until != 0.0 ) {
         hello.holdtime = static_cast<uint16_t>( record.holdtime );
         until = record.until;
      }
      protocol_.adoptNeighbor( key.intfId, key.address, hello, until );
   }
}

void FamilyInstance::publishNeighbors() {
   std::vector<Published::Neighbor> neighbors;
   for ( const auto& [intfId, link] : protocol_.links() ) {
      for ( const auto& [address, neighbor] : link.neighbors->all() ) {
         const PimHello& hello = neighbor.hello;
         LanPruneDelay delay = hello.lanPruneDelay.value_or( LanPruneDelay() );
         neighbors.push_back( { { intfId, address, 0 },
                                hello.drPriority.has_value(),
                                hello.drPriority.value_or( 0 ),
                                hello.generationId.has_value(),
                                hello.generationId.value_or( 0 ),
                                hello.lanPruneDelay.has_value(),
                                delay.propagationDelay,
                                delay.overrideInterval,
                                delay.trackingSupport,
                                hello.holdtime.value_or( static_cast<uint16_t>(
                                   Neighbors::defaultHoldtime ) ),
                                neighbor.expiry->until() } );
      }
   }
   Published::publishNeighbors( *vrf_.published(), neighbors );
}

// Whatever stands or was left.
void FamilyInstance::markAllTimers() {
   for ( const auto& key : vrf_.published()->downstream().keys() )
      timersDue_.insert( key );
   for ( const Sm::Route& route : std::as_const( *vrf_.model() ).route() ) {
      for ( const Sm::Intf& intf : route.routeIntf() )
         timersDue_.insert( { route.key(), intf.intfId() } );
   }
}

// Before the states that they belong to: one that is in the tables without its timers
// would live for another time.
void FamilyInstance::publishTimers() {
   for ( const auto& key : std::exchange( timersDue_, {} ) )
      Published::publishDownstream( *vrf_.published(), protocol_.timers( key ) );
}

// What a reader needs to see what the agent saw.
void FamilyInstance::publish() {
   std::vector<Published::Interface> interfaces;
   for ( const auto& [intfId, link] : protocol_.links() ) {
      const Routing::Pim::Intf& intf = *pimStatus_->intf( intfId );
      interfaces.push_back( { intfId, intf.addr().address, intf.addr().prefixLength,
                              intf.iAmDr(),
                              static_cast<uint32_t>( link.neighbors->size() ) } );
   }
   Published::publishInterfaces( *vrf_.published(), interfaces );
   publishNeighbors();
   std::vector<Published::Rp> rps;
   for ( const RpConfig& rp : config_.rps ) {
      if ( rp.address.family() != family_ ) continue;
      for ( const Vantu::IpGenPrefix& range : rp.groups )
         rps.push_back(
            { { range.address(), static_cast<uint32_t>( range.length() ) },
              rp.address,
              isOwn( config_, rp.address ) } );
   }
   Published::publishRps( *vrf_.published(), rps );
   const bool ipv4 = family_ == Vantu::AddressFamily::ipv4;
   const std::string& ssmFilter = ipv4 ? config_.ssmFilter : config_.ssmFilter6;
   const std::string& frrFilter = ipv4 ? config_.frrFilter : config_.frrFilter6;
   std::vector<Published::AccessRule> rules;
   for ( const AccessListConfig& list : config_.accessLists ) {
      if ( list.name != ssmFilter && list.name != frrFilter ) continue;
      for ( const Acl::AclRule& rule : list.rules.rules() ) {
         rules.push_back( { { Published::Text<224>( list.name ), rule.sequence, 0 },
                            list.rules.type(),
                            rule.action,
                            rule.source,
                            rule.destination } );
      }
   }
   Published::publishAccessRules( *vrf_.published(), rules );
   auto setting = []( const char* name, const std::string& value ) {
      return Published::Setting{ Published::Text<32>( name ),
                                 Published::Text<224>( value ) };
   };
   Published::publishSettings(
      *vrf_.published(),
      { setting( "maxRoutes", std::to_string( config_.maxRoutes ) ),
        setting( "maxRouteIntfs", std::to_string( config_.maxRouteIntfs ) ),
        setting( "require-hello", config_.requireHello ? "yes" : "no" ),
        setting( "ssmFilter", ssmFilter ), setting( "frrFilter", frrFilter ),
        // Where fewer found room, what the lists say is not known.
        setting( "access-rules", std::to_string( rules.size() ) ) } );
}

void FamilyInstance::receive( Vantu::IntfId intfId, const IpPacket& packet,
                              const Message& message ) {
   if ( adopted_ ) return protocol_.receive( intfId, packet, message );
   if ( waiting_.size() >= maxWaiting ) return counters_.refused( tooManyWaiting );
   IpPacket kept = packet;
   kept.payload = {};  // the frame does not wait; the message holds what it said
   waiting_.push_back( [this, intfId, kept, message] {
      protocol_.receive( intfId, kept, message );
   } );
}

// A slice. Does forwarding follow all that has changed?
bool FamilyInstance::review() {
   if ( protocol_.pending() ) tally_.touch();
   const double start = real_.now();
   if ( protocol_.review( [&] { return real_.now() >= start + kReviewSlice; } ) ) {
      behindSince_.reset();
      return true;
   }
   if ( !behindSince_ ) behindSince_ = start;
   resume_.wakeupTimeIs( start );
   return false;
}

// People read join, prune and assert states and their times in the tables: none waits for
// a change that the writer marks by itself. Whatever is reloaded has its marks.
void FamilyInstance::markExport( const Routing::Pim::RouteKey& key,
                                 Vantu::IntfId intfId ) {
   if ( !adopted_ ) return;
   if ( intfId.empty() ) {
      vrf_.writer().changeSet()->routeIs( key, true );
   } else {
      timersDue_.insert( { key, intfId } );
      vrf_.writer().changeSet()->routeIntfIs( { key, intfId }, true );
   }
}

// Readers see no route on which an engine's change stands and what follows from it does
// not. Whoever floods a link with changes must not keep all others from the tables.
bool FamilyInstance::mayWrite() {
   const bool may =
      !adopted_ || review() || real_.now() - *behindSince_ >= maxBehind;
   publishTimers();
   return may;
}

void FamilyInstance::handleTurnEnd() {
   if ( adopted_ ) review();
   publishTimers();
   familyCounters_.follow( vrf_.writer() );
   if ( std::exchange( publishDue_, false ) ) publish();
   vrf_.handleTurnEnd();
}

bool FamilyInstance::published() const {
   return !protocol_.pending() && timersDue_.empty() && vrf_.idle();
}

}
