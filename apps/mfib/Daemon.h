// The forwarding process: all VRFs and families of a configuration.
//
// Start-up in order: the kernel's tables by kept or new sockets, which are handed
// to the keeper at once; then every capability is dropped; then interfaces, tables
// and mirrors. Event-loop thread only.
#pragma once

#include "apps/config/AgentConfig.h"
#include "apps/mfib/Family.h"
#include "apps/mfib/Links.h"
#include "apps/mfib/SocketStore.h"
#include "platform/loop/RealClock.h"
#include "published/Publisher.h"

namespace Forwarding {

// The families that the configuration asks for: each VRF and family in which an
// interface has an address, with all interfaces of the VRF. Throws
// std::runtime_error: no such interface, two VRFs with one table, too many
// interfaces.
std::vector<FamilyConfig> familiesOf( const Agent::AgentConfig& config );

struct DaemonOptions {
   std::string root = Corvex::EntityManager::defaultRoot;
   double counterInterval = 1.0;  // s; 0: never
};

class Daemon : private Mox::Clock::Notifiee {
 public:
   // `loop` and `clock` outlive it. Throws std::runtime_error and the exceptions of
   // mounting. Drops the capabilities of the process.
   Daemon( Mox::Loop& loop, Mox::RealClock& clock,
           std::vector<FamilyConfig> families, const DaemonOptions& options,
           Family::Say say );

   // Adds and removes interfaces; reports that other changes need a restart.
   void configIs( const std::vector<FamilyConfig>& families );

 private:
   struct Member {
      std::unique_ptr<Family> family;
      std::unique_ptr<Mox::Loop::FdWatcher> watcher, registers;
      SharedFd socket;
   };

   void onTime() override;
   void add( const FamilyConfig& config, std::unique_ptr<MrtTable> kernel,
             RegisterWays ways );
   void hear( Member& member );
   void openLog( Mox::Clock& clock );
   void mountCounters();
   RegisterWays waysFor( const FamilyConfig& config, SocketStore& store );
   SharedFd rawSocketFor( const FamilyConfig& config, SocketStore& store,
                          const char* kind, int protocol );
   template <class Call>
   void eachFamily( Call call );

   Mox::Loop& loop_;
   Mox::RealClock& clock_;
   double counterInterval_;
   Family::Say say_;
   std::unique_ptr<Corvex::EntityManager> manager_;
   std::optional<Published::CounterPublisher> counters_;
   std::unique_ptr<Links> links_;
   std::vector<Member> members_;
   std::unique_ptr<Published::EventLog> log_;
   std::unique_ptr<Mox::Loop::TurnEnd> turnEnd_;
   std::string problem_;
};

}
