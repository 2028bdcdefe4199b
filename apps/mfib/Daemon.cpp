#include "apps/mfib/Daemon.h"

#include <fmt/format.h>
#include <netinet/in.h>

#include <algorithm>

#include "apps/config/ConfigReader.h"
#include "apps/program/Capabilities.h"
#include "apps/program/Readiness.h"
#include "packet/Pim.h"

namespace Forwarding {
namespace {

using Agent::InterfaceConfig;
using Agent::VrfConfig;
using Vantu::AddressFamily;

bool hasFamily( const VrfConfig& vrf, AddressFamily family ) {
   auto isOf = [&]( const Agent::InterfaceAddress& own ) {
      return own.address.family() == family;
   };
   return std::any_of( vrf.interfaces.begin(), vrf.interfaces.end(),
                       [&]( const InterfaceConfig& interface ) {
                          return std::any_of( interface.addresses.begin(),
                                              interface.addresses.end(), isOf );
                       } );
}

// The table that the kernel uses when no rule (ip-mrule(8)) says otherwise.
uint32_t kernelsTable( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? RT_TABLE_DEFAULT : RT_TABLE_MAIN;
}

FamilyConfig familyOf( const VrfConfig& vrf, AddressFamily family ) {
   FamilyConfig out{ vrf.name,
                     family,
                     vrf.mrouteTable.value_or( kernelsTable( family ) ),
                     vrf.maxRoutes,
                     {},
                     vrf,
                     vrf.newSourceLimit,
                     vrf.newSourceRate };
   for ( const InterfaceConfig& interface : vrf.interfaces )
      out.interfaces.push_back( interface.name );
   return out;
}

// Each table has one socket.
std::string socketName( const FamilyConfig& config ) {
   return fmt::format( "mroute-{}-{}", Vantu::valueToStrep( config.family ),
                       config.table );
}

void check( const FamilyConfig& next, const std::vector<FamilyConfig>& others ) {
   if ( next.interfaces.size() > kMaxVifs ) {
      throw Agent::ConfigError( fmt::format(
         "vrf {} has {} interfaces; the kernel forwards between {} of a table at "
         "most",
         next.vrf.name(), next.interfaces.size(), kMaxVifs ) );
   }
   for ( const FamilyConfig& other : others ) {
      if ( other.family != next.family || other.table != next.table ) continue;
      throw Agent::ConfigError( fmt::format(
         "VRFs '{}' and '{}' have one mroute-table, {}; give each its own",
         other.vrf.name(), next.vrf.name(), next.table ) );
   }
}

// Also returns whether the socket was a kept one.
std::pair<SharedFd, bool> socketFor( const FamilyConfig& config,
                                     SocketStore& store ) {
   SharedFd kept = store.take( socketName( config ) );
   if ( kept != nullptr && isMrtSocket( config.family, kept->value() ) )
      return { kept, true };
   SharedFd opened = openMrtSocket( config.family, config.table );
   store.keep( socketName( config ), opened );
   return { opened, false };
}

}

std::vector<FamilyConfig> familiesOf( const Agent::AgentConfig& config ) {
   std::vector<FamilyConfig> out;
   for ( const VrfConfig& vrf : config.vrfs ) {
      for ( AddressFamily family : { AddressFamily::ipv4, AddressFamily::ipv6 } ) {
         if ( !hasFamily( vrf, family ) ) continue;
         FamilyConfig next = familyOf( vrf, family );
         check( next, out );
         out.push_back( std::move( next ) );
      }
   }
   if ( out.empty() )
      throw Agent::ConfigError(
         "the configuration names no interface with an address" );
   return out;
}

Daemon::Daemon( Mox::Loop& loop, Mox::RealClock& clock,
                std::vector<FamilyConfig> families, const DaemonOptions& options,
                Family::Say say )
   : Notifiee( &clock ),
     loop_( loop ),
     clock_( clock ),
     counterInterval_( options.counterInterval ),
     say_( std::move( say ) ) {
   SocketStore store;
   std::vector<std::unique_ptr<MrtTable>> kernels;
   std::vector<RegisterWays> ways;
   for ( const FamilyConfig& config : families ) {
      auto [socket, kept] = socketFor( config, store );
      say_( fmt::format( "{}: table {}, {} socket", nameOf( config ), config.table,
                         kept ? "kept" : "new" ) );
      kernels.push_back(
         std::make_unique<MrtTable>( socket, config.family, config.table ) );
      ways.push_back( waysFor( config, store ) );
   }
   store.dropOthers();
   Programs::dropCapabilities();
   for ( const auto& kernel : kernels ) kernel->makeReady();
   manager_ = std::make_unique<Corvex::EntityManager>( clock, &loop, options.root );
   manager_->noteHandlerIs( say_ );
   openLog( clock );
   mountCounters();
   links_ = std::make_unique<Links>( loop, [this] {
      eachFamily( []( Family& family ) { family.handleLinks(); } );
   } );
   for ( size_t i = 0; i < families.size(); ++i )
      add( families[i], std::move( kernels[i] ), std::move( ways[i] ) );
   turnEnd_ = std::make_unique<Mox::Loop::TurnEnd>( loop, [this] {
      eachFamily( []( Family& family ) { family.handleTurnEnd(); } );
      for ( Member& member : members_ ) hear( member );
      if ( log_ ) log_->flush();
      if ( counters_ ) counters_->touch();
   } );
   if ( counterInterval_ > 0.0 ) wakeupTimeIs( clock.now() + counterInterval_ );
   Programs::tellParentReady();
}

// As the counters: the first process's.
void Daemon::openLog( Mox::Clock& clock ) {
   try {
      log_ = std::make_unique<Published::EventLog>( *manager_, Published::mfibLog,
                                                    clock );
   } catch ( const Brane::TableError& e ) {
      say_( fmt::format( "events are not logged: {}", e.what() ) );
   }
}

// Several processes may forward for VRFs of one agent: the first one's are published.
void Daemon::mountCounters() {
   try {
      counters_.emplace( clock_, Published::ProcessStatus::mountAt(
                                    *manager_, Brane::tableWriter,
                                    Published::ProcessStatus::mfibPath ) );
   } catch ( const Brane::SecondWriterError& e ) {
      say_( fmt::format( "the counters are not published: {}", e.what() ) );
   }
}

RegisterWays Daemon::waysFor( const FamilyConfig& config, SocketStore& store ) {
   RegisterWays out;
   if ( SharedFd socket =
           rawSocketFor( config, store, "register", Router::pimProtocol ) )
      out.registers = std::make_unique<RegisterSocket>( config.family, socket );
   if ( config.family != AddressFamily::ipv6 ) return out;
   if ( SharedFd socket = rawSocketFor( config, store, "icmp", IPPROTO_ICMPV6 ) )
      out.tooBig = std::make_unique<TooBig>( socket );
   return out;
}

// Null, and told, where a process without the right to open one was left none: a former
// version kept no such socket.
SharedFd Daemon::rawSocketFor( const FamilyConfig& config, SocketStore& store,
                               const char* kind, int protocol ) {
   const std::string name = fmt::format(
      "{}-{}-{}", kind, Vantu::valueToStrep( config.family ), config.table );
   SharedFd socket = store.take( name );
   if ( socket != nullptr &&
        isRawSocket( config.family, protocol, socket->value() ) )
      return socket;
   try {
      socket = openRawSocket( config.family, protocol );
      store.keep( name, socket );
      return socket;
   } catch ( const std::system_error& e ) {
      say_( fmt::format( "{}: no {} messages are sent: {}", nameOf( config ), kind,
                         e.what() ) );
      return nullptr;
   }
}

void Daemon::add( const FamilyConfig& config, std::unique_ptr<MrtTable> kernel,
                  RegisterWays ways ) {
   SharedFd socket = kernel->socket();
   auto family =
      std::make_unique<Family>( config, std::move( kernel ), std::move( ways ),
                                links_->table(), *manager_, clock_, say_ );
   Family* plain = family.get();
   plain->logIs( log_.get() );
   plain->counterIntervalIs( counterInterval_ );
   std::unique_ptr<Mox::Loop::FdWatcher> registered;
   if ( plain->registerFile() >= 0 )
      registered = std::make_unique<Mox::Loop::FdWatcher>(
         loop_, plain->registerFile(), [plain] { plain->takeRegisters(); } );
   members_.push_back(
      { std::move( family ), nullptr, std::move( registered ), socket } );
}

// Packets to be registered wait in a kept socket until their routes are known again.
void Daemon::hear( Member& member ) {
   if ( member.watcher != nullptr || !member.family->mfib().started() ) return;
   member.watcher = std::make_unique<Mox::Loop::FdWatcher>(
      loop_, member.socket->value(),
      [family = member.family.get()] { family->takeUpcalls(); } );
}

// The kernel may refuse an answer for a while: reports it once, and tries again.
template <class Call>
void Daemon::eachFamily( Call call ) {
   for ( const Member& member : members_ ) {
      try {
         call( *member.family );
      } catch ( const std::system_error& e ) {
         if ( problem_ != e.what() ) say_( e.what() );
         problem_ = e.what();
      }
   }
}

void Daemon::onTime() {
   eachFamily( []( Family& family ) { family.publishCounters(); } );
   wakeupTimeIs( clock_.now() + counterInterval_ );
}

void Daemon::configIs( const std::vector<FamilyConfig>& families ) {
   auto same = []( const FamilyConfig& a, const FamilyConfig& b ) {
      return a.vrf == b.vrf && a.family == b.family && a.table == b.table;
   };
   for ( const FamilyConfig& next : families ) {
      auto member = std::find_if(
         members_.begin(), members_.end(),
         [&]( const Member& m ) { return same( m.family->config(), next ); } );
      if ( member == members_.end() ) {
         say_( nameOf( next ) + ": forwarded from the next start on" );
      } else {
         member->family->configIs( next );
      }
   }
   for ( const Member& member : members_ ) {
      const FamilyConfig& config = member.family->config();
      if ( std::none_of( families.begin(), families.end(), [&]( const auto& next ) {
              return same( config, next );
           } ) )
         say_( nameOf( config ) + ": forwarded until the next start" );
   }
}

}
