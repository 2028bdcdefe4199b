// The reference agent: hosts the library on its event loop and feeds it packets.
//
// Start-up in order: configuration, tables of every VRF and family mounted as
// writer with their reconcilers; when all have reloaded, the engines take the
// reloaded states up; then the captures are replayed in slices; from their end on
// the agent lives in real time. Doorbells ring at the end of each turn of the loop.
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

   const AgentCounters& counters() const { return counters_; }
   const std::vector<std::unique_ptr<FamilyInstance>>& families() const {
      return families_;
   }
   // What was replayed, reloaded and counted; lines for people.
   std::string summary() const;

 private:
   void bindCaptures();
   void handleTurnEnd();
   void handleReloaded();
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
   std::vector<std::unique_ptr<FamilyInstance>> families_;
   Replay replay_;
   std::vector<CaptureBinding> bindings_;  // by input of the replay
   bool reloaded_ = false;
   std::function<void()> ready_;
   std::optional<Mox::Loop::TurnEnd> turnEnd_;
};

}
