#include "tests/scenario/World.h"

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>

#include "apps/agent/capture/CaptureReader.h"
#include "apps/config/ConfigReader.h"
#include "apps/show/reports/CheckReport.h"
#include "apps/show/reports/Why.h"
#include "export/Conversion.h"
#include "tests/scenario/SentText.h"

namespace Scenario {

using Vantu::AddressFamily;
using Vantu::IntfId;
using Vantu::IpGenAddr;

namespace {

// Looks beside the scenario, then in the directory of PIMSM_CAPTURES or the one
// beside the source tree. Empty without the capture.
std::string captureOf( const std::string& name, const std::string& script ) {
   namespace fs = std::filesystem;
   const char* named = std::getenv( "PIMSM_CAPTURES" );
   for ( const fs::path& directory :
         { fs::path( script ).parent_path(),
           fs::path( named != nullptr ? named : PIMSM_CAPTURES_DIR ) } ) {
      if ( fs::exists( directory / name ) ) return directory / name;
   }
   return "";
}

}

World::World( const Script& script ) : script_( script ), names_( script.names ) {
   start( "" );
   adopt();
}

// The configuration with the texts of each variant replaced: "no-rp+moved".
Agent::VrfConfig World::config( const std::string& variants ) const {
   std::string text = script_.config;
   for ( size_t from = 0; from < variants.size(); ) {
      const size_t plus = std::min( variants.find( '+', from ), variants.size() );
      const std::string name = variants.substr( from, plus - from );
      auto variant = script_.variants.find( name );
      if ( variant == script_.variants.end() )
         throw ScriptError( "no variant: " + name );
      const size_t at = text.find( variant->second.from );
      if ( at == std::string::npos )
         throw ScriptError( "nothing to replace for " + name );
      text.replace( at, variant->second.from.size(), variant->second.to );
      from = plus + 1;
   }
   return Agent::parseConfig( "vrfs:\n- name: default\n" + text, script_.path )
      .vrfs[0];
}

void World::start( const std::string& variants ) {
   router_.reset();
   config_ = config( variants );
   router_ = std::make_unique<Router::VrfRouter>(
      manager_, clock_, family(), config_, counters_,
      Router::VrfRouterOptions{
         {},
         config_.maxRoutes,
         config_.maxRouteIntfs,
         nullptr,
         speech(),
         [this]( const Published::Event& event ) { tell( event ); } } );
   while ( !router_->ready() ) clock_.runPass();
}

void World::tell( const Published::Event& event ) {
   if ( !log_ ) log_.emplace( manager_, Published::agentLog, clock_, 1024 );
   log_->add( event );
   events_.emplace_back( now(), eventText( event, names_ ) );
}

std::string World::why( const std::string& statement ) {
   Words words( statement );
   const std::string asks = words.next();
   const std::string what = words.next();
   const std::string where = words.next();
   words.expectEnd();
   Show::Receiver receiver;
   if ( names_.isRoute( what ) ) {
      receiver.group = names_.route( what ).group;
      receiver.source = names_.route( what ).source;
   } else {
      receiver.group = names_.address( what );
   }
   try {
      receiver.host = names_.address( where );
   } catch ( const Mox::Error& ) {
      receiver.intfId = IntfId( where );
   }
   if ( router_ != nullptr ) turn();
   Show::Mirrors mirrors( { root_.path(), "all", family() } );
   mirrors.load();
   Show::Evidence evidence{ Show::Events( root_.path() ).take(), host_,
                            clock_.now() };
   Show::AllRates rates;
   for ( size_t i = 0; i < rates_.size(); ++i )
      rates.emplace( mirrors.all()[i].get(), rates_[i] ).first->second.read();
   evidence.rates = looked_ ? &rates : nullptr;
   evidence.interval = looked_ ? clock_.now() - lookedAt_ : 0.0;
   const Show::Answer answer =
      Show::whyOf( mirrors, { receiver }, evidence ).front();
   if ( answer.mirror == nullptr ) return "why no tables";
   const std::string cause =
      answer.why.cause.empty() ? "nothing" : answer.why.cause;
   if ( asks == "verdict" ) return "verdict " + answer.why.verdict;
   if ( asks == "chain" ) {
      std::string chain = "chain " + cause + ( answer.why.again ? " again:" : ":" );
      for ( const Show::Why::Step& each : answer.why.chain )
         chain += fmt::format( "{} {}{}: {}", chain.back() == ':' ? "" : " /",
                               each.mark == Show::Why::fine  ? ""
                               : each.mark == Show::Why::bad ? "NO "
                                                             : "? ",
                               each.what, each.evidence );
      std::replace( chain.begin(), chain.end(), ';', ',' );
      return chain;
   }
   return "why " + cause;
}

std::vector<std::string> World::check() {
   turn();
   Show::Mirrors mirrors( { root_.path(), "default", family() } );
   mirrors.load();
   std::vector<std::string> out;
   const Show::Evidence evidence{ Show::Events( root_.path() ).take(), host_,
                                  clock_.now() };
   for ( const auto& mirror : mirrors.all() ) {
      for ( const auto& finding : Show::check( *mirror, {}, evidence ).findings ) {
         out.push_back( "check " + finding.kind );
         if ( !finding.intfId.empty() )
            out.back() += ' ' + std::string( finding.intfId.name() );
         if ( finding.key != Routing::Pim::RouteKey() )
            out.back() += ' ' + names_.of( finding.key );
      }
   }
   return out;
}

// look: what is asked afterwards knows the rates since.
void World::look() {
   looked_.emplace( Show::Selection{ root_.path(), "all", family() } );
   looked_->load();
   for ( const auto& each : looked_->all() ) rates_.emplace_back( *each );
   lookedAt_ = clock_.now();
}

uint32_t World::indexOf( const std::string& intf ) const {
   uint32_t index = 0;
   for ( const auto& each : config_.interfaces ) {
      ++index;
      if ( each.name.name() == intf ) return index;
   }
   throw ScriptError( "no interface: " + intf );
}

// link eth1 down|up|index 7|mtu 576: as the agent finds the interface, until the next config.
void World::link( Words& words ) {
   Router::InterfaceConfig& it = config_.interfaces[indexOf( words.next() ) - 1];
   it.up = !words.accept( "down" ) && ( words.accept( "up" ) || it.up );
   if ( words.accept( "index" ) ) it.index = words.whole();
   if ( words.accept( "mtu" ) ) it.mtu = words.whole();
   router_->configIs( config_ );
}

// has A [table 253] [in eth0 out eth1 eth3], lacks A
void World::hostEntry( Words& words ) {
   if ( !host_.entries ) host_.entries.emplace();
   const bool has = words.next() == "has";
   const auto key = names_.route( words.next() );
   host_.entries->erase( key );
   if ( !has ) return;
   Show::Host::Entry entry;
   if ( words.accept( "table" ) )
      entry.table = static_cast<uint32_t>( words.number() );
   if ( words.accept( "in" ) ) entry.incoming = indexOf( words.next() );
   if ( words.accept( "out" ) )
      while ( !words.atEnd() ) entry.outgoing.insert( indexOf( words.next() ) );
   host_.entries->emplace( key, entry );
}

// elsewhere A: the source sends in the VRF red.
void World::elsewhere( Words& words ) {
   namespace Sm = Routing::Pim::SparseMode;
   const L3::VrfName red( "red" );
   auto model = Sm::statusFactory( red );
   model->maxRoutesIs( 10 );
   model->maxRouteIntfsIs( 10 );
   const auto route = model->routeIs( names_.route( words.next() ) );
   route->katExpiredIs( false );
   Sm::Brane::Status::mountInDependencyOrder(
      kernelSide_, Sm::Brane::Status::mountPath( family(), red ),
      Brane::tableWriter, model )
      ->routeIs( Sm::Brane::doGetBraneRouteFromRoute( *route ) );
   kernelSide_.dispatch();
}

// host eth1 down, host eth1 gone, host eth1 no-address, host eth1 no-link-local,
// host has A, host lacks A: as the kernel says.
void World::host( Words& words ) {
   for ( const auto& each : config_.interfaces )
      for ( const auto& own : each.addresses )
         host_.addresses.insert( own.address );
   if ( words.peek() == "has" || words.peek() == "lacks" )
      return hostEntry( words );
   const std::string first = words.next();
   if ( !host_.links ) {
      host_.links.emplace();
      for ( const auto& each : config_.interfaces )
         ( *host_.links )[std::string( each.name.name() )] = { true, true, true,
                                                               true };
   }
   Show::Host::Link& link = ( *host_.links )[first];
   const std::string how = words.next();
   if ( how == "down" ) link.up = false;
   if ( how == "up" ) link = { true, true, true, true };
   if ( how == "no-address" ) link.ipv4 = link.ipv6 = false;
   if ( how == "no-link-local" ) link.linkLocal = false;
   if ( how == "gone" ) host_.links->erase( first );
}

Router::Speech World::speech() {
   if ( !script_.speaks ) return {};
   return { [this]( const Router::Outgoing& message ) {
              if ( mute_ ) return false;
              sent_.emplace_back(
                 now(),
                 sentText( throughTheWire( message ), names_,
                           [this]( const IpGenAddr& group ) {
                              return Router::Topology( config_ ).rpOf( group );
                           } ) );
              return true;
           },
            [this] { return random_; } };
}

void World::adopt() {
   router_->adopt();
   turn();
}

void World::turn() {
   manager_.dispatch();
   if ( router_ != nullptr ) router_->handleTurnEnd();
}

void World::runUntil( double time, const std::function<void()>& look ) {
   while ( clock_.nextWakeup() <= start_ + time ) {
      clock_.runUntil( clock_.nextWakeup() );
      turn();
      look();
   }
   clock_.runUntil( start_ + time );
   turn();
}

std::optional<double> World::pause( const std::string& statement ) const {
   Words words( statement );
   if ( words.accept( "at" ) ) return words.seconds();
   if ( words.peek().front() != '+' ) return std::nullopt;
   return now() + words.seconds();
}

void World::act( const std::string& statement ) {
   if ( habits_.holdtime == 0xffff ||
        statement.find( "forever" ) != std::string::npos )
      forever_ = true;
   Words words( statement );
   const std::string first = words.peek();
   if ( first.back() == ':' ) {
      words.next();
      message( words, first.substr( 0, first.size() - 1 ) );
   } else if ( words.accept( "use" ) ) {
      habits_.intf = words.next();
      while ( !words.atEnd() ) {
         if ( words.accept( "from" ) ) habits_.from = words.next();
         if ( words.accept( "hold" ) ) habits_.holdtime = words.holdtime();
      }
   } else if ( words.accept( "config" ) ) {
      config_ = config( words.atEnd() ? "" : words.next() );
      router_->configIs( config_ );
   } else if ( words.accept( "restart" ) ) {
      start( words.atEnd() ? "" : words.next() );
      adopt();
   } else if ( words.accept( "start" ) ) {
      return start( words.atEnd() ? "" : words.next() );
   } else if ( words.accept( "random" ) ) {
      random_ = words.number();
   } else if ( words.accept( "mute" ) ) {
      mute_ = true;
   } else if ( words.accept( "unmute" ) ) {
      mute_ = false;
   } else if ( words.accept( "goodbye" ) ) {
      router_->sayGoodbye();
   } else if ( words.accept( "stop" ) ) {
      router_.reset();
      return words.expectEnd();
   } else if ( words.accept( "lose" ) ) {
      lose( words );
      return words.expectEnd();
   } else if ( words.accept( "adopt" ) ) {
      adopt();
   } else if ( words.accept( "kernel" ) ) {
      kernel( words );
   } else if ( words.accept( "host" ) ) {
      host( words );
   } else if ( words.accept( "link" ) ) {
      link( words );
   } else if ( words.accept( "elsewhere" ) ) {
      elsewhere( words );
   } else if ( words.accept( "look" ) ) {
      look();
   } else {
      message( words, habits_.intf );
   }
   words.expectEnd();
   if ( router_ == nullptr ) return;
   // Between a restart's halves there is no turn.
   if ( router_->adopted() ) turn();
}

std::string World::unpublished() {
   namespace Tables = Routing::Pim::SparseMode::Brane;
   const auto& tables = *router_->writer().tables();
   size_t intfs = 0;
   for ( const auto& route : router_->model().route() ) {
      bool same =
         tables.route( route.key() ) == Tables::doGetBraneRouteFromRoute( route );
      for ( const auto& intf : route.routeIntf() ) {
         Tables::Intf record;
         same = same &&
                tables.routeIntf().find( { route.key(), intf.intfId() }, record ) ==
                   Brane::lookupFound &&
                record == Tables::doGetBraneIntfFromRouteIntf( route.key(), intf );
         ++intfs;
      }
      if ( !same ) return names_.of( route.key() );
   }
   const bool more = tables.route().size() != router_->model().route().size() ||
                     tables.routeIntf().size() != intfs;
   return more ? "one that is gone" : "";
}

void World::message( Words& words, const std::string& intf ) {
   Link link;
   for ( const Router::InterfaceConfig& each : config_.interfaces ) {
      if ( each.name.name() != intf ) continue;
      for ( const Router::InterfaceAddress& own : each.addresses ) {
         if ( own.address.family() == family() && link.own.isUnspecified() )
            link.own = own.address;
      }
   }
   link.rpOf = [this]( const IpGenAddr& group ) {
      return Router::Topology( config_ ).rpOf( group );
   };
   const Sent sent = readMessage( words, names_, habits_, link );
   receive( IntfId( intf ), sent.packet );
}

void World::receive( IntfId intf, const Router::IpPacket& packet ) {
   Router::Message message;
   const Router::DropReason reason = Router::decodeMessage( packet, message );
   if ( reason != Router::notDropped ) return counters_.dropped( reason );
   router_->receive( intf, packet, message );
}

bool World::replay( const std::string& statement,
                    const std::function<void()>& look ) {
   Words words( statement );
   words.accept( "replay" );
   const std::string path = captureOf( words.next(), script_.path );
   if ( path.empty() ) return false;
   const IntfId intf( words.atEnd() ? habits_.intf : words.next() );
   words.expectEnd();
   Agent::CaptureReader reader( path );
   Agent::CapturedPacket captured;
   double begin = 0.0;
   const double base = now();
   while ( reader.next( captured ) ) {
      if ( begin == 0.0 ) begin = captured.time;
      runUntil( base + captured.time - begin, look );
      Router::IpPacket packet;
      const Router::DropReason reason =
         Router::decodeFrame( captured.link, captured.bytes, packet );
      if ( reason != Router::notDropped ) {
         counters_.dropped( reason );
      } else if ( packet.family() == family() ) {
         receive( intf, packet );
      }
      turn();
      look();
   }
   return true;
}

// lose A [eth1 [times]]: removes it from a stopped router's tables, as if the
// router had died between two writes.
void World::lose( Words& words ) {
   namespace Sm = Routing::Pim::SparseMode;
   auto model = Sm::statusFactory( config_.name );
   model->maxRoutesIs( config_.maxRoutes );
   model->maxRouteIntfsIs( config_.maxRouteIntfs );
   auto tables = Sm::Brane::Status::mountInDependencyOrder(
      manager_, Sm::Brane::Status::mountPath( family(), config_.name ),
      Brane::tableWriter, model );
   const Routing::Pim::RouteKey key = names_.route( words.next() );
   if ( words.atEnd() ) {
      tables->routeDel( key );
      return;
   }
   const Routing::Pim::RouteIntfKey intf{ key, IntfId( words.next() ) };
   if ( !words.accept( "times" ) ) {
      tables->routeIntfDel( intf );
      return;
   }
   Published::FamilyStatus::mount(
      manager_, Published::FamilyStatus::mountPath( family(), config_.name ),
      Brane::tableWriter, config_.maxRouteIntfs )
      ->downstreamDel( intf );
}

// kernel EVENT[, EVENT], in one turn
void World::kernel( Words& words ) {
   if ( mfib_ == nullptr ) {
      mfib_ = Published::MfibStatus::mount(
         kernelSide_, Published::MfibStatus::mountPath( family(), config_.name ),
         Brane::tableWriter, 100 );
   }
   do {
      kernelEvent( words );
   } while ( words.accept( "," ) );
   kernelSide_.dispatch();
}

// packet A on eth1 [4 s ago], wrong A on eth1 [4 s ago], counts A 5 [wrong 3]
void World::kernelEvent( Words& words ) {
   const std::string what = words.next();
   if ( what == "stop" ) return mfib_.reset();
   if ( what == "publishes" ) {
      const Published::Text<32> name( words.next() );
      return mfib_->settingIs( { name, Published::Text<224>( words.next() ) } );
   }
   if ( what == "forwards" ) {
      const IntfId intf( words.next() );
      const uint32_t index = indexOf( std::string( intf.name() ) );
      mfib_->vifIs(
         { intf, index, index, 0, 0, words.accept( "nothing" ) ? 0u : 5u, 0 } );
      return kernelSide_.dispatch();
   }
   if ( what == "refuses" ) {
      const auto key = names_.route( words.next() );
      Published::Event event{ .kind = Published::entryRefused };
      event.vrf = Published::Text<104>( "default" );
      event.ipVersion = family() == AddressFamily::ipv4 ? 4 : 6;
      event.group = key.group;
      event.source = key.source;
      return tell( event );
   }
   const Routing::Pim::RouteKey key = names_.route( words.next() );
   if ( what == "counts" ) {
      const auto count = static_cast<uint64_t>( words.number() );
      const uint64_t wrong =
         words.accept( "wrong" ) ? static_cast<uint64_t>( words.number() ) : 0;
      const uint64_t size =
         words.accept( "of" ) ? static_cast<uint64_t>( words.number() ) : 100;
      mfib_->cacheIs( { key, count, ( count + wrong ) * size, wrong,
                        count == 0 ? 0.0 : clock_.now() } );
   } else if ( what == "packet" || what == "wrong" || what == "shared" ) {
      if ( !words.accept( "on" ) ) throw ScriptError( "on which interface?" );
      const IntfId intf( words.next() );
      double age = 0.0;
      if ( !words.atEnd() && words.peek() != "," ) age = words.seconds();
      words.accept( "ago" );
      mfib_->upcallIs( { { key, intf },
                         what == "packet"  ? Published::noCacheUpcall
                         : what == "wrong" ? Published::wrongVifUpcall
                                           : Published::sharedTreeUpcall,
                         1,
                         clock_.now() - age } );
   } else {
      throw ScriptError( "the kernel does not tell that: " + what );
   }
}

}
