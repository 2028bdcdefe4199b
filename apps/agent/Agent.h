// The reference agent: hosts the library on its event loop and feeds it packets.
//
// Start-up in order: configuration, tables of every VRF and family mounted as
// writer with their reconcilers; as each has reloaded, its engines take the reloaded
// states up; then the captures are replayed in slices; from their end on the agent
// lives in real time. Interfaces that it listens on are heard from the start. Doorbells
// ring at the end of each turn of the loop.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "apps/agent/FamilyInstance.h"
#include "apps/agent/Replay.h"
#include "apps/agent/capture/LiveCapture.h"
#include "apps/config/AgentConfig.h"
#include "platform/loop/RealClock.h"
#include "published/Publisher.h"

namespace Agent {

struct AgentOptions {
   AgentConfig config;
   // The configuration is assumed: tables of other VRFs are not its to remove.
   bool assumed = false;
   std::string root = Corvex::EntityManager::defaultRoot;
   std::vector<Replay::Input> captures;
   // Interfaces of this host to listen on, by the names of their captures. REQUIRES: no
   // captures to replay, whose time is another.
   std::vector<std::string> interfaces;
   // On those of the configuration instead, as it changes; one that is not there is
   // waited for.
   bool listen = false;
   // Sentences for people: interfaces that went away, and the like.
   std::function<void( const std::string& )> note = []( const std::string& ) {};
};

class Agent {
 public:
   // Mounts the tables, reads the captures and opens the interfaces. `loop` outlives the
   // agent. Throws CaptureError, ConfigError (a capture without an interface),
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
   // it. Returns what does not follow now, a line each. Throws ConfigError, what
   // mounting a new VRF throws, and std::system_error where the kernel's routes cannot be
   // read; nothing has changed then.
   std::vector<std::string> configIs( AgentConfig config );

   const RouterCounters& counters() const { return counters_; }
   const std::vector<std::unique_ptr<FamilyInstance>>& families() const {
      return families_;
   }
   // Where a capture breaks off, and how; empty: none does.
   const std::string& captureProblem() const { return replay_.problem(); }
   // What was replayed, reloaded and counted; lines for people.
   std::string summary() const;

 private:
   using Families = std::vector<std::unique_ptr<FamilyInstance>>;

   void addFamilies( const AgentConfig& config, Families& made );
   Families newFamilies( const AgentConfig& config );
   void removeLeftovers();
   FamilyInstance* find( const L3::VrfName& vrf,
                         Vantu::AddressFamily family ) const;
   std::vector<std::string> bindCaptures();
   void handleTurnEnd();
   void adoptReloaded();
   void playSlice();
   // A frame that arrived where `capture` is bound to.
   struct Frame {
      const std::string& capture;
      LinkType link;
      bool truncated;
      Bytes bytes;
   };
   std::vector<std::string> listenedOn() const;
   std::vector<std::string> listenAnew();
   std::unique_ptr<LiveCapture> listen( const std::string& interface );
   void receive( const Frame& frame );
   DropReason decode( const Frame& frame );
   bool published() const;

   AgentOptions options_;
   Mox::Loop& loop_;
   Mox::RealClock real_;
   AgentClock clock_;
   RouterCounters counters_;
   Corvex::EntityManager manager_;
   Published::CounterPublisher published_;
   KernelRoutes kernelRoutes_;
   Families families_;
   Replay replay_;
   std::map<std::string, CaptureBinding> bindings_;  // by capture
   std::vector<std::unique_ptr<LiveCapture>> live_;
   bool started_ = false;  // the replay
   std::function<void()> ready_;
   std::optional<Mox::Loop::TurnEnd> turnEnd_;
};

}
