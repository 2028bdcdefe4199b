#include "apps/agent/Agent.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <malloc.h>

#include <algorithm>
#include <set>
#include <utility>

#include "apps/agent/wire/Present.h"
#include "apps/config/ConfigReader.h"
#include "published/Vrfs.h"

namespace Agent {
namespace {

constexpr double kReplaySlice = 0.01;  // s

using Vantu::AddressFamily;
constexpr AddressFamily kFamilies[] = { AddressFamily::ipv4, AddressFamily::ipv6 };

bool hasFamily( const VrfConfig& vrf, AddressFamily family ) {
   for ( const InterfaceConfig& interface : vrf.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( own.address.family() == family ) return true;
      }
   }
   return false;
}

std::map<L3::VrfName, const VrfConfig*> byName( const AgentConfig& config ) {
   std::map<L3::VrfName, const VrfConfig*> out;
   for ( const VrfConfig& vrf : config.vrfs ) out.emplace( vrf.name, &vrf );
   return out;
}

std::set<uint32_t> kernelTables( const AgentConfig& config ) {
   std::set<uint32_t> tables;
   for ( const VrfConfig& vrf : config.vrfs ) {
      if ( vrf.kernelRpf ) tables.insert( vrf.routeTable );
   }
   return tables;
}

}

Agent::Agent( Mox::Loop& loop, AgentOptions options )
   : options_( std::move( options ) ),
     loop_( loop ),
     real_( loop ),
     clock_( real_ ),
     manager_( real_, &loop, options_.root ),
     published_(
        real_, Published::ProcessStatus::mount( manager_, ::Brane::tableWriter ) ),
     kernelRoutes_( loop, real_,
                    [this] {
                       for ( const auto& family : families_ )
                          family->router().pathsChanged();
                    } ),
     replay_( options_.captures ) {
   manager_.noteHandlerIs( options_.note );
   openLog();
   for ( const std::string& problem : bindCaptures() ) throw ConfigError( problem );
   kernelRoutes_.tablesAre( kernelTables( options_.config ) );
   if ( options_.speak ) {
      wire_.emplace( loop_, real_, options_.note, [this] { followPresence(); } );
      counters_.onRefusedIs( [this]( Refusal reason ) {
         if ( heardBy_ != nullptr )
            wire_->counters().refused( heardBy_->vrf, heardBy_->interface, reason );
      } );
   }
   Families made;
   addFamilies( options_.config, made );
   familiesAre( std::move( made ) );
   if ( families_.empty() ) throw ConfigError( noAddressText );
   if ( !options_.assumed ) removeLeftovers();
   followLinks();
   for ( const std::string& interface : listenedOn() )
      live_.emplace( interface, listen( interface ) );
   turnEnd_.emplace( loop_, [this] { handleTurnEnd(); } );
}

Agent::~Agent() = default;

// What the engines get of the configuration.
VrfConfig Agent::present( const VrfConfig& vrf, AddressFamily family ) const {
   return wire_ ? presentConfig( vrf, family, wire_->links() ) : vrf;
}

// An interface that comes is heard before it speaks.
void Agent::followPresence() {
   for ( const auto& [name, live] : live_ ) live->retry();
   const auto configs = byName( options_.config );
   for ( const auto& family : families_ ) {
      const VrfConfig next =
         present( *configs.at( family->config().name ), family->family() );
      if ( next.interfaces != family->config().interfaces )
         family->configIs( next );
   }
}

void Agent::leave() {
   for ( const auto& family : families_ ) family->leave();
}

// A log that cannot be is no reason not to route.
void Agent::openLog() {
   if ( options_.logEntries == 0 ) return;
   try {
      log_.emplace( manager_, Published::agentLog, clock_, options_.logEntries );
      if ( !log_->problem().empty() )
         options_.note( "the event log begins anew: " + log_->problem() );
   } catch ( const ::Brane::CreateError& e ) {
      options_.note( std::string( "events are not logged: " ) + e.what() );
   }
}

Journal::Sink Agent::events() {
   if ( !log_ ) return {};
   return [this]( const Published::Event& event ) { log_->add( event ); };
}

void Agent::tellEnd() {
   if ( !log_ ) return;
   Published::Event event;
   event.kind = Published::ended;
   log_->add( event );
   log_->flush();
}

// Makes the configuration's families that do not exist yet. Throws the exceptions
// of mounting; `made` then holds those made before.
void Agent::addFamilies( const AgentConfig& config, Families& made ) {
   for ( const VrfConfig& vrf : config.vrfs ) {
      for ( AddressFamily family : kFamilies ) {
         if ( !hasFamily( vrf, family ) || find( vrf.name, family ) != nullptr )
            continue;
         made.push_back( std::make_unique<FamilyInstance>(
            family, present( vrf, family ), manager_, real_, clock_, counters_,
            &kernelRoutes_, wire_ ? &*wire_ : nullptr, events() ) );
      }
   }
}

// Makes all new families. On an exception makes none, and removes all traces of
// them from the tables' directory and the kernel routes.
Agent::Families Agent::newFamilies( const AgentConfig& config ) {
   Families made;
   try {
      addFamilies( config, made );
   } catch ( ... ) {
      made.clear();
      for ( const VrfConfig& vrf : config.vrfs ) {
         for ( AddressFamily family : kFamilies ) {
            if ( find( vrf.name, family ) == nullptr )
               Routing::Pim::SparseMode::VrfWriter::removeTables(
                  options_.root, family, vrf.name );
         }
      }
      kernelRoutes_.tablesAre( kernelTables( options_.config ) );
      throw;
   }
   return made;
}

// Removes the tables of VRFs that left the configuration while no agent ran.
void Agent::removeLeftovers() {
   for ( AddressFamily family : kFamilies ) {
      for ( const L3::VrfName& vrf :
            Published::vrfsUnder( options_.root, family ) ) {
         if ( find( vrf, family ) != nullptr ) continue;
         Routing::Pim::SparseMode::VrfWriter::removeTables( options_.root, family,
                                                            vrf );
         options_.note(
            fmt::format( "vrf {} {}: no longer configured, its tables are removed",
                         vrf.name(), Vantu::valueToStrep( family ) ) );
      }
   }
}

FamilyInstance* Agent::find( const L3::VrfName& vrf, AddressFamily family ) const {
   auto found = byVrf_.find( { vrf, family } );
   return found == byVrf_.end() ? nullptr : found->second;
}

void Agent::familiesAre( Families families ) {
   byVrf_.clear();
   for ( const auto& each : families )
      byVrf_.emplace( std::pair( each->config().name, each->family() ),
                      each.get() );
   families_ = std::move( families );
   if ( !wire_ ) return;
   for ( const auto& each : families_ )
      wire_->hear( each->family(),
                   [this]( const IpPacket& packet ) { receiveUnicast( packet ); } );
}

// Returns a line for each capture or interface that the configuration lacks.
std::vector<std::string> Agent::bindCaptures() {
   std::vector<std::string> problems;
   bindings_.clear();
   auto bindings = captureBindings( options_.config );
   for ( const Replay::Input& input : replay_.inputs() ) {
      bindings_[input.capture] = bindings[input.capture];
      if ( !bindings_[input.capture].interface.empty() ) continue;
      problems.push_back( fmt::format(
         "{}: capture \"{}\" is bound to no single interface; name one "
         "with --read NAME=FILE",
         input.path, input.capture ) );
   }
   for ( const std::string& name : listenedOn() ) {
      bindings_[name] = bindings[name];
      if ( bindings_[name].interface.empty() )
         problems.push_back( name + ": is no interface of the configuration" );
   }
   return problems;
}

// The interfaces of this host to listen on, by the names of their captures.
std::vector<std::string> Agent::listenedOn() const {
   if ( !options_.listen ) return options_.interfaces;
   std::vector<std::string> names;
   for ( const VrfConfig& vrf : options_.config.vrfs ) {
      for ( const InterfaceConfig& interface : vrf.interfaces ) {
         if ( !interface.addresses.empty() )
            names.push_back( vrf.capture( interface.name ) );
      }
   }
   return names;
}

// Follows the configuration; returns a line for each interface that cannot be
// heard.
std::vector<std::string> Agent::listenAnew() {
   std::vector<std::string> problems;
   auto before = std::exchange( live_, {} );
   for ( const std::string& name : listenedOn() ) {
      std::unique_ptr<LiveCapture> live = std::move( before[name] );
      try {
         live_.emplace( name, live ? std::move( live ) : listen( name ) );
      } catch ( const CaptureError& e ) {
         problems.push_back( e.what() );
      }
   }
   return problems;
}

// One subscription for all interfaces that are waited for. Made before the first is
// looked for, so that none appears unseen.
void Agent::followLinks() {
   if ( options_.interfaces.empty() && !options_.listen ) return;
   auto retryAll = [this] {
      for ( const auto& [name, live] : live_ ) live->retry();
   };
   links_.emplace(
      loop_, std::initializer_list<int>{ RTNLGRP_LINK },
      [this]( const Netlink::Message& message ) {
         if ( message.type() != RTM_NEWLINK || !message.body<ifinfomsg>() ) return;
         auto name = message.attributes<ifinfomsg>().text( IFLA_IFNAME );
         auto live = name ? live_.find( std::string( *name ) ) : live_.end();
         if ( live != live_.end() ) live->second->retry();
      },
      retryAll );
}

std::unique_ptr<LiveCapture> Agent::listen( const std::string& interface ) {
   LiveCapture::Observer observer;
   observer.packet = [this, interface]( const CapturedPacket& packet ) {
      receive( { interface, packet.link, packet.bytes.size() < packet.wireLength,
                 packet.bytes } );
   };
   observer.state = options_.note;
   observer.missed = [this]( uint64_t count ) {
      counters_.dropped( missed, count );
   };
   return std::make_unique<LiveCapture>(
      loop_, real_, interface, std::move( observer ),
      options_.listen ? LiveCapture::isWaitedFor : LiveCapture::isThere,
      wire_ ? LiveCapture::withoutRegisters : LiveCapture::withRegisters );
}

std::vector<std::string> Agent::configIs( AgentConfig config ) {
   if ( !namesAnAddress( config ) ) throw ConfigError( noAddressText );
   // Steps that may fail come first; until all follow, no VRF loses the routes that
   // it uses.
   std::set<uint32_t> tables = kernelTables( config );
   tables.merge( kernelTables( options_.config ) );
   kernelRoutes_.tablesAre( std::move( tables ) );
   Families made = newFamilies( config );
   const auto wanted = byName( config );
   std::vector<std::string> notes;
   Families kept;
   for ( auto& family : families_ ) {
      auto found = wanted.find( family->config().name );
      const VrfConfig* next = found == wanted.end() ? nullptr : found->second;
      if ( next == nullptr || !hasFamily( *next, family->family() ) ) {
         family->leave();
         continue;
      }
      if ( next->maxRoutes != family->config().maxRoutes ||
           next->maxRouteIntfs != family->config().maxRouteIntfs ) {
         notes.push_back( fmt::format(
            "vrf {} {}: its limits count from the next start on", next->name.name(),
            Vantu::valueToStrep( family->family() ) ) );
      }
      const VrfConfig there = present( *next, family->family() );
      if ( there != family->config() ) family->configIs( there );
      kept.push_back( std::move( family ) );
   }
   for ( auto& family : made ) kept.push_back( std::move( family ) );
   familiesAre( std::move( kept ) );
   options_.config = std::move( config );
   kernelRoutes_.tablesAre( kernelTables( options_.config ) );
   std::vector<std::string> unbound = bindCaptures();
   notes.insert( notes.end(), unbound.begin(), unbound.end() );
   if ( !options_.listen ) return notes;
   std::vector<std::string> unheard = listenAnew();
   notes.insert( notes.end(), unheard.begin(), unheard.end() );
   return notes;
}

std::vector<std::string> Agent::mountNotes() const {
   std::vector<std::string> notes;
   for ( const auto& family : families_ ) {
      for ( const std::string& note : family->mountNotes() )
         notes.push_back( note );
   }
   return notes;
}

void Agent::handleTurnEnd() {
   adoptReloaded();
   for ( const auto& family : families_ ) family->router().handleTurnEnd();
   published_.touch();
   if ( log_ ) log_->flush();
   if ( ready_ && started_ && replay_.atEnd() && published() ) {
      published_.publish();
      // What reloading and the first publishing took lies between what stays.
      malloc_trim( 0 );
      std::exchange( ready_, nullptr )();
   }
}

// Runs in real time before the replay: a reloaded state lives for its time from
// now, however far back the replay starts. The replay waits for all families.
void Agent::adoptReloaded() {
   bool all = true;
   for ( const auto& family : families_ ) {
      if ( family->router().ready() && !family->router().adopted() )
         family->router().adopt();
      all = all && family->router().adopted();
   }
   if ( started_ || !all ) return;
   started_ = true;
   replay_.start( clock_, real_.now() );
   loop_.post( [this] { playSlice(); } );
}

void Agent::playSlice() {
   double end = real_.now() + kReplaySlice;
   replay_.play(
      clock_, [&] { return real_.now() >= end; },
      [this]( const Replay::Frame& frame ) {
         receive( { replay_.inputs()[frame.input].capture, frame.link,
                    frame.truncated, frame.bytes } );
      } );
   if ( !replay_.atEnd() ) loop_.post( [this] { playSlice(); } );
}

void Agent::receive( const Frame& frame ) {
   DropReason reason = decode( frame );
   if ( reason != notDropped ) counters_.dropped( reason );
}

// It is for the VRF that has its destination.
void Agent::receiveUnicast( const IpPacket& packet ) {
   Message message;
   if ( DropReason reason = decodeMessage( packet, message ) )
      return counters_.dropped( reason );
   counters_.received( message );
   for ( const auto& family : families_ ) {
      if ( family->family() == packet.family() &&
           isOwn( family->config(), packet.destination ) )
         return family->router().receive( {}, packet, message );
   }
   counters_.refused( notToUs );
}

DropReason Agent::decode( const Frame& frame ) {
   IpPacket packet;
   if ( DropReason reason = decodeFrame( frame.link, frame.bytes, packet ) )
      return frame.truncated ? truncatedCapture : reason;
   Message message;
   if ( DropReason reason = decodeMessage( packet, message ) )
      return frame.truncated ? truncatedCapture : reason;
   counters_.received( message );
   const CaptureBinding& binding = bindings_.at( frame.capture );
   FamilyInstance* family = find( binding.vrf, packet.family() );
   if ( family == nullptr || binding.interface.empty() ) {
      counters_.refused( noAddress );
   } else {
      if ( wire_ )
         wire_->counters().received( binding.vrf, binding.interface, message );
      heardBy_ = &binding;
      family->router().receive( binding.interface, packet, message );
      heardBy_ = nullptr;
   }
   return notDropped;
}

bool Agent::published() const {
   return std::all_of(
      families_.begin(), families_.end(),
      []( const auto& family ) { return family->router().published(); } );
}

std::string Agent::summary() const {
   std::string out =
      "listening on " + fmt::format( "{}\n", fmt::join( listenedOn(), ", " ) );
   if ( live_.empty() )
      out = fmt::format( "replayed {} of {} packets\n", replay_.played(),
                         replay_.size() );
   if ( !replay_.problem().empty() ) out += replay_.problem() + "\n";
   out += counters_.text() + "\n";
   for ( const auto& family : families_ ) {
      size_t routes = family->router().model().route().size();
      out += fmt::format( "vrf {} {}: {} {}\n", family->config().name.name(),
                          Vantu::valueToStrep( family->family() ), routes,
                          routes == 1 ? "route" : "routes" );
   }
   return out;
}

}
