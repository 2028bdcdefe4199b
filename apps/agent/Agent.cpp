#include "apps/agent/Agent.h"

#include <fmt/format.h>

#include <algorithm>

#include "apps/agent/config/ConfigReader.h"

namespace Agent {
namespace {

constexpr double kReplaySlice = 0.01;  // s

using Vantu::AddressFamily;

bool hasFamily( const VrfConfig& vrf, AddressFamily family ) {
   for ( const InterfaceConfig& interface : vrf.interfaces ) {
      for ( const InterfaceAddress& own : interface.addresses ) {
         if ( own.address.family() == family ) return true;
      }
   }
   return false;
}

}

Agent::Agent( Mox::Loop& loop, AgentOptions options )
   : options_( std::move( options ) ),
     loop_( loop ),
     real_( loop ),
     clock_( real_ ),
     manager_( real_, &loop, options_.root ),
     replay_( options_.captures ) {
   bindCaptures();
   for ( const VrfConfig& vrf : options_.config.vrfs ) {
      for ( AddressFamily family : { AddressFamily::ipv4, AddressFamily::ipv6 } ) {
         if ( !hasFamily( vrf, family ) ) continue;
         families_.push_back( std::make_unique<FamilyInstance>(
            family, vrf, manager_, real_, clock_, counters_ ) );
      }
   }
   if ( families_.empty() ) {
      throw ConfigError( "the configuration names no interface with an address" );
   }
   turnEnd_.emplace( loop_, [this] { handleTurnEnd(); } );
}

Agent::~Agent() = default;

void Agent::bindCaptures() {
   for ( const Replay::Input& input : replay_.inputs() ) {
      CaptureBinding binding = captureBinding( options_.config, input.capture );
      if ( binding.interface == nullptr ) {
         throw ConfigError( fmt::format(
            "{}: no single interface stands for capture \"{}\"; name one "
            "with --read NAME=FILE",
            input.path, input.capture ) );
      }
      bindings_.push_back( binding );
   }
}

void Agent::handleTurnEnd() {
   if ( !reloaded_ ) {
      reloaded_ =
         std::all_of( families_.begin(), families_.end(),
                      []( const auto& family ) { return family->ready(); } );
      if ( reloaded_ ) handleReloaded();
   }
   for ( const auto& family : families_ ) family->handleTurnEnd();
   if ( ready_ && reloaded_ && replay_.atEnd() && published() ) {
      std::exchange( ready_, nullptr )();
   }
}

// Packets have waited for this.
void Agent::handleReloaded() {
   // In real time: a reloaded state lives for its time from now, however far back
   // the replay starts.
   for ( const auto& family : families_ ) family->adopt();
   replay_.start( clock_, real_.now() );
   loop_.post( [this] { playSlice(); } );
}

void Agent::playSlice() {
   double end = real_.now() + kReplaySlice;
   replay_.play(
      clock_, [&] { return real_.now() >= end; },
      [this]( const Replay::Frame& frame ) { receive( frame ); } );
   if ( !replay_.atEnd() ) loop_.post( [this] { playSlice(); } );
}

void Agent::receive( const Replay::Frame& frame ) {
   DropReason reason = decode( frame );
   if ( reason != notDropped ) counters_.dropped( reason );
}

DropReason Agent::decode( const Replay::Frame& frame ) {
   IpPacket packet;
   if ( DropReason reason = decodeFrame( frame.link, frame.bytes, packet ) ) {
      return frame.truncated ? truncatedCapture : reason;
   }
   if ( packet.protocol != pimProtocol ) return notPim;
   PimMessage message;
   if ( DropReason reason = decodePim( packet, message ) ) {
      return frame.truncated ? truncatedCapture : reason;
   }
   counters_.received( message.type );
   const CaptureBinding& binding = bindings_[frame.input];
   auto family = std::find_if( families_.begin(), families_.end(),
                               [&]( const auto& candidate ) {
                                  return candidate->family() == packet.family() &&
                                         &candidate->config() == binding.vrf;
                               } );
   if ( family == families_.end() ) {
      counters_.refused( noAddress );
   } else {
      ( *family )->receive( binding.interface->name, packet, message );
   }
   return notDropped;
}

bool Agent::published() const {
   return std::all_of( families_.begin(), families_.end(),
                       []( const auto& family ) { return family->published(); } );
}

std::string Agent::summary() const {
   std::string out = fmt::format( "replayed {} of {} packets\n", replay_.played(),
                                  replay_.size() );
   if ( !replay_.problem().empty() ) out += replay_.problem() + "\n";
   out += counters_.text() + "\n";
   for ( const auto& family : families_ ) {
      out += fmt::format( "vrf {} {}: {} routes\n", family->config().name.name(),
                          Vantu::valueToStrep( family->family() ),
                          family->model().route().size() );
   }
   return out;
}

}
