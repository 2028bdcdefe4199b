#include "apps/agent/FamilyInstance.h"

#include <algorithm>
#include <set>

#include "apps/agent/engine/Advertised.h"

namespace Agent {

namespace Sm = Routing::Pim::SparseMode;

namespace {

constexpr double kReviewSlice = 0.01;  // s

Vantu::IpGenAddr allPimRouters( Vantu::AddressFamily family ) {
   static const Vantu::IpGenAddr v4( "224.0.0.13" );
   static const Vantu::IpGenAddr v6( "ff02::d" );
   return family == Vantu::AddressFamily::ipv4 ? v4 : v6;
}

Mox::Ptr<Sm::Status> newModel( const VrfConfig& config ) {
   Mox::Ptr<Sm::Status> model = Sm::statusFactory( config.name );
   model->maxRoutesIs( config.maxRoutes );
   model->maxRouteIntfsIs( config.maxRouteIntfs );
   return model;
}

}

FamilyInstance::FamilyInstance( Vantu::AddressFamily family,
                                const VrfConfig& config,
                                Corvex::EntityManager& manager, Mox::Clock& real,
                                AgentClock& clock, AgentCounters& counters )
   : family_( family ),
     config_( config ),
     manager_( manager ),
     clock_( clock ),
     counters_( counters ),
     topology_( config_ ),
     model_( newModel( config ) ),
     counting_( model_ ),
     pimStatus_( Mox::newEntity<Routing::Pim::Status>() ),
     tables_( Sm::Brane::Status::mountInDependencyOrder(
        manager, Sm::Brane::Status::mountPath( family, config.name ),
        ::Brane::tableWriter, model_.get() ) ),
     registers_( Sm::RegisterStatus::mount(
        manager, Sm::RegisterStatus::mountPath( family, config.name ),
        ::Brane::tableWriter, Sm::RegisterCapacities( *model_ ) ) ),
     advertised_( Sm::AdvertisedSgStatus::mount(
        manager, Sm::AdvertisedSgStatus::mountPath( family, config.name ),
        ::Brane::tableWriter, Sm::AdvertisedSgStatus::capacityFor( *model_ ) ) ),
     policy_( family, config ),
     routes_( model_, clock, topology_, &policy_ ),
     engine_( routes_, clock, topology_, &policy_, counters ),
     forwarding_( model_ ),
     registering_( registers_, clock, topology_, config_, counters ),
     real_( real ),
     resume_( &real ),
     published_( Published::FamilyStatus::mount(
        manager, Published::FamilyStatus::mountPath( family, config.name ),
        ::Brane::tableWriter ) ) {
   model_->pimStatusIs( pimStatus_ );
   updateLinks();
   // The reconciler first: it alone writes until the model is initialized.
   restart_ = Sm::Brane::routeBraneRestartSmFactory( model_, tables_,
                                                     ::Brane::tableWriter, &real );
   writer_ = Sm::Brane::routeBraneWriterSmFactory( model_, tables_, &real );
}

FamilyInstance::~FamilyInstance() = default;

std::vector<std::string> FamilyInstance::mountNotes() const {
   std::vector<std::string> notes;
   auto add = [&]( const MoxBrane::MountedEntity& entity ) {
      for ( const MoxBrane::TableBase* table : entity.tables() ) {
         const std::string& problem = table->control()->problem();
         if ( !problem.empty() ) notes.push_back( problem );
      }
   };
   add( *tables_ );
   add( *registers_ );
   add( *advertised_ );
   add( *published_ );
   return notes;
}

void FamilyInstance::updateLinks() {
   std::set<Vantu::IntfId> gone;
   for ( const auto& [intfId, link] : links_ ) gone.insert( intfId );
   for ( const InterfaceConfig& interface : config_.interfaces ) {
      updateLink( interface );
      auto link = links_.find( interface.name );
      if ( link != links_.end() && !link->second.own.empty() )
         gone.erase( interface.name );
   }
   for ( Vantu::IntfId intfId : gone ) removeLink( intfId );
}

// The first address of the family is PIM's. An interface without one gets no link;
// an existing link is left without addresses.
void FamilyInstance::updateLink( const InterfaceConfig& interface ) {
   std::vector<Vantu::IpGenAddr> own;
   Routing::Pim::IntfAddr primary;
   for ( const InterfaceAddress& each : interface.addresses ) {
      if ( each.address.family() != family_ ) continue;
      if ( own.empty() )
         primary = { each.address, static_cast<uint8_t>( each.subnet.length() ) };
      own.push_back( each.address );
   }
   auto found = links_.find( interface.name );
   if ( own.empty() ) {
      if ( found != links_.end() ) found->second.own.clear();
      return;
   }
   pimStatus_->intfIs( interface.name )->addrIs( primary );
   Link& link = links_[interface.name];
   link.own = own;
   if ( link.neighbors == nullptr ) {
      link.neighbors = std::make_unique<Neighbors>(
         clock_, own.front(), interface.drPriority,
         [this, name = interface.name] { updateDr( name ); } );
      updateDr( interface.name );
   } else {
      link.neighbors->ownIs( own.front(), interface.drPriority );
   }
}

void FamilyInstance::removeLink( Vantu::IntfId intfId ) {
   links_.erase( intfId );
   engine_.handleIntfGone( intfId );
   pimStatus_->intfDel( intfId );
}

void FamilyInstance::adopt() {
   adopted_ = true;
   routes_.adopt();
   engine_.adopt();
   for ( Vantu::IntfId intfId : engine_.recordedIntfs() ) {
      if ( links_.count( intfId ) == 0 ) engine_.handleIntfGone( intfId );
   }
   registering_.adopt();
   publishAdvertised( *advertised_, config_, family_, counters_ );
   for ( auto& receive : std::exchange( waiting_, {} ) ) receive();
}

void FamilyInstance::configIs( const VrfConfig& config ) {
   config_ = config;
   policy_.configIs( config );
   publishDue_ = true;
   updateLinks();
   if ( !adopted_ ) return;
   engine_.endSourceSpecific();
   routes_.updatePaths();
   registering_.updateConfig();
   publishAdvertised( *advertised_, config_, family_, counters_ );
}

void FamilyInstance::retire() {
   manager_.removeTables( tables_->name() );
   manager_.removeTables( registers_->name() );
   manager_.removeTables( advertised_->name() );
   manager_.removeTables( published_->name() );
}

// What a reader needs to see what the agent saw.
void FamilyInstance::publish() {
   std::vector<Published::Interface> interfaces;
   for ( const auto& [intfId, link] : links_ ) {
      const Routing::Pim::Intf& intf = *pimStatus_->intf( intfId );
      interfaces.push_back( { intfId, intf.addr().address, intf.addr().prefixLength,
                              intf.iAmDr(),
                              static_cast<uint32_t>( link.neighbors->size() ) } );
   }
   Published::publishInterfaces( *published_, interfaces );
   std::vector<Published::Rp> rps;
   for ( const RpConfig& rp : config_.rps ) {
      if ( rp.address.family() != family_ ) continue;
      for ( const Vantu::IpGenPrefix& range : rp.groups )
         rps.push_back(
            { { range.address(), static_cast<uint32_t>( range.length() ) },
              rp.address } );
   }
   Published::publishRps( *published_, rps );
   const bool ipv4 = family_ == Vantu::AddressFamily::ipv4;
   auto setting = []( const char* name, const std::string& value ) {
      return Published::Setting{ Published::Text<32>( name ),
                                 Published::Text<224>( value ) };
   };
   Published::publishSettings(
      *published_,
      { setting( "maxRoutes", std::to_string( config_.maxRoutes ) ),
        setting( "maxRouteIntfs", std::to_string( config_.maxRouteIntfs ) ),
        setting( "require-hello", config_.requireHello ? "yes" : "no" ),
        setting( "ssmFilter", ipv4 ? config_.ssmFilter : config_.ssmFilter6 ),
        setting( "frrFilter", ipv4 ? config_.frrFilter : config_.frrFilter6 ) } );
}

void FamilyInstance::updateDr( Vantu::IntfId intfId ) {
   publishDue_ = true;
   pimStatus_->intfIs( intfId )->iAmDrIs( links_.at( intfId ).neighbors->iAmDr() );
}

void FamilyInstance::receive( Vantu::IntfId intfId, const IpPacket& packet,
                              const PimMessage& message ) {
   if ( adopted_ ) return receiveNow( intfId, packet, message );
   if ( waiting_.size() >= maxWaiting ) return counters_.refused( tooManyWaiting );
   IpPacket kept = packet;
   kept.payload = {};  // the frame does not wait; the message holds what it said
   waiting_.push_back(
      [this, intfId, kept, message] { receiveNow( intfId, kept, message ); } );
}

void FamilyInstance::receiveNow( Vantu::IntfId intfId, const IpPacket& packet,
                                 const PimMessage& message ) {
   auto found = links_.find( intfId );
   if ( found == links_.end() ) return counters_.refused( noAddress );
   // Unicast, and of a register one of this router's own counts.
   if ( const auto* got = std::get_if<PimRegister>( &message.body ) )
      return registering_.receive( packet, *got );
   if ( const auto* got = std::get_if<PimRegisterStop>( &message.body ) )
      return registering_.receive( packet, *got );
   Link& link = found->second;
   if ( std::find( link.own.begin(), link.own.end(), packet.source ) !=
        link.own.end() ) {
      return counters_.refused( ownPacket );
   }
   const auto* hello = std::get_if<PimHello>( &message.body );
   const auto* joinPrune = std::get_if<PimJoinPrune>( &message.body );
   if ( hello == nullptr && joinPrune == nullptr ) {
      return counters_.refused( otherType );
   }
   if ( packet.destination != allPimRouters( family_ ) ) {
      return counters_.refused( notToAllRouters );
   }
   if ( hello != nullptr )
      return link.neighbors->receiveHello( packet.source, *hello );
   receiveJoinPrune( intfId, link, packet, *joinPrune );
}

void FamilyInstance::receiveJoinPrune( Vantu::IntfId intfId, const Link& link,
                                       const IpPacket& packet,
                                       const PimJoinPrune& message ) {
   if ( config_.requireHello && !link.neighbors->has( packet.source ) ) {
      return counters_.refused( unknownNeighbor );
   }
   if ( std::find( link.own.begin(), link.own.end(), message.upstreamNeighbor ) ==
        link.own.end() ) {
      return counters_.refused( otherUpstream );
   }
   engine_.receive( intfId, *link.neighbors, message );
}

void FamilyInstance::handleTurnEnd() {
   if ( adopted_ ) {
      double end = real_.now() + kReviewSlice;
      bool done = forwarding_.review( [&] { return real_.now() >= end; } );
      if ( !done ) resume_.wakeupTimeIs( real_.now() );
   }
   if ( std::exchange( publishDue_, false ) ) publish();
   writer_->doMaybeUpdateReviewTimer();
}

bool FamilyInstance::published() const {
   return !forwarding_.pending() && writer_->reviewChangeSet().empty() &&
          writer_->changeSet().empty();
}

}
