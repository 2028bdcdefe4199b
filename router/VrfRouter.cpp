#include "router/VrfRouter.h"

#include "engine/Advertised.h"
#include "published/Publisher.h"
#include "router/Publishing.h"

namespace Router {

namespace Sm = Routing::Pim::SparseMode;

namespace {

constexpr double kReviewSlice = 0.01;  // s
// The system may have space again at any time, without a notice.
constexpr double kRetryInterval = 1.0;  // s

Journal::Sink ofVrf( Journal::Sink sink, Vantu::AddressFamily family,
                     const L3::VrfName& vrf ) {
   if ( !sink ) return {};
   const uint32_t ipVersion = family == Vantu::AddressFamily::ipv4 ? 4 : 6;
   return [sink = std::move( sink ), ipVersion,
           name = Published::Text<104>( vrf.name() )]( Published::Event event ) {
      event.vrf = name;
      event.ipVersion = ipVersion;
      sink( event );
   };
}

}

class VrfRouter::Retry : public Mox::Clock::Notifiee {
 public:
   Retry( Mox::Clock& clock, VrfRouter& router )
      : Notifiee( &clock ), router_( router ) {}
   void onTime() override { router_.retryRefused(); }

 private:
   VrfRouter& router_;
};

VrfRouter::VrfRouter( Corvex::EntityManager& manager, Mox::Clock& clock,
                      Vantu::AddressFamily family, const VrfConfig& config,
                      RouterCounters& counters, const VrfRouterOptions& options )
   : family_( family ),
     config_( config ),
     counters_( counters ),
     events_( ofVrf( options.events, family, config.name ) ),
     clock_( clock ),
     writerClock_( clock, [this] { return mayWrite(); } ),
     vrf_( manager, clock, family, config.name,
           { options.maxRoutes, options.maxRouteIntfs, &writerClock_ } ),
     pimStatus_( Mox::newEntity<Routing::Pim::Status>() ),
     protocol_( family, config_, vrf_.model(), pimStatus_, vrf_.registers(),
                options.engineClock != nullptr ? *options.engineClock : clock,
                counters,
                { options.hostRoutes, [this] { publishDue_ = true; },
                  [this]( const auto& key, Vantu::IntfId intfId, bool timers ) {
                     markExport( key, intfId, timers );
                  },
                  [this]( const auto& key ) { registeringDue_.push_back( key ); },
                  [this]( const auto& key ) { return mfib_.packetAge( key ); },
                  options.speech, events_ } ),
     mfib_( Published::MfibStatus::mount(
               manager, Published::MfibStatus::mountPath( family, config.name ),
               ::Brane::tableReader ),
            vrf_.model(), protocol_, clock ),
     tally_( clock, vrf_.model(), vrf_.tables(),
             [this]( const auto& rp ) { return isOwn( config_, rp ); } ),
     resume_( &clock ),
     familyCounters_( vrf_.tables()->name(), clock.now() ),
     retry_( std::make_unique<Retry>( clock, *this ) ) {
   vrf_.model()->pimStatusIs( pimStatus_ );
   protocol_.start( keptLinks( *vrf_.published() ) );
   adoptNeighbors( protocol_, *vrf_.published() );
}

VrfRouter::~VrfRouter() = default;

void VrfRouter::tell( Published::EventKind kind, uint32_t value ) {
   if ( !events_ ) return;
   Published::Event event;
   event.kind = kind;
   event.value = value;
   events_( event );
}

void VrfRouter::adopt() {
   MOX_ASSERT( ready() && !adopted_ );
   adopted_ = true;
   familyCounters_.reloaded( vrf_.model()->route().size(), clock_.now() );
   tell( Published::started,
         static_cast<uint32_t>( vrf_.model()->route().size() ) );
   resuming_ = true;
   protocol_.adopt(
      [this]( const Routing::Pim::RouteIntfKey& key ) {
         Published::Downstream kept{ key };
         const auto& table = vrf_.published()->downstream();
         if ( table.find( key, kept ) != ::Brane::lookupFound )
            timersDue_.push_back( key );
         return kept;
      },
      [this]( const Routing::Pim::RouteKey& key )
         -> std::optional<RegisterSender::Kept> {
         Published::Registering record;
         const auto& table = vrf_.published()->registering();
         if ( table.find( key, record ) != ::Brane::lookupFound )
            return std::nullopt;
         return RegisterSender::Kept{ record.probing, record.until };
      } );
   resuming_ = false;
   formerTimersDue_ = true;
   mfib_.adopted();
   tally_.touch();
   publishAdvertised( *vrf_.advertised(), config_, family_, counters_ );
   for ( auto& receive : std::exchange( waiting_, {} ) ) receive();
}

void VrfRouter::configIs( const VrfConfig& config ) {
   config_ = config;
   publishDue_ = true;
   tell( Published::configurationRead );
   protocol_.configChanged();
   if ( !adopted_ ) return;
   publishAdvertised( *vrf_.advertised(), config_, family_, counters_ );
}

// Publishes a slice of the timers that the former process left, where they run
// otherwise by now or have no state any more.
void VrfRouter::reviewFormerTimers() {
   const double start = clock_.now();
   if ( !formerTimers_ ) formerTimers_.emplace( vrf_.published()->downstream() );
   bool over = false;
   formerTimersDue_ =
      !formerTimers_->advance( [&]( const Published::Downstream& former ) {
         if ( over ) return false;
         if ( protocol_.timers( former.key ) != former &&
              !publishTimersOf( former.key ) )
            timersRefused_.insert( former.key );
         over = clock_.now() >= start + kReviewSlice;
         return true;
      } );
   if ( formerTimersDue_ ) return resume_.wakeupTimeIs( start );
   formerTimers_.reset();
}

// Timers go before their states: a state in the tables without its timers would get
// another lifetime.
void VrfRouter::publishTimers() {
   for ( const auto& key : std::exchange( timersDue_, {} ) )
      if ( !publishTimersOf( key ) ) timersRefused_.insert( key );
   for ( const auto& key : std::exchange( registeringDue_, {} ) )
      if ( !publishRegisteringOf( key ) ) registeringRefused_.insert( key );
}

bool VrfRouter::publishTimersOf( const Routing::Pim::RouteIntfKey& key ) {
   return Published::publishDownstream( *vrf_.published(),
                                        protocol_.timers( key ) );
}

bool VrfRouter::publishRegisteringOf( const Routing::Pim::RouteKey& key ) {
   const auto kept = protocol_.registering( key );
   Published::Registering record{ .key = key };
   if ( kept ) record = { key, kept->probing, kept->until };
   return Published::publishRegistering( *vrf_.published(), record );
}

bool VrfRouter::refused() const {
   return linksRefused_ || !timersRefused_.empty() || !registeringRefused_.empty();
}

// Up to the first that is refused again: there may be many.
void VrfRouter::retryRefused() {
   publishDue_ |= std::exchange( linksRefused_, false );
   auto each = [&]( auto& keys, auto publish ) {
      while ( !keys.empty() && ( this->*publish )( *keys.begin() ) )
         keys.erase( keys.begin() );
   };
   each( timersRefused_, &VrfRouter::publishTimersOf );
   each( registeringRefused_, &VrfRouter::publishRegisteringOf );
}

void VrfRouter::receive( Vantu::IntfId intfId, const IpPacket& packet,
                         const Message& message ) {
   if ( adopted_ ) return protocol_.receive( intfId, packet, message );
   if ( waiting_.size() >= maxWaiting ) return counters_.refused( tooManyWaiting );
   IpPacket kept = packet;
   kept.payload = {};  // the frame is not kept; the message holds its content
   waiting_.push_back( [this, intfId, kept, message] {
      protocol_.receive( intfId, kept, message );
   } );
}

// Reviews one slice. Returns whether forwarding follows all changes.
bool VrfRouter::review() {
   if ( protocol_.pending() ) tally_.touch();
   const double start = clock_.now();
   if ( protocol_.review( [&] { return clock_.now() >= start + kReviewSlice; } ) ) {
      behindSince_.reset();
      return true;
   }
   if ( !behindSince_ ) behindSince_ = start;
   resume_.wakeupTimeIs( start );
   return false;
}

// People read join, prune and assert states and their times in the tables, so these
// do not wait for a change that the writer marks by itself. Reloaded records are
// marked already.
void VrfRouter::markExport( const Routing::Pim::RouteKey& key, Vantu::IntfId intfId,
                            bool timers ) {
   if ( !adopted_ ) return;
   if ( intfId.empty() ) {
      vrf_.writer().changeSet()->routeIs( key, true );
   } else {
      if ( timers && !resuming_ ) timersDue_.push_back( { key, intfId } );
      vrf_.writer().changeSet()->routeIntfIs( { key, intfId }, true );
   }
}

// Holds the tables back while forwarding does not follow the engines' changes yet.
// This lasts only for a limited time: a flood of changes on one link must not keep
// all others out of the tables.
bool VrfRouter::mayWrite() {
   const bool may =
      !adopted_ || review() || clock_.now() - *behindSince_ >= maxBehind;
   publishTimers();
   return may;
}

void VrfRouter::handleTurnEnd() {
   if ( adopted_ ) review();
   protocol_.flush();
   publishTimers();
   if ( formerTimersDue_ ) reviewFormerTimers();
   familyCounters_.follow( vrf_.writer() );
   if ( std::exchange( publishDue_, false ) ) {
      auto& tables = *vrf_.published();
      linksRefused_ =
         !publishLinks( tables, family_, config_, protocol_, *pimStatus_ );
      linksRefused_ |= !publishConfig( tables, family_, config_ );
   }
   if ( refused() && retry_->wakeupTime() == Mox::Clock::never )
      retry_->wakeupTimeIs( clock_.now() + kRetryInterval );
   vrf_.handleTurnEnd();
}

bool VrfRouter::published() const {
   return !protocol_.pending() && timersDue_.empty() && !formerTimersDue_ &&
          vrf_.idle();
}

}
