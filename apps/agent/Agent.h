// The reference agent: hosts the library on its event loop and feeds it packets.
//
// Start-up in order: configuration, tables of every VRF and family mounted as
// writer with their reconcilers; as each has reloaded, its engines take the reloaded
// states up; then the captures are replayed in slices; from their end on the agent
// lives in real time. Doorbells ring at the end of each turn of the loop.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "apps/agent/FamilyInstance.h"
#include "apps/agent/Replay.h"
#include "platform/loop/RealClock.h"

namespace Agent {

struct AgentOptions {
   AgentConfig config;
   std::string root = Corvex::EntityManager::defaultRoot;
   std::vector<Replay::Input> captures;
};

class Agent {
 public:
   // Mounts the tables and reads the captures. `loop` outlives the agent. Throws
   // CaptureError, ConfigError (a capture without an interface),
   // Brane::SecondWriterError, Brane::CreateError.
   Agent( Mox::Loop& loop, AgentOptions options );
   ~Agent();
   Agent( const Agent& ) = delete;
   Agent& operator=( const Agent& ) = delete;

   // Called once: the captures are played and what came of them is published.
   void readyIs( std::function<void()> ready ) { ready_ = std::move( ready ); }

   // As FamilyInstance::mountNotes(), of all.
   std::vector<std::string> mountNotes() const;

   // Another configuration: VRFs come and go with their tables, the others follow
   // it. Returns what does not follow now, a line each. Throws ConfigError, and what
   // mounting a new VRF throws; nothing has changed then.
   std::vector<std::string> configIs( AgentConfig config );

   const AgentCounters& counters() const { return counters_; }
   const std::vector<std::unique_ptr<FamilyInstance>>& families() const {
      return families_;
   }
   // What was replayed, reloaded and counted; lines for people.
   std::string summary() const;

 private:
   using Families = std::vector<std::unique_ptr<FamilyInstance>>;

   Families newFamilies( const AgentConfig& config );
   FamilyInstance* find( const L3::VrfName& vrf,
                         Vantu::AddressFamily family ) const;
   std::vector<std::string> bindCaptures();
   void handleTurnEnd();
   void adoptReloaded();
   void playSlice();
   void receive( const Replay::Frame& frame );
   DropReason decode( const Replay::Frame& frame );
   bool published() const;

   AgentOptions options_;
   Mox::Loop& loop_;
   Mox::RealClock real_;
   AgentClock clock_;
   AgentCounters counters_;
   Corvex::EntityManager manager_;
   Published::CounterPublisher published_;
   Families families_;
   Replay replay_;
   std::vector<CaptureBinding> bindings_;  // by input of the replay
   bool started_ = false;                  // the replay
   std::function<void()> ready_;
   std::optional<Mox::Loop::TurnEnd> turnEnd_;
};

}
